#!/usr/bin/env python3
"""The supervisor thread run for real under Wine, in SupervisorHost.exe on the
win32 backend, with one installed user: the user whom the Wine prefix runs
as, so that a watcher started with -currentuser is that user's watcher. The
supervisor lists the user and tries to launch the user's watcher; Wine's
LogonUserW is a stub whose token CreateProcessAsUserW refuses, and the test
records that answer. The watcher is then started by hand, announced through
a posted CMD_CONNECT, and switched by posted pause, run and stop. Last, the
password is looked for in the prefix's registry files and the trace."""
import os
import queue
import secrets
import subprocess
import threading
import time
import unittest
from pathlib import Path

from winetest import EVENT_TRACE, Prefix, windows_path

SUCCESS = 0
ERROR = 1
INFORMATION = 4
SERVICE = 1
SETTLE_SECONDS = 2.0
CMD_PAUSE, CMD_RUN, CMD_STOP, CMD_CONNECT = 0x8000, 0x8001, 0x8002, 0x8003


def build_file(*parts):
    return Path(os.environ["HF_BUILD_DIR"], *parts)


class Host:
    """SupervisorHost.exe, asked one line at a time."""

    def __init__(self, prefix):
        self.trace = open(prefix.trace_path, "ab")
        self.process = subprocess.Popen(
            ["wine", str(build_file("tests", "wine", "supervisor", "SupervisorHost.exe"))],
            env=prefix.environment(EVENT_TRACE), stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=self.trace, start_new_session=True)
        self.answers = queue.Queue()
        self.transcript = []
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            self.answers.put(line.decode("utf-8", "replace").strip())

    def ask(self, line, timeout=60):
        self.process.stdin.write((line + "\n").encode())
        self.process.stdin.flush()
        answer = self.answers.get(timeout=timeout)
        self.transcript.append(answer)
        return answer

    def end(self, timeout=30):
        self.process.stdin.close()
        try:
            self.process.wait(timeout=timeout)
        finally:
            self.trace.close()


