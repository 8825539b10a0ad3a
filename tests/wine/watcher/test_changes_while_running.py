#!/usr/bin/env python3
"""What a running TarnwickHotFolder.exe -currentuser makes of changes that
other programs make under Wine: a Linux process writes straight into the
prefix's drive C, as a copy from a network share arrives, while the watcher
has been told to run. The test plug-in stands in for Acrobat and journals
every job it gets.

Wine lays the change records of one directory read end to end, so most of them
start off a 4-byte boundary, and it queues a burst's records in its server and
hands them over many to a read. The burst's and the rename's input folders
lie outside the root, since a recursive watch under Wine does not see folders
that existed before it began; the new hot folder's lies below the root and is
made while the watcher runs."""
import contextlib
import getpass
import os
import random
import subprocess
import time
import unittest
from pathlib import Path

from winetest import Prefix, windows_path

SETTLE_SECONDS = 2.0
BURST_FILES = 1000
# The settle time, the test plug-in's start (a retry after 2 s) and some slack.
STALLED_SECONDS = 10


def tool(*parts):
    return Path(os.environ["HF_BUILD_DIR"], "tools", *parts)


def desktop_ini(input_folder, output_folder, script):
    return (f"[Tarnwick]\r\nInputFolder={input_folder}\r\nOutputFolder={output_folder}\r\n"
            f"Script={script}\r\n").encode()


