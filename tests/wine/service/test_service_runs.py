#!/usr/bin/env python3
"""The whole system under Wine as an administrator and a user cause it: the
service installed and started, a user added with HotFolderControl, the user's
watcher started with -installuser, a file handed on, the service stopped and
started again."""
import time
import unittest

from registration import SERVICE, SERVICE_RUNNING, SERVICE_STOPPED, installed_service, serve_type_library_to_wine
from winetest import SETTLE_SECONDS, USER, USERS_KEY, PrefixStory, has_event, poll


class TheServiceEndToEnd(PrefixStory):
    prefix_name = "service_runs"
    hot_folder = True

    def drop_and_wait(self, name, expect_job):
        """Drops a file; the jobs once it has been handed on, or after long enough for it to have been."""
        before = len(self.prefix.jobs())
        self.prefix.drop(name)
        self.prefix.wait_for_jobs(before + 1, timeout=30 if expect_job else SETTLE_SECONDS * 2 + 1)
        time.sleep(SETTLE_SECONDS + 1)  # long enough for a second job, were there one
        return self.prefix.jobs()[before:]

    def start_service(self, *awaited):  # -startservice, until the events `awaited` (predicates) come
        start = self.prefix.trace_size()
        self.assertEqual(self.prefix.run(self.prefix.executable, "-startservice").exit_code, 1)
        return self.prefix.wait_for_events(lambda events: all(p(events) for p in awaited), timeout=60, start=start)

    def service_state(self, awaited):  # the service reports its state just after its event says so
        return poll(lambda: installed_service(self.prefix, state=True), lambda state: state == awaited, timeout=30)

    def test_the_service_runs_the_users_watcher_and_stopping_it_idles_the_watcher(self):
        prefix = self.prefix
        self.assertEqual(prefix.run(prefix.executable, "-Service", timeout=120).exit_code, 0)
        serve_type_library_to_wine(prefix)

        # Started by hand while registered as a service: 1063.
        by_hand = prefix.run(prefix.executable, timeout=120)
        self.assertEqual(by_hand.exit_code, 1063)
        self.assertIn(["1063"], [e.strings for e in by_hand.events if e.event_id == 58])

        self.start_service(has_event(0, ["Service started/resumed"]), has_event(6))
        self.assertEqual(self.service_state(SERVICE_RUNNING), SERVICE_RUNNING)

        # An administrator adds a user; the password is kept sealed.
        password = "s3cret p\u00e4ss"
        self.assertEqual(prefix.control("install-user", USER, input=f"{password}\n".encode()), (0, f"installed {USER}"))
        kind, sealed = prefix.reg_tree(USERS_KEY)[""][USER]
        self.assertEqual(kind, "REG_BINARY")
        self.assertNotIn(password.encode("utf-16-le").hex().upper(), sealed)
        self.assertGreater(len(sealed), 0)
        self.assertEqual(prefix.control("is-installed", USER), (0, f"{USER} is installed"))
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
        run = prefix.reg_tree(r"HKCU\Software\Microsoft\Windows\CurrentVersion\Run")[""]
        self.assertEqual(run["Tarnwick Hot Folder Watcher"], ("REG_SZ", f'"{prefix.executable}" -currentuser'))
        prefix.wait_for_events(has_event(49), timeout=60, start=start)
        self.assertEqual(prefix.since(start, 52), [], "the announcement reached the service")
        [[pipe]] = prefix.since(start, 49)
        self.assertRegex(pipe, r"^\\\\\.\\pipe\\Tarnwick_FolderWatcher_")
        jobs = self.drop_and_wait("a.pdf", expect_job=True)
        self.assertEqual([job[1:4] for job in jobs], [["C:\\In\\a.pdf", "C:\\Scripts\\stamp.py", "C:\\Out"]])

        # Stopping the service idles the watcher without ending it.
        start = prefix.trace_size()
        prefix.wine("net", "stop", SERVICE, timeout=120, check=False)
        prefix.wait_for_events(lambda e: has_event(0, ["Service stopped"])(e) and has_event(44)(e), start=start)
        self.assertEqual(self.service_state(SERVICE_STOPPED), SERVICE_STOPPED)
        self.assertEqual(prefix.since(start, 44), [[pipe, "109"]])
        self.assertIsNone(self.watcher.poll(), "the watcher still runs")
        self.assertEqual(self.drop_and_wait("b.pdf", expect_job=False), [])

        # Started again, the service finds the installed user. It would find
        # the running watcher by listing the pipes, which Wine cannot do
        # (tests/wine/README.md): under Wine the watcher stays idle.
        events = self.start_service(has_event(4, [USER]), has_event(20))
        self.assertNotIn(49, [e.event_id for e in events])
        self.assertEqual(self.drop_and_wait("c.pdf", expect_job=False), [])
        self.assertIsNone(self.watcher.poll())


if __name__ == "__main__":
    unittest.main()
