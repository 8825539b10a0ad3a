#!/usr/bin/env python3
"""TarnwickHotFolder.exe run under Wine in a fresh prefix as an administrator
and a user run it: its one-shot switches and what they leave in the registry
and with the service control manager, then the service running a user's watcher."""
import getpass
import re
import secrets
import unittest

from registration import (EVENT_SOURCE, SERVICE, SERVICE_RUNNING, SERVICE_STOPPED, installed_service,
                          registered_type_library, registration, serve_type_library_to_wine, service_registration,
                          tables)
from winetest import CATEGORY_SERVICE, CATEGORY_USER, ERROR, INFORMATION, SUCCESS, USER, PrefixStory, has_event, poll

USER_CLASSES, MACHINE_CLASSES = r"HKCU\Software\Classes", r"HKLM\Software\Classes"
RUN_KEY = r"HKCU\Software\Microsoft\Windows\CurrentVersion\Run"


class TheServiceEndToEnd(PrefixStory):
    prefix_name = "service_runs"
    hot_folder = True

    def run_switch(self, switch):
        self.last_run = self.prefix.run(self.prefix.executable, switch, timeout=120)
        self.assertEqual(self.last_run.exit_code, 0, f"{switch}: {self.last_run.events}")

    def start_service(self, *awaited):  # -startservice, until the events `awaited` (predicates) come
        start = self.prefix.trace_size()
        self.assertEqual(self.prefix.run(self.prefix.executable, "-startservice").exit_code, 1)
        return self.prefix.wait_for_events(lambda events: all(p(events) for p in awaited), timeout=60, start=start)

    def assertServiceState(self, awaited):  # the service reports its state just after its event says so
        self.assertEqual(poll(lambda: installed_service(self.prefix, state=True), lambda s: s == awaited, 30), awaited)

    def test_1_without_the_service_the_entry_logs_its_command_line_and_why_it_failed(self):
        # -startservice (any case, what follows it ignored): the command line
        # exactly as the process got it, then the missing service (1060);
        # StartServiceW was never reached, so the exit code is its "failed" 0.
        line = f'"{self.prefix.executable}"   -StartService  "a \\"b\\" c" h\u00e9'
        run = self.prefix.run_command_line(line)
        self.assertEqual((run.exit_code, [(e.event_id, e.type, e.category, e.strings) for e in run.events]),
                         (0, [(19, INFORMATION, CATEGORY_USER, [line]),
                              (56, ERROR, CATEGORY_USER, ["Tarnwick Hot Folders", "1060"])]))

        # No switch: the service path. The AppID the module reads to choose
        # between service and local server is missing (2): message 58 under
        # category 1, and the process ends with that code once the supervisor has.
        run = self.prefix.run(self.prefix.executable, timeout=120)
        self.assertEqual(run.exit_code, 2)
        self.assertIn((58, ERROR, CATEGORY_SERVICE, ["2"]),
                      [(e.event_id, e.type, e.category, e.strings) for e in run.events])

    def test_2_per_user_switches_write_only_the_users_classes(self):
        self.run_switch("-RegServerPerUser")
        for key, tree in tables(self.prefix.executable).items():
            self.assertEqual(self.prefix.reg_tree(USER_CLASSES + "\\" + key), tree, f"{key} {self.last_run}")
            machine = self.prefix.reg_tree(MACHINE_CLASSES + "\\" + key) or {}
            self.assertEqual({path: values for path, values in machine.items() if values}, {},
                             f"{key}: no value of the tables under the machine's classes")
        self.assertIsNone(installed_service(self.prefix))
        self.assertIsNone(self.prefix.reg_tree(EVENT_SOURCE))
        user = registered_type_library(self.prefix, USER_CLASSES)
        machine = registered_type_library(self.prefix, MACHINE_CLASSES)

        self.run_switch("-UnregServerPerUser")
        for key in tables(self.prefix.executable):
            self.assertIsNone(self.prefix.reg_tree(USER_CLASSES + "\\" + key), f"{key} {self.last_run}")
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

    def test_4_the_service_runs_the_users_watcher_and_stopping_it_idles_the_watcher(self):
        prefix = self.prefix
        self.assertEqual(prefix.run(prefix.executable, "-Service", timeout=120).exit_code, 0)
        serve_type_library_to_wine(prefix)

        # Started by hand while registered as a service: 1063.
        by_hand = prefix.run(prefix.executable, timeout=120)
        self.assertEqual(by_hand.exit_code, 1063)
        self.assertIn(["1063"], [e.strings for e in by_hand.events if e.event_id == 58])

        self.start_service(has_event(0, ["Service started/resumed"]), has_event(6))
        self.assertServiceState(SERVICE_RUNNING)

        # An administrator adds a user; the end of the story looks for the password.
        password = "Tw-" + secrets.token_hex(12)
        self.assertEqual(prefix.control("install-user", USER, input=(password + "\n").encode()),
                         (0, f"installed {USER}"))
        code, output = prefix.control("uninstall-user", "OFFICE\\nobody")
        self.assertEqual(code, 1)
        self.assertIn("HRESULT 0x80070002", output)
        # A script binds late, through IDispatch, by the program identifier.
        (prefix.path / "drive_c" / "ask.vbs").write_text(
            'Set service = CreateObject("Tarnwick.FolderService")\r\n'
            f'WScript.Echo service.IsUserInstalled("{USER}") & " " & service.IsUserInstalled("OFFICE\\nobody")\r\n')
        self.assertEqual(prefix.wine("cscript", "//nologo", r"C:\ask.vbs", timeout=120).stdout.strip(), "True False")

        # The user's watcher starts for the first time, writing the logon
        # entry that starts it from then on, announces itself and is
        # connected and told to run by the service alone.
        start = prefix.trace_size()
        type(self).watcher = prefix.start_watcher("-installuser")
        run = prefix.reg_tree(RUN_KEY)[""]
        self.assertEqual(run["Tarnwick Hot Folder Watcher"], ("REG_SZ", f'"{prefix.executable}" -currentuser'))
        prefix.wait_for_events(has_event(49), timeout=60, start=start)
        self.assertEqual(prefix.since(start, 52), [], "the announcement reached the service")
        [[pipe]] = prefix.since(start, 49)
        self.assertRegex(pipe, r"^\\\\\.\\pipe\\Tarnwick_FolderWatcher_[^_\\]+_" + re.escape(getpass.getuser()) + "$")
        name = "R\u00e9sum\u00e9 a.pdf"
        prefix.drop(name)
        jobs = prefix.settled_jobs(1, stall=30)
        self.assertEqual([job[1:4] for job in jobs], [["C:\\In\\" + name, "C:\\Scripts\\stamp.py", "C:\\Out"]])

        # Stopping the service idles the watcher without ending it.
        start = prefix.trace_size()
        prefix.wine("net", "stop", SERVICE, timeout=120, check=False)
        prefix.wait_for_events(lambda e: has_event(0, ["Service stopped"])(e) and has_event(44)(e), start=start)
        self.assertServiceState(SERVICE_STOPPED)
        self.assertEqual(prefix.since(start, 44), [[pipe, "109"]])
        self.assertIsNone(self.watcher.poll(), "the watcher still runs")
        prefix.drop("b.pdf")
        self.assertEqual(prefix.settled_jobs(), jobs)

        # Started again, the service finds the installed user and launches its
        # watcher, which Wine refuses (6). It would find the running watcher by
        # listing the pipes, which Wine cannot do (tests/wine/README.md): under
        # Wine the watcher stays idle.
        launch = "TarnwickHotFolder.exe -asservice"
        events = self.start_service(has_event(10, [USER, launch, "6"]))
        self.assertEqual([(e.event_id, e.type, e.strings) for e in events if e.category == CATEGORY_SERVICE],
                         [(4, SUCCESS, [USER]), (20, INFORMATION, [USER, prefix.executable, launch]),
                          (10, ERROR, [USER, launch, "6"])])
        prefix.drop("c.pdf")
        self.assertEqual(prefix.settled_jobs(), jobs)
        self.assertIsNone(self.watcher.poll())

        # The password is nowhere in clear text: not in the registry, which holds
        # the user's sealed value, nor in the trace. Wine's boot runs the user's
        # Run entries as a logon does: the entry goes first, so that the watcher
        # started below as the service would start it is the only one.
        prefix.wine("reg", "delete", RUN_KEY, "/v", "Tarnwick Hot Folder Watcher", "/f")
        prefix.stop()
        registry = "".join((prefix.path / file).read_text(encoding="utf-8", errors="replace")
                           for file in ("system.reg", "user.reg", "userdef.reg"))
        # A long hex value goes on over several lines ending in a backslash.
        unfolded = registry.replace("\\\n", "").replace(" ", "").lower()
        users_key = r"\[software\\\\orvanta\\\\tarnwick\\\\4\\\\hotfolderusers\]"
        self.assertRegex(unfolded, users_key + r'[^\[]*"office\\\\clerk"=hex:', "the user's sealed value, in its key")
        clear, wide = password.encode(), password.encode("utf-16-le")
        forms = [",".join(f"{b:02x}" for b in form) for form in (clear, wide)] + [password.lower()]
        self.assertEqual([form for form in forms if form in unfolded], [], "in the registry")
        self.assertEqual([form for form in (clear, wide) if form in prefix.trace_path.read_bytes()], [], "in the trace")

        # After a restart, a watcher started as service announces itself, which
        # starts the service. Each reply 0 has its link end the plug-in it
        # started: each job finds a fresh one, started by its bare file name.
        prefix.start()
        start = prefix.trace_size()
        type(self).watcher = prefix.start_watcher("-asservice", plug_in="-lifetime:60000 -reply:0")
        prefix.wait_for_events(has_event(49, [pipe]), timeout=60, start=start)
        for name in ("d.pdf", "e.pdf"):
            prefix.drop(name)
        self.assertEqual([job[:5] for job in prefix.settled_jobs(3)[1:]],
                         [["1", "C:\\In\\" + name, "C:\\Scripts\\stamp.py", "C:\\Out", "reply 0"]
                          for name in ("d.pdf", "e.pdf")])
        plug_in_pipe = pipe.replace("FolderWatcher", "PlugIn")
        self.assertEqual(prefix.journal("started")[1:], [[plug_in_pipe, "TestPlugIn.exe"]] * 2)


if __name__ == "__main__":
    unittest.main()
