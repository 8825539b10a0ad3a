#!/usr/bin/env python3
"""TarnwickHotFolder.exe run under Wine as an administrator runs it: with
nothing registered, then its one-shot switches, per user and for the machine,
and what they leave in the registry and with the service control manager."""
import unittest

from registration import (APPID, EVENT_SOURCE, LIBID, TYPE_LIBRARY_NAME, UNIVERSAL_MARSHALER, event_source,
                          installed_service, registered_type_library, service_configuration, service_tables, tables)
from winetest import PrefixStory

ERROR, INFORMATION = 1, 4
CATEGORY_SERVICE, CATEGORY_USER = 1, 2


class Registration(PrefixStory):
    prefix_name = "registration"

    def run_switch(self, switch):
        self.last_run = self.prefix.run(self.prefix.executable, switch, timeout=120)
        self.assertEqual(self.last_run.exit_code, 0, f"{switch}: {self.last_run.events}")

    def assertTables(self, classes_root, expected):
        for key, tree in expected.items():
            self.assertEqual(self.prefix.reg_tree(classes_root + "\\" + key), tree, f"{key} {self.last_run}")

    def assertNoTables(self, classes_root, expected):
        for key in expected:
            self.assertIsNone(self.prefix.reg_tree(classes_root + "\\" + key), key)

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
        executable = self.prefix.executable
        self.run_switch("-RegServerPerUser")
        self.assertTables(r"HKCU\Software\Classes", tables(executable))
        for key in tables(executable):
            machine = self.prefix.reg_tree(r"HKLM\Software\Classes" "\\" + key) or {}
            self.assertEqual({path: values for path, values in machine.items() if values}, {},
                             f"{key}: no value of the tables under the machine's classes")
        self.assertIsNone(installed_service(self.prefix))
        self.assertIsNone(self.prefix.reg_tree(EVENT_SOURCE))
        user = registered_type_library(self.prefix, r"HKCU\Software\Classes")
        machine = registered_type_library(self.prefix, r"HKLM\Software\Classes")

        self.run_switch("-UnregServerPerUser")
        self.assertNoTables(r"HKCU\Software\Classes", tables(executable))
        if user is None and machine is not None:
            self.skipTest("Wine's RegisterTypeLibForUser registers the library for the whole machine "
                          "(tests/wine/README.md)")
        self.assertEqual(user["file"], ("REG_SZ", executable))
        self.assertIsNone(machine)

    def assertRegisteredAsService(self, executable):
        self.assertTables("HKCR", service_tables(executable))
        self.assertEqual(self.prefix.reg_tree(EVENT_SOURCE), event_source(executable))
        self.assertEqual(registered_type_library(self.prefix, "HKCR"), {
            "name": ("REG_SZ", TYPE_LIBRARY_NAME), "file": ("REG_SZ", executable),
            "marshaler": ("REG_SZ", UNIVERSAL_MARSHALER),
            "library": {"": ("REG_SZ", LIBID), "Version": ("REG_SZ", "1.0")}})
        configuration = installed_service(self.prefix)
        self.assertIsNotNone(configuration, "the service is installed")
        self.assertEqual({k: v for k, v in configuration.items() if k != "state"}, service_configuration(executable))

    def test_3_service_then_regserver_then_unregserver(self):
        executable = self.prefix.executable
        self.run_switch("-Service")
        self.assertRegisteredAsService(executable)

        # Twice: the service is deleted and created again, and all ends the same.
        self.run_switch("-Service")
        self.assertRegisteredAsService(executable)

        # A plain local server: the service and LocalService go, the rest stays.
        self.run_switch("-RegServer")
        self.assertIsNone(installed_service(self.prefix))
        expected = service_tables(executable)
        del expected["AppID\\" + APPID][""]["LocalService"]
        self.assertTables("HKCR", expected)

        # Unregistered: the tables and the type library go, the event source stays.
        self.run_switch("-UnregServer")
        self.assertNoTables("HKCR", tables(executable))
        self.assertIsNone(registered_type_library(self.prefix, "HKCR"))
        self.assertIsNotNone(self.prefix.reg_tree(r"HKCR\AppID"), "the kept keys stay")
        self.assertIsNotNone(self.prefix.reg_tree(r"HKCR\CLSID"), "the kept keys stay")
        self.assertEqual(self.prefix.reg_tree(EVENT_SOURCE), event_source(executable))


if __name__ == "__main__":
    unittest.main()
