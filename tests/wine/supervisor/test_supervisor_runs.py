#!/usr/bin/env python3
"""The supervisor thread run for real under Wine, in SupervisorHost.exe on the
win32 backend, with the prefix's own user installed. Wine's LogonUserW is a
stub whose token CreateProcessAsUserW refuses, so the test records that answer
and starts the user's watcher as the supervisor would (-asservice)."""
import queue
import secrets
import subprocess
import threading
import time
import unittest

from winetest import CATEGORY_SERVICE, ERROR, INFORMATION, SUCCESS, PrefixStory, build_file, has_event, windows_path

CMD_PAUSE, CMD_RUN, CMD_STOP, CMD_CONNECT = 0x8000, 0x8001, 0x8002, 0x8003
HOST = build_file("tests", "wine", "supervisor", "SupervisorHost.exe")


class SupervisorUnderWine(PrefixStory):
    prefix_name = "supervisor_runs"
    hot_folder = True
    password = "Tw-" + secrets.token_hex(12)

    def ask(self, line):  # the answers are read on a thread of their own, so that a silent host fails the test
        self.host.stdin.write((line + "\n").encode())
        self.host.stdin.flush()
        return self.answers.get(timeout=60)

    def service_events(self, event_id=None):
        return [e for e in self.prefix.events() if event_id in (None, e.event_id) and e.category == CATEGORY_SERVICE]

    def test_the_supervisor_launches_then_switches_an_announced_watcher(self):
        # The host ends with the prefix at the latest.
        self.host = self.prefix.launch(str(HOST), stdin=subprocess.PIPE, stdout=subprocess.PIPE, start_new_session=True)
        self.answers = queue.Queue()
        threading.Thread(target=lambda: [self.answers.put(line.decode("utf-8", "replace").strip())
                                         for line in self.host.stdout], daemon=True).start()
        user = self.ask("whoami").split(" ", 1)[1]
        self.assertEqual(self.ask(f"install {user} {self.password}"), "installed 0")
        self.assertEqual(self.ask("start"), "started")

        # The start pass: the user found, the launch announced, and Wine's refusal (6).
        self.prefix.wait_for_events(has_event(10), timeout=60)
        seen = [(e.event_id, e.type, e.strings) for e in self.service_events()]
        seen[1:2] = [(i, t, [s[0], s[1].lower(), *s[2:]]) for i, t, s in seen[1:2]]  # the path in Wine's case
        self.assertEqual(seen,
                         [(4, SUCCESS, [user]),
                          (20, INFORMATION, [user, windows_path(HOST).lower(), "SupervisorHost.exe -asservice"]),
                          (10, ERROR, [user, "SupervisorHost.exe -asservice", "6"])])

        # The user's watcher, started as service, stays stopped until the service connects.
        type(self).watcher = self.prefix.start_watcher("-asservice", plug_in="-lifetime:60000 -reply:0")
        pipe = "\\\\.\\pipe\\Tarnwick_FolderWatcher_" + user.replace("\\", "_")
        self.assertEqual(self.ask(f"post {CMD_CONNECT:x} {pipe}"), "posted")
        self.prefix.wait_for_events(has_event(49), timeout=60)
        self.assertEqual([(e.type, e.strings) for e in self.service_events(49)], [(INFORMATION, [pipe])])

        # Running (the current command at connection): a settled file is handed
        # on. Paused: files stay pending; running again hands them on.
        self.prefix.drop("a.pdf")
        self.assertEqual([job[1] for job in self.prefix.wait_for_jobs(1, stall=30)], ["C:\\In\\a.pdf"])
        self.assertEqual(self.ask(f"post {CMD_PAUSE:x}"), "posted")
        time.sleep(0.5)
        self.prefix.drop("b.pdf")
        self.prefix.drop("Résumé c.pdf")
        self.assertEqual([job[1] for job in self.prefix.settled_jobs()], ["C:\\In\\a.pdf"])
        self.assertEqual(self.ask(f"post {CMD_RUN:x}"), "posted")
        inputs = ["C:\\In\\a.pdf", "C:\\In\\b.pdf", "C:\\In\\Résumé c.pdf"]
        # Each reply 0 has the link end the plug-in it started as service: every
        # job finds a fresh one (its first job), started by its bare file name.
        self.assertEqual([job[:6] for job in self.prefix.settled_jobs(3)],
                         [["1", path, "C:\\Scripts\\stamp.py", "C:\\Out", "reply 0", "copied"] for path in inputs])
        plug_in_pipe = "\\\\.\\pipe\\Tarnwick_PlugIn_" + user.replace("\\", "_")
        self.assertEqual(self.prefix.journal("started"), [[plug_in_pipe, "TestPlugIn.exe"]] * 3)

        # Stopped: the supervisor ends and the watcher hands nothing on.
        self.assertEqual(self.ask(f"post {CMD_STOP:x}"), "posted")
        self.assertEqual(self.ask("wait 30000"), "ended")
        time.sleep(0.5)
        self.prefix.drop("d.pdf")
        self.assertEqual([job[1] for job in self.prefix.settled_jobs()], inputs)
        self.assertEqual([e.event_id for e in self.service_events()], [4, 20, 10, 49], "no write to the watcher failed")

        # The password is nowhere in clear text: not in the registry (where the
        # sealed value is), not in the trace.
        self.host.stdin.close()
        self.host.wait(timeout=30)
        self.prefix.stop()
        clear, wide = self.password.encode(), self.password.encode("utf-16-le")
        registry = "".join((self.prefix.path / name).read_text(encoding="utf-8", errors="replace")
                           for name in ("system.reg", "user.reg", "userdef.reg"))
        # A long hex value goes on over several lines ending in a backslash.
        unfolded = registry.replace("\\\n", "").replace(" ", "").lower()
        self.assertIn("orvanta\\\\tarnwick\\\\4\\\\hotfolderusers]", unfolded)
        self.assertIn('"' + user.lower().replace("\\", "\\\\") + '"=hex:', unfolded, "the user's sealed value")
        for form in [",".join(f"{b:02x}" for b in form) for form in (clear, wide)] + [self.password.lower()]:
            self.assertNotIn(form, unfolded)
        for form in (clear, wide):
            self.assertNotIn(form, self.prefix.trace_path.read_bytes())


if __name__ == "__main__":
    unittest.main()
