#!/usr/bin/env python3
"""TarnwickHotFolder.exe -currentuser run for real under Wine: a user with one
hot folder, the test plug-in standing in for Acrobat through the AcrobatPath
value, and HotFolderControl.exe switching the watcher as the service would.
No service is installed, so the watcher stays stopped until it is told to run."""
import os
import time
import unittest
from pathlib import Path

from winetest import Prefix, windows_path

ERROR = 1
INFORMATION = 4
SETTLE_SECONDS = 2.0


def tool(*parts):
    return Path(os.environ["HF_BUILD_DIR"], "tools", *parts)


class WatcherUnderWine(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.prefix = Prefix.for_test("watcher_runs")
        cls.input, cls.output, cls.journal = cls.prefix.give_user_a_hot_folder()
        cls.watcher = cls.prefix.start_watcher()

    @classmethod
    def tearDownClass(cls):
        cls.prefix.stop()
        cls.watcher.end()

    def control(self, command):
        run = self.prefix.run(windows_path(tool("ControlTool", "HotFolderControl.exe")), command)
        self.assertEqual(run.exit_code, 0, run.events)

    def jobs(self):
        if not self.journal.exists():
            return []
        lines = self.journal.read_text(encoding="utf-8").splitlines()
        return [line.split("\t") for line in lines if line.startswith("job\t")]

    def wait_for_jobs(self, count, timeout=30):
        deadline = time.monotonic() + timeout
        while len(self.jobs()) < count:
            if time.monotonic() > deadline:
                self.fail(f"{count} job(s) expected, journal: {self.jobs()}")
            time.sleep(0.05)
        return time.monotonic()

    def test_a_running_watcher_hands_a_settled_file_on_once_and_a_paused_one_does_not(self):
        # Started by hand with no service registered: the announcement fails,
        # and the watcher stays stopped until a control client says run.
        announced = [e for e in self.prefix.events() if e.event_id == 52]
        self.assertEqual(len(announced), 1)
        self.assertEqual((announced[0].type, announced[0].category), (ERROR, 2))
        self.assertRegex(announced[0].strings[0], r"^0x8[0-9a-f]{7}$")

        self.control("run")
        (self.input / "a.pdf").write_bytes(b"%PDF-1.4 first")
        written = time.monotonic()
        handed_on = self.wait_for_jobs(1)
        self.assertGreaterEqual(handed_on - written, SETTLE_SECONDS)
        time.sleep(SETTLE_SECONDS + 1)  # long enough for a second job, were there one
        self.assertEqual([job[2:5] for job in self.jobs()], [["C:\\In\\a.pdf", "C:\\Scripts\\stamp.py", "C:\\Out"]])
        self.assertEqual((self.output / "a.pdf").read_bytes(), b"%PDF-1.4 first")
        added = [e for e in self.prefix.events() if e.event_id == 38]
        self.assertIn(["C:\\In", "a.pdf"], [e.strings for e in added])

        self.control("pause")
        (self.input / "b.pdf").write_bytes(b"%PDF-1.4 second")
        time.sleep(SETTLE_SECONDS * 2)
        self.assertEqual(len(self.jobs()), 1, self.jobs())
        self.assertFalse((self.output / "b.pdf").exists())


if __name__ == "__main__":
    unittest.main()
