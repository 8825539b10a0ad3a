#!/usr/bin/env python3
"""The whole system under Wine, the way an administrator and a user cause it:
the service installed with -Service and started, a user added with
HotFolderControl, the user's watcher started as the logon entry starts it,
a file handed to the test plug-in, and the service stopped and started
again."""
import os
import re
import time
import unittest
from pathlib import Path

from registration import LIBID, SERVICE
from winetest import Prefix

BUILD = Path(os.environ["HF_BUILD_DIR"])
CONTROL_TOOL = str(BUILD / "tools" / "ControlTool" / "HotFolderControl.exe")
SERVICE_CONFIG_TOOL = str(BUILD / "tests" / "wine" / "e2e" / "hf_service_config.exe")
SETTLE_SECONDS = 2.0
USER = "OFFICE\\clerk"
PASSWORD = "s3cret p\u00e4ss"
USERS_KEY = r"HKLM\SOFTWARE\Orvanta\Tarnwick\4\HotFolderUsers"
SERVICE_RUNNING = "4"
SERVICE_STOPPED = "1"


def module_log(text):
    """The service module's own log line: event 0, category 0."""
    return lambda events: any(e.event_id == 0 and e.strings == [text] for e in events)


def has_event(event_id, strings=None):
    return lambda events: any(e.event_id == event_id and (strings is None or e.strings == strings) for e in events)


class TheServiceEndToEnd(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.prefix = Prefix.for_test("service_runs")
        cls.input, cls.output, cls.journal = cls.prefix.give_user_a_hot_folder()
        cls.watcher = None

    @classmethod
    def tearDownClass(cls):
        cls.prefix.stop()
        if cls.watcher:
            cls.watcher.end()

    def control(self, *arguments, input=None):
        result = self.prefix.wine(CONTROL_TOOL, *arguments, input=input, timeout=120, check=False)
        return result.returncode, result.stdout + result.stderr.decode("utf-8", "replace")

    def service_state(self):
        result = self.prefix.wine(SERVICE_CONFIG_TOOL, SERVICE, check=False)
        match = re.search(r"^state=(\d+)", result.stdout, re.MULTILINE)
        return match.group(1) if match else None

    def jobs(self):
        lines = self.journal.read_text(encoding="utf-8").splitlines() if self.journal.exists() else []
        return [line.split("\t") for line in lines if line.startswith("job\t")]

    def drop_and_wait(self, name, expect_job):
        """Drops a file into the input folder; returns the jobs once it has
        been handed on, or after long enough for it to have been."""
        before = len(self.jobs())
        (self.input / name).write_bytes(b"%PDF-1.4 " + name.encode())
        deadline = time.monotonic() + (30 if expect_job else SETTLE_SECONDS * 2 + 1)
        while time.monotonic() < deadline and len(self.jobs()) == before:
            time.sleep(0.1)
        time.sleep(SETTLE_SECONDS + 1)  # long enough for a second job, were there one
        return self.jobs()[before:]

    def test_the_service_runs_the_users_watcher_and_stopping_it_idles_the_watcher(self):
        prefix = self.prefix
        self.assertEqual(prefix.run(prefix.executable, "-Service", timeout=120).exit_code, 0)
        # Wine's type library marshaler looks libraries up under locale 0
        # only; the product registers 0x409, so the prefix gets a copy.
        library = r"HKCR\TypeLib" "\\" + LIBID + r"\1.0"
        prefix.wine("reg", "copy", library + r"\409", library + r"\0", "/s", "/f")

        # Started by hand while registered as a service: 1063.
        by_hand = prefix.run(prefix.executable, timeout=120)
        self.assertEqual(by_hand.exit_code, 1063)
        self.assertIn(["1063"], [e.strings for e in by_hand.events if e.event_id == 58])

        start = prefix.trace_path.stat().st_size
        self.assertEqual(prefix.run(prefix.executable, "-startservice").exit_code, 1)
        prefix.wait_for_events(lambda e: module_log("Service started/resumed")(e) and has_event(6)(e), start=start)
        self.assertEqual(self.service_state(), SERVICE_RUNNING)

        # An administrator adds a user; the password is kept sealed.
        code, output = self.control("install-user", USER, input=(PASSWORD + "\n").encode("utf-8"))
        self.assertEqual((code, output.strip()), (0, f"installed {USER}"))
        stored = prefix.reg_tree(USERS_KEY)[""][USER]
        self.assertEqual(stored[0], "REG_BINARY")
        self.assertNotIn(PASSWORD.encode("utf-16-le").hex().upper(), stored[1])
        self.assertGreater(len(stored[1]), 0)
        self.assertEqual(self.control("is-installed", USER), (0, f"{USER} is installed\r\n"))
        code, output = self.control("uninstall-user", "OFFICE\\nobody")
        self.assertEqual(code, 1)
        self.assertIn("HRESULT 0x80070002", output)
        # A script binds late, through IDispatch, by the program identifier.
        (prefix.path / "drive_c" / "ask.vbs").write_text(
            'Set service = CreateObject("Tarnwick.FolderService")\r\n'
            f'WScript.Echo service.IsUserInstalled("{USER}") & " " & service.IsUserInstalled("OFFICE\\nobody")\r\n')
        script = prefix.wine("cscript", "//nologo", r"C:\ask.vbs", timeout=120)
        self.assertEqual(script.stdout.strip(), "True False")

        # The user's watcher starts as the logon entry starts it, announces
        # itself and is connected and told to run by the service alone.
        start = prefix.trace_path.stat().st_size
        type(self).watcher = prefix.start_watcher()
        events = prefix.wait_for_events(has_event(49), timeout=60, start=start)
        self.assertNotIn(52, [e.event_id for e in events], "the announcement reached the service")
        pipe = [e.strings[0] for e in events if e.event_id == 49][0]
        self.assertRegex(pipe, r"^\\\\\.\\pipe\\Tarnwick_FolderWatcher_")
        jobs = self.drop_and_wait("a.pdf", expect_job=True)
        self.assertEqual([job[2:5] for job in jobs], [["C:\\In\\a.pdf", "C:\\Scripts\\stamp.py", "C:\\Out"]])

        # Stopping the service idles the watcher without ending it.
        start = prefix.trace_path.stat().st_size
        prefix.wine("net", "stop", SERVICE, timeout=120, check=False)
        prefix.wait_for_events(lambda e: module_log("Service stopped")(e) and has_event(44)(e), start=start)
        self.assertEqual(self.service_state(), SERVICE_STOPPED)
        broken = [e.strings for e in prefix.events(start) if e.event_id == 44]
        self.assertEqual(broken, [[pipe, "109"]])
        self.assertIsNone(self.watcher.process.poll(), "the watcher still runs")
        self.assertEqual(self.drop_and_wait("b.pdf", expect_job=False), [])

        # Started again, the service finds the installed user. It would find
        # the running watcher by listing the pipes, which Wine cannot do
        # (tests/wine/README.md): under Wine the watcher stays idle.
        start = prefix.trace_path.stat().st_size
        self.assertEqual(prefix.run(prefix.executable, "-startservice").exit_code, 1)
        events = prefix.wait_for_events(lambda e: has_event(4, [USER])(e) and has_event(20)(e), start=start)
        self.assertNotIn(49, [e.event_id for e in events])
        self.assertEqual(self.drop_and_wait("c.pdf", expect_job=False), [])
        self.assertIsNone(self.watcher.process.poll())


if __name__ == "__main__":
    unittest.main()
