#!/usr/bin/env python3
"""TarnwickHotFolder.exe -currentuser run under Wine with no service, switched
by HotFolderControl.exe, and what it makes of changes Linux processes make in
drive C while it runs. Wine lays a read's change records end to end, mostly off
a 4-byte boundary. Input folders made before the watcher starts lie outside the
root (a recursive watch under Wine misses folders older than itself)."""
import getpass
import os
import random
import subprocess
import time
import unittest

from winetest import CATEGORY_USER, ERROR, SETTLE_SECONDS, PrefixStory, has_event, poll


def scripted(jobs):  # (input, script) of each job
    return [tuple(job[1:3]) for job in jobs]


class WatcherRuns(PrefixStory):
    prefix_name = "watcher_runs"
    hot_folder = True

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        drive_c = cls.prefix.path / "drive_c"
        cls.shared, cls.renames = drive_c / "Shared", drive_c / "Renames"
        for folder in (cls.shared, cls.renames):
            folder.mkdir()
        # A user's file that lay in the folder before the watcher started.
        (cls.renames / "a.txt").write_bytes(b"renamed while the watcher runs")
        # Alpha and Beta take one input folder; Desktop.ini path order puts Alpha first.
        for name, folder in (("Beta", r"C:\Shared"), ("Alpha", r"C:\Shared"), ("Gamma", r"C:\Renames")):
            ini, text = cls.make_hot_folder(name, folder)
            ini.write_bytes(text)
        cls.root = rf"C:\users\{getpass.getuser()}\AppData\Local\Tarnwick Hot Folders"
        cls.watcher = cls.prefix.start_watcher(plug_in="-lifetime:280000")

    @classmethod
    def make_hot_folder(cls, name, input_folder):
        return cls.prefix.hot_folder(name, input_folder, "C:\\Out" + name, f"C:\\Scripts\\{name.lower()}.py")

    def test_1_a_running_watcher_hands_a_settled_file_on_once(self):
        # Started by hand with no service registered: the announcement fails,
        # and the watcher stays stopped until a control client says run.
        announced = [e for e in self.prefix.events() if e.event_id == 52]
        self.assertEqual([(e.type, e.category) for e in announced], [(ERROR, CATEGORY_USER)])
        self.assertRegex(announced[0].strings[0], r"^0x8[0-9a-f]{7}$")

        self.assertEqual(self.prefix.control("run")[0], 0)
        self.prefix.drop("a.pdf")
        written = time.monotonic()
        self.prefix.wait_for_jobs(1, stall=30)
        self.assertGreaterEqual(time.monotonic() - written, SETTLE_SECONDS)
        self.assertEqual([job[1:4] for job in self.prefix.settled_jobs()],
                         [["C:\\In\\a.pdf", "C:\\Scripts\\stamp.py", "C:\\Out"]])
        self.assertEqual((self.prefix.path / "drive_c" / "Out" / "a.pdf").read_bytes(), b"%PDF-1.4 a.pdf")
        self.assertIn(["C:\\In", "a.pdf"], self.prefix.since(0, 38))

    def test_2_a_burst_reaches_both_hot_folders_of_its_folder_once_each_in_the_order_written(self):
        # A copy from a share: cp writes the files one after the other in the
        # order of its arguments, faster than the watcher takes the records.
        share = self.prefix.path / "share"
        share.mkdir()
        names = [f"scan{i}.pdf" for i in range(1000)]  # names of several lengths
        random.Random(4242).shuffle(names)  # so that the order written is not the order of names
        for name in names:
            (share / name).write_bytes(b"%PDF-1.4 " + name.encode())
        subprocess.run(["cp", "-t", str(self.shared), *names], cwd=share, check=True, timeout=60)
        expected = [(f"C:\\Shared\\{name}", f"C:\\Scripts\\{hot_folder}.py")
                    for name in names for hot_folder in ("alpha", "beta")]
        self.assertEqual(scripted(self.prefix.settled_jobs(len(expected), r"C:\Shared")), expected)
        # Not as service, the plug-in answering 1 is kept: one started it (by its bare file name), numbering every job.
        self.assertEqual([row[1] for row in self.prefix.journal("started")], ["TestPlugIn.exe"])
        self.assertEqual([int(job[0]) for job in self.prefix.journal()], list(range(1, len(expected) + 2)))

    def test_3_a_renamed_file_is_handed_on_under_its_new_name_only(self):
        os.rename(self.renames / "a.txt", self.renames / "b.txt")
        # A download's way: written under a temporary name, renamed at once.
        (self.renames / "c.part").write_bytes(b"%PDF-1.4 downloaded")
        os.rename(self.renames / "c.part", self.renames / "c.pdf")
        # Were an old name still pending it would have been handed on before
        # the new one, which was touched after it.
        self.assertEqual(scripted(self.prefix.wait_for_jobs(2, r"C:\Renames")),
                         [(r"C:\Renames\b.txt", r"C:\Scripts\gamma.py"), (r"C:\Renames\c.pdf", r"C:\Scripts\gamma.py")])
        self.assertIn([r"C:\Renames", "a.txt"], self.prefix.since(0, 40))
        self.assertIn([r"C:\Renames", "b.txt"], self.prefix.since(0, 41))

    def write_until_reported(self, path, data):
        """Writes a file into a folder just made below the root, again until the
        watcher reports it: Wine watches the folder only once its server has
        seen it made, and a write in the instant before gives no record."""
        name = str(path.relative_to(self.prefix.root())).replace("/", "\\")

        def written_and_reported():
            start = self.prefix.trace_size()
            path.write_bytes(data)
            return poll(lambda: [self.root, name] in self.prefix.since(start, 38, 42), bool, 0.5)
        self.assertTrue(poll(written_and_reported, bool, 30, interval=0), f"no change of {name} was reported")

    def test_4_a_hot_folder_made_while_running_takes_files_from_its_input_folder_made_afterwards(self):
        self.write_until_reported(*self.make_hot_folder("Delta", r".\In"))
        (self.prefix.root() / "Delta" / "In").mkdir()
        self.write_until_reported(self.prefix.root() / "Delta" / "In" / "x.pdf", b"%PDF-1.4 new hot folder")
        input_folder = self.root + r"\Delta\In"
        self.assertEqual(scripted(self.prefix.wait_for_jobs(1, input_folder)),
                         [(input_folder + r"\x.pdf", r"C:\Scripts\delta.py")])

    def test_5_a_hot_folder_removed_while_running_ends_the_watch_of_its_input_folder(self):
        # Its input folder lies outside the root, so it has a watch of its own,
        # which a temporary file wakes to end and which deletes itself on close.
        input_folder = self.prefix.path / "drive_c" / "Epsilon"
        input_folder.mkdir()
        ini, text = self.make_hot_folder("Epsilon", r"C:\Epsilon")
        self.write_until_reported(ini, text)
        # Its watch begins once the watcher has read the Desktop.ini, which may
        # be after the report of its change: a file written before goes unseen.
        written = []
        while not self.prefix.journal(folder=r"C:\Epsilon") and len(written) < 3:
            written.append(f"y{len(written)}.pdf")
            (input_folder / written[-1]).write_bytes(b"%PDF-1.4 before")
            self.prefix.wait_for_jobs(1, r"C:\Epsilon")
        handed_on = self.prefix.journal(folder=r"C:\Epsilon")
        self.assertEqual(scripted(handed_on), [(r"C:\Epsilon" "\\" + written[-1], r"C:\Scripts\epsilon.py")])

        start = self.prefix.trace_size()
        ini.unlink()
        self.prefix.wait_for_events(has_event(39, [self.root, r"Epsilon\Desktop.ini"]), start=start)
        left = poll(lambda: sorted(os.listdir(input_folder)), lambda names: names == written, 5)
        self.assertEqual(left, written, "the wake-up file deleted itself on close")
        (input_folder / "z.pdf").write_bytes(b"%PDF-1.4 after")
        self.assertEqual(self.prefix.settled_jobs(folder=r"C:\Epsilon"), handed_on)

    def test_6_a_paused_watcher_hands_nothing_on(self):
        self.assertEqual(self.prefix.control("pause")[0], 0)
        self.prefix.drop("b.pdf")
        self.assertEqual(scripted(self.prefix.settled_jobs(folder=r"C:\In")),
                         [(r"C:\In\a.pdf", r"C:\Scripts\stamp.py")])


if __name__ == "__main__":
    unittest.main()
