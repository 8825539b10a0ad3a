#!/usr/bin/env python3
"""TarnwickHotFolder.exe run under Wine as an administrator runs it: with
nothing registered, then its one-shot switches, per user and for the machine,
and what they leave in the registry and with the service control manager."""
import unittest

from registration import (EVENT_SOURCE, installed_service, registered_type_library, registration,
                          service_registration, tables)
from winetest import CATEGORY_SERVICE, CATEGORY_USER, ERROR, INFORMATION, PrefixStory

USER_CLASSES, MACHINE_CLASSES = r"HKCU\Software\Classes", r"HKLM\Software\Classes"


class Registration(PrefixStory):
    prefix_name = "registration"

    def run_switch(self, switch):
        self.last_run = self.prefix.run(self.prefix.executable, switch, timeout=120)
        self.assertEqual(self.last_run.exit_code, 0, f"{switch}: {self.last_run.events}")

    def assertTables(self, classes_root, expected):  # None: every key of the tables is missing
        for key, tree in tables(self.prefix.executable).items():
            self.assertEqual(self.prefix.reg_tree(classes_root + "\\" + key), expected and expected[key],
                             f"{key} {self.last_run}")

    def test_1_without_the_service_the_entry_logs_its_command_line_and_why_it_failed(self):
        # -startservice: the command line exactly as the process got it, then
        # the missing service (1060); StartServiceW was never reached, so the
        # exit code is its "failed" 0.
        for line in (f'"{self.prefix.executable}" -startservice',
                     f'"{self.prefix.executable}"   -StartService  "a \\"b\\" c" h\u00e9'):
            run = self.prefix.run_command_line(line)
            self.assertEqual((run.exit_code, [(e.event_id, e.type, e.category, e.strings) for e in run.events]),
                             (0, [(19, INFORMATION, CATEGORY_USER, [line]),
                                  (56, ERROR, CATEGORY_USER, ["Tarnwick Hot Folders", "1060"])]))

        # No switch: the service path. The AppID the module reads to choose
        # between service and local server is missing (2): message 58 under
        # category 1, and the process ends with that code once the supervisor has.
        run = self.prefix.run(self.prefix.executable, timeout=120)
        self.assertEqual(run.exit_code, 2)
        seen = [(e.event_id, e.type, e.category, e.strings) for e in run.events]
        self.assertEqual(seen[0], (19, INFORMATION, CATEGORY_USER, [run.command_line]))
        self.assertIn((58, ERROR, CATEGORY_SERVICE, ["2"]), seen)

    def test_2_per_user_switches_write_only_the_users_classes(self):
        self.run_switch("-RegServerPerUser")
        self.assertTables(USER_CLASSES, tables(self.prefix.executable))
        for key in tables(self.prefix.executable):
            machine = self.prefix.reg_tree(MACHINE_CLASSES + "\\" + key) or {}
            self.assertEqual({path: values for path, values in machine.items() if values}, {},
                             f"{key}: no value of the tables under the machine's classes")
        self.assertIsNone(installed_service(self.prefix))
        self.assertIsNone(self.prefix.reg_tree(EVENT_SOURCE))
        user = registered_type_library(self.prefix, USER_CLASSES)
        machine = registered_type_library(self.prefix, MACHINE_CLASSES)

        self.run_switch("-UnregServerPerUser")
        self.assertTables(USER_CLASSES, None)
        if user is None and machine is not None:
            self.skipTest("Wine's RegisterTypeLibForUser registers the library for the whole machine "
                          "(tests/wine/README.md)")
        self.assertEqual(user["file"], ("REG_SZ", self.prefix.executable))
        self.assertIsNone(machine)

    def test_3_service_then_regserver_then_unregserver(self):
        executable = self.prefix.executable
        expected = service_registration(executable)
        for switch, changes in (
                ("-Service", {}),
                ("-Service", {}),  # the service deleted and created again, all ends the same
                # A plain local server: the service and LocalService go, the rest stays.
                ("-RegServer", dict(tables(executable, service=True, local_service=False), service=None)),
                # Unregistered: all but the event source goes.
                ("-UnregServer", dict(dict.fromkeys(tables(executable)), library=None))):
            self.run_switch(switch)
            expected.update(changes)
            self.assertEqual(registration(self.prefix, executable), expected, self.last_run)
        for kept in (r"HKCR\AppID", r"HKCR\CLSID"):
            self.assertIsNotNone(self.prefix.reg_tree(kept), kept)


if __name__ == "__main__":
    unittest.main()