class SupervisorUnderWine(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.prefix = Prefix.for_test("supervisor_runs")
        cls.input, cls.output, cls.journal = cls.prefix.give_user_a_hot_folder()
        cls.password = "Tw-" + secrets.token_hex(12)
        cls.host = Host(cls.prefix)
        cls.watcher = None

    @classmethod
    def tearDownClass(cls):
        cls.host.end()
        cls.prefix.stop()
        if cls.watcher:
            cls.watcher.end()

    def events(self, event_id):
        return [e for e in self.prefix.events() if e.event_id == event_id]

    def wait_for(self, event_id, count=1, timeout=60):
        self.prefix.wait_for_events(lambda events: sum(e.event_id == event_id for e in events) >= count,
                                    timeout=timeout)
        return self.events(event_id)

    def jobs(self):
        if not self.journal.exists():
            return []
        lines = self.journal.read_text(encoding="utf-8").splitlines()
        return [line.split("\t")[2] for line in lines if line.startswith("job\t")]

    def wait_for_jobs(self, count, timeout=30):
        deadline = time.monotonic() + timeout
        while len(self.jobs()) < count:
            if time.monotonic() > deadline:
                self.fail(f"{count} job(s) expected, journal: {self.jobs()}")
            time.sleep(0.05)

    def drop(self, name):
        (self.input / name).write_bytes(b"%PDF-1.4 " + name.encode())

    def test_pipes_cannot_be_listed_under_wine(self):
        answer = self.host.ask("list-pipes")
        if answer == "pipes 0 66":
            self.skipTest("Wine cannot list \\\\.\\pipe\\* (FindFirstFileW fails with 66), so the supervisor "
                          "reconnects no running watcher at start; the simulated stories cover the reconnection")
        self.assertEqual(answer.split()[:2], ["pipes", "1"])

    def test_the_supervisor_launches_then_switches_an_announced_watcher(self):
        user = self.host.ask("whoami").split(" ", 1)[1]
        self.assertEqual(self.host.ask(f"install {user} {self.password}"), "installed 0")
        self.assertEqual(self.host.ask("start"), "started")

        # The start pass: the user found, the launch announced, and Wine's answer.
        host_path = windows_path(build_file("tests", "wine", "supervisor", "SupervisorHost.exe"))
        failed = self.wait_for(10)[0]
        found, launching = self.events(4), self.events(20)
        self.assertEqual([(e.type, e.category, e.strings) for e in found], [(SUCCESS, SERVICE, [user])])
        self.assertEqual([(e.type, e.category) for e in launching], [(INFORMATION, SERVICE)])
        self.assertEqual(launching[0].strings[0], user)
        self.assertEqual(launching[0].strings[1].lower(), host_path.lower())
        self.assertEqual(launching[0].strings[2], "SupervisorHost.exe -asservice")
        # Wine's LogonUserW is a stub: its token is one CreateProcessAsUserW refuses with 6.
        self.assertEqual((failed.type, failed.category, failed.strings),
                         (ERROR, SERVICE, [user, "SupervisorHost.exe -asservice", "6"]))
        ids = [e.event_id for e in self.prefix.events() if e.category == SERVICE]
        self.assertEqual(ids, [4, 20, 10])

        # The user's watcher, started by hand, stays stopped until the service connects.
        type(self).watcher = self.prefix.start_watcher()
        pipe = "\\\\.\\pipe\\Tarnwick_FolderWatcher_" + user.replace("\\", "_")
        self.assertEqual(self.host.ask(f"post {CMD_CONNECT:x} {pipe}"), "posted")
        connected = self.wait_for(49)
        self.assertEqual([(e.type, e.category, e.strings) for e in connected], [(INFORMATION, SERVICE, [pipe])])

        # Running (the current command at connection): a settled file is handed on.
        self.drop("a.pdf")
        self.wait_for_jobs(1)

        # Paused: a file stays pending; running again hands it on.
        self.assertEqual(self.host.ask(f"post {CMD_PAUSE:x}"), "posted")
        time.sleep(0.5)
        self.drop("b.pdf")
        time.sleep(SETTLE_SECONDS * 2)
        self.assertEqual(self.jobs(), ["C:\\In\\a.pdf"])
        self.assertEqual(self.host.ask(f"post {CMD_RUN:x}"), "posted")
        self.wait_for_jobs(2)

        # Stopped: the supervisor ends and the watcher hands nothing on.
        self.assertEqual(self.host.ask(f"post {CMD_STOP:x}"), "posted")
        self.assertEqual(self.host.ask("wait 30000"), "ended")
        time.sleep(0.5)
        self.drop("c.pdf")
        time.sleep(SETTLE_SECONDS * 2)
        self.assertEqual(self.jobs(), ["C:\\In\\a.pdf", "C:\\In\\b.pdf"])
        self.assertEqual([e.event_id for e in self.prefix.events() if e.category == SERVICE], [4, 20, 10, 49],
                         "no write to the watcher failed")

        # The password is nowhere in clear text: not in the registry (where the
        # sealed value is), not in any event or the trace, not in the host's answers.
        self.host.end()
        self.prefix.stop()
        self.assert_password_nowhere(user)

    def assert_password_nowhere(self, user):
        clear = self.password.encode()
        wide = self.password.encode("utf-16-le")
        hex_forms = [",".join(f"{b:02x}" for b in form) for form in (clear, wide)]
        registry = "".join((self.prefix.path / name).read_text(encoding="utf-8", errors="replace")
                           for name in ("system.reg", "user.reg", "userdef.reg"))
        # A long hex value goes on over several lines ending in a backslash.
        unfolded = registry.replace("\\\n", "").replace(" ", "").lower()
        self.assertIn("orvanta\\\\tarnwick\\\\4\\\\hotfolderusers]", unfolded)
        self.assertIn('"' + user.lower().replace("\\", "\\\\") + '"=hex:', unfolded, "the user's sealed value")
        for form in hex_forms:
            self.assertNotIn(form, unfolded)
        self.assertNotIn(self.password.lower(), unfolded)
        trace = self.prefix.trace_path.read_bytes()
        self.assertNotIn(clear, trace)
        self.assertNotIn(wide, trace)
        self.assertNotIn(self.password, "\n".join(self.host.transcript))


if __name__ == "__main__":
    unittest.main()