class ChangesWhileRunning(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.prefix = Prefix.for_test("changes_while_running")
        drive_c = cls.prefix.path / "drive_c"
        cls.shared = drive_c / "Shared"
        cls.renames = drive_c / "Renames"
        cls.journal = drive_c / "journal.txt"
        cls.root = drive_c / "users" / getpass.getuser() / "AppData" / "Local" / "Tarnwick Hot Folders"
        cls.root_path = f"C:\\users\\{getpass.getuser()}\\AppData\\Local\\Tarnwick Hot Folders"
        cls.shared.mkdir()
        cls.renames.mkdir()
        # A user's file that lay in the folder before the watcher started.
        (cls.renames / "a.txt").write_bytes(b"renamed while the watcher runs")
        # Alpha and Beta take one input folder; Desktop.ini path order puts Alpha first.
        for name, folder in (("Beta", r"C:\Shared"), ("Alpha", r"C:\Shared"), ("Gamma", r"C:\Renames")):
            (cls.root / name).mkdir(parents=True)
            (cls.root / name / "Desktop.ini").write_bytes(
                desktop_ini(folder, "C:\\Out" + name, f"C:\\Scripts\\{name.lower()}.py"))
        cls.prefix.start()
        cls.prefix.reg_add(r"HKLM\Software\Tarnwick\AcrobatPath", None,
                           windows_path(tool("TestPlugIn", "TestPlugIn.exe")))
        cls.watcher = cls.prefix.start_in_background(
            cls.prefix.executable, "-currentuser",
            extra={"TARNWICK_TEST_PLUGIN": r"-journal:C:\journal.txt -lifetime:280000"})
        cls.prefix.wait_for_events(lambda events: any(e.event_id == 60 for e in events), timeout=60)
        run = cls.prefix.run(windows_path(tool("ControlTool", "HotFolderControl.exe")), "run")
        assert run.exit_code == 0, run.events

    @classmethod
    def tearDownClass(cls):
        cls.prefix.stop()
        cls.watcher.end()

    def jobs_from(self, folder):
        """(input file, script) of every job, in the order the plug-in got
        them, whose input lies in `folder` (a Windows path)."""
        if not self.journal.exists():
            return []
        jobs = []
        for line in self.journal.read_text(encoding="utf-8").splitlines():
            fields = line.split("\t")
            if fields[0] == "job" and fields[2].rsplit("\\", 1)[0] == folder:
                jobs.append((fields[2], fields[3]))
        return jobs

    def wait_for_jobs(self, folder, count):
        """Waits for `count` jobs from `folder` and returns them; fails once
        no further job has come for STALLED_SECONDS."""
        jobs = self.jobs_from(folder)
        last_progress = time.monotonic()
        while len(jobs) < count:
            if time.monotonic() - last_progress > STALLED_SECONDS:
                self.fail(f"{count} job(s) from {folder} expected, got {len(jobs)}")
            time.sleep(0.1)
            before, jobs = len(jobs), self.jobs_from(folder)
            if len(jobs) > before:
                last_progress = time.monotonic()
        return jobs

    def test_a_burst_reaches_both_hot_folders_of_its_folder_once_each_in_the_order_written(self):
        # A copy from a share: cp writes the files one after the other in the
        # order of its arguments, faster than the watcher takes the records.
        share = self.prefix.path / "share"
        share.mkdir()
        names = [f"scan{i}.pdf" for i in range(BURST_FILES)]  # names of several lengths
        random.Random(4242).shuffle(names)  # so that the order written is not the order of names
        for name in names:
            (share / name).write_bytes(b"%PDF-1.4 " + name.encode())
        subprocess.run(["cp", "-t", str(self.shared), *names], cwd=share, check=True, timeout=60)
        expected = [(f"C:\\Shared\\{name}", f"C:\\Scripts\\{hot_folder}.py")
                    for name in names for hot_folder in ("alpha", "beta")]
        self.wait_for_jobs(r"C:\Shared", len(expected))
        time.sleep(SETTLE_SECONDS + 1)  # long enough for one more job, were there one
        self.assertEqual(self.jobs_from(r"C:\Shared"), expected)

    def test_a_renamed_file_is_handed_on_under_its_new_name_only(self):
        os.rename(self.renames / "a.txt", self.renames / "b.txt")
        # A download's way: written under a temporary name, renamed at once.
        (self.renames / "c.part").write_bytes(b"%PDF-1.4 downloaded")
        os.rename(self.renames / "c.part", self.renames / "c.pdf")
        # Were an old name still pending it would have been handed on before
        # the new one, which was touched after it.
        self.assertEqual(self.wait_for_jobs(r"C:\Renames", 2),
                         [(r"C:\Renames\b.txt", r"C:\Scripts\gamma.py"), (r"C:\Renames\c.pdf", r"C:\Scripts\gamma.py")])
        renames = [(e.event_id, e.strings) for e in self.prefix.events() if e.event_id in (40, 41)]
        self.assertIn((40, [r"C:\Renames", "a.txt"]), renames)
        self.assertIn((41, [r"C:\Renames", "b.txt"]), renames)

    def write_until_reported(self, path, data):
        """Writes a file into a folder below the root that was made a moment
        ago, and again until the watcher reports a change of it. Wine watches
        a folder made below a watched one only once its server has seen the
        folder made; a write in the instant before gives no change record."""
        name = str(path.relative_to(self.root)).replace("/", "\\")
        deadline = time.monotonic() + 30
        while time.monotonic() < deadline:
            start = self.prefix.trace_path.stat().st_size
            path.write_bytes(data)
            with contextlib.suppress(TimeoutError):
                self.prefix.wait_for_events(
                    lambda events: any(e.event_id in (38, 42) and e.strings == [self.root_path, name] for e in events),
                    timeout=0.5, start=start)
                return
        self.fail(f"no change of {name} was reported")

    def test_a_hot_folder_made_while_running_takes_files_from_its_input_folder_made_afterwards(self):
        hot_folder = self.root / "Delta"
        hot_folder.mkdir()
        self.write_until_reported(hot_folder / "Desktop.ini",
                                  desktop_ini(r".\In", r"C:\OutDelta", r"C:\Scripts\delta.py"))
        (hot_folder / "In").mkdir()
        self.write_until_reported(hot_folder / "In" / "x.pdf", b"%PDF-1.4 new hot folder")
        input_folder = self.root_path + r"\Delta\In"
        self.assertEqual(self.wait_for_jobs(input_folder, 1),
                         [(input_folder + r"\x.pdf", r"C:\Scripts\delta.py")])


if __name__ == "__main__":
    unittest.main()
