#!/usr/bin/env python3
"""The watcher's job hand-over under Wine, measured against a plain named-pipe
round trip on the same machine, and its start-up.

  (a) PipePing.exe: a job-sized message (92 bytes) and a one-byte answer over a
      byte-mode pipe with plain blocking I/O, in round trips per second;
  (b) the real watcher handing FILES settled files to the test plug-in, which
      answers each job the moment it has read it: jobs per second once all the
      files have settled (they are written while the watcher is paused, then it
      is told to run);
  (c) the delay from each file's settle deadline (written + 2000 ms) to the
      moment the plug-in has its job, for files written one by one while the
      watcher runs: median and 99th percentile;
  (d) the idle watcher, nothing pending: how often its threads wake up (context
      switches of its Wine process) and how much CPU it uses in IDLE seconds;
  (e) bursts written while the watcher runs: a writer process of its own
      writes each burst into the input folder, as fast as it can or at a given
      rate, noting when each file was written; the files handed on, jobs per
      second from the first job to the last, and each file's delay from its
      settle deadline to its job: median and 99th percentile. They run last:
      a burst that overflows the folder's read leaves the folder unwatched;
  (f) start-up with 1, 100 and 1,000 hot folders whose input folders lie
      outside the root, each in a fresh prefix whose server is already up:
      the time from launching the watcher to its being ready, and the resident
      memory (VmRSS) of its Wine process then. Ready is when the watcher
      reports the change record of a file written into the root once its watch
      began (message 60): it reports records only from its loop's alertable
      wait, which it enters after every hot folder is loaded and watched.

Usage: bench/wine/watcher_bench.py BUILD_DIR [--files N] [--latency-files N] [--idle-seconds S]
                                   [--bursts N[@RATE],...] [--hot-folders N,...] [--startup-runs N]
BUILD_DIR is the windows build (build/windows). Needs Wine as scripts/setup.sh installs it.
"""
import argparse
import getpass
import json
import os
import shutil
import statistics
import subprocess
import sys
import time
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "tests" / "wine" / "e2e"))
import winetest  # noqa: E402
from winetest import EVENT_TRACE, Prefix, command_line, windows_path  # noqa: E402

SETTLE = 2.0
# The bursts' writer, a process of its own: writes the files named on its
# input into the folder of its first argument, one after the other, as fast as
# it can or at the rate (files per second) of its second, and prints the Unix
# time at which each was closed.
WRITER = """
import json, sys, time
folder, rate = sys.argv[1], float(sys.argv[2])
written = []
started = time.time()
for i, name in enumerate(sys.stdin.read().split()):
    if rate:
        time.sleep(max(0.0, started + i / rate - time.time()))
    with open(folder + "/" + name, "wb") as file:
        file.write(b"%PDF-1.4")
    written.append(time.time())
json.dump(written, sys.stdout)
"""


def percentile(values, fraction):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(round(fraction * (len(ordered) - 1))))]


def journal_jobs(journal):
    """(input path, received unix seconds) of every job line."""
    if not journal.exists():
        return []
    jobs = []
    for line in journal.read_text(encoding="utf-8").splitlines():
        fields = line.split("\t")
        if fields[0] == "job":
            received = next(f for f in fields if f.startswith("received "))
            jobs.append((fields[2], float(received.split()[1]) / 1000.0))
    return jobs


def wait_until(predicate, timeout, what):
    deadline = time.monotonic() + timeout
    while not predicate():
        if time.monotonic() > deadline:
            raise TimeoutError(what)
        time.sleep(0.02)


def ping_pong(prefix, build, count):
    ping = windows_path(build / "tools" / "PipePing" / "PipePing.exe")
    name = r"\\.\pipe\hf_bench_ping"
    server = subprocess.Popen(["wine", ping, "server", name], env=winetest.wine_environment(prefix.path),
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              start_new_session=True)
    server.stdout.readline()  # "listening"
    client = subprocess.run(["wine", ping, "client", name, str(count)], env=winetest.wine_environment(prefix.path),
                            stdin=subprocess.DEVNULL, capture_output=True, timeout=300, check=True)
    server.wait(timeout=60)
    for line in client.stdout.decode().splitlines():
        if line.startswith("round trips per second:"):
            return float(line.split(":")[1])
    raise RuntimeError(client.stdout)


def user_root(prefix):
    return prefix.path / "drive_c" / "users" / getpass.getuser() / "AppData" / "Local" / "Tarnwick Hot Folders"


def watcher_pid(prefix):
    """The pid of the watcher's Wine process in this prefix, or None."""
    wanted = f"WINEPREFIX={prefix.path}".encode()
    for proc in Path("/proc").iterdir():
        if proc.name.isdigit():
            try:
                if (b"TarnwickHotFolder.exe" in (proc / "cmdline").read_bytes()
                        and wanted in (proc / "environ").read_bytes().split(b"\0")):
                    return proc
            except OSError:
                pass
    return None


def activity(proc):
    """Context switches and CPU ticks over all threads of a process."""
    switches = ticks = 0
    for task in (proc / "task").iterdir():
        for line in (task / "status").read_text().splitlines():
            if line.startswith(("voluntary_ctxt_switches", "nonvoluntary_ctxt_switches")):
                switches += int(line.split()[1])
        fields = (task / "stat").read_text().rsplit(")", 1)[1].split()
        ticks += int(fields[11]) + int(fields[12])
    return switches, ticks


def memory(proc):
    """VmRSS of a process, in MB."""
    for line in (proc / "status").read_text().splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1]) / 1024.0
    raise RuntimeError(f"no VmRSS for {proc}")


def fresh_prefix(build, name):
    """A prefix cloned from the build's template, under build/wine/bench."""
    template = build / "wine" / "template"
    winetest.make_template(template)
    path = build / "wine" / "bench" / name
    if path.exists():
        winetest.stop_server(path)
        shutil.rmtree(path)
    return Prefix(winetest.clone_prefix(template, path))


def make_hot_folder(root, name, input_folder):
    (root / name).mkdir(parents=True)
    (root / name / "Desktop.ini").write_bytes(
        f"[Tarnwick]\r\nInputFolder={input_folder}\r\nOutputFolder=C:\\Out\r\nScript=C:\\Scripts\\x.py\r\n"
        .encode())


class Watcher:
    """TarnwickHotFolder.exe -currentuser in a prefix, with the test plug-in
    in its benchmark mode standing in for Acrobat."""

    def __init__(self, build, prefix):
        self.build = build
        self.prefix = prefix
        self.journal = prefix.path / "drive_c" / "journal.txt"
        prefix.start()
        prefix.wine("reg", "add", r"HKLM\Software\Tarnwick\AcrobatPath", "/f", "/ve", "/d",
                    windows_path(build / "tools" / "TestPlugIn" / "TestPlugIn.exe"))

    def launch(self):
        """Starts the watcher and returns the moment it was launched."""
        line = command_line(self.prefix.executable, "-currentuser")
        env = winetest.wine_environment(self.prefix.path, EVENT_TRACE, {
            "HF_LAUNCH_COMMAND_LINE": line, "TARNWICK_TEST_PLUGIN": r"-journal:C:\journal.txt -bench:1"})
        self.trace = open(self.prefix.trace_path, "ab")
        self.trace_start = self.prefix.trace_path.stat().st_size
        launched = time.monotonic()
        self.process = subprocess.Popen(["wine", self.prefix.launcher], env=env, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=self.trace, start_new_session=True)
        return launched

    def wait_for_event(self, predicate, timeout=120):
        """Polls the trace every 5 ms until an event satisfies `predicate`;
        returns the moment it was seen."""
        deadline = time.monotonic() + timeout
        while not any(predicate(event) for event in self.prefix.events(self.trace_start)):
            if time.monotonic() > deadline:
                raise TimeoutError("the event never came")
            time.sleep(0.005)
        return time.monotonic()

    def control(self, command):
        tool = windows_path(self.build / "tools" / "ControlTool" / "HotFolderControl.exe")
        run = self.prefix.run(tool, command)
        if run.exit_code != 0:
            raise RuntimeError(f"HotFolderControl {command} failed")

    def wait_for_jobs(self, count, stalled=10):
        """Waits until the journal holds `count` jobs, or none has come for
        `stalled` seconds; returns the jobs."""
        jobs = journal_jobs(self.journal)
        progress = time.monotonic()
        while len(jobs) < count and time.monotonic() - progress < stalled:
            time.sleep(0.05)
            before, jobs = len(jobs), journal_jobs(self.journal)
            if len(jobs) > before:
                progress = time.monotonic()
        return jobs

    def stop(self):
        self.prefix.stop()
        self.process.wait(timeout=60)
        self.trace.close()


class Bench:
    """One watcher with one hot folder on C:\\In, for (b) to (e)."""

    def __init__(self, build):
        self.prefix = fresh_prefix(build, "watcher")
        drive_c = self.prefix.path / "drive_c"
        self.input = drive_c / "In"
        self.input.mkdir()
        (drive_c / "Out").mkdir()
        make_hot_folder(user_root(self.prefix), "Bench", r"C:\In")
        self.watcher = Watcher(build, self.prefix)
        self.journal = self.watcher.journal
        self.watcher.launch()
        self.watcher.wait_for_event(lambda event: event.event_id == 60)

    def drop(self, name):
        (self.input / name).write_bytes(b"%PDF-1.4")
        return time.time()

    def throughput(self, files):
        self.watcher.control("run")
        self.drop("warm-up.pdf")  # the first job starts the plug-in
        wait_until(lambda: len(journal_jobs(self.journal)) == 1, 60, "the warm-up job never came")
        self.watcher.control("pause")
        for i in range(files):
            self.drop(f"t{i:05}.pdf")
        time.sleep(SETTLE + 1.0)
        self.watcher.control("run")
        wait_until(lambda: len(journal_jobs(self.journal)) == files + 1, 300, "not every job came")
        received = [at for _, at in journal_jobs(self.journal)[1:]]
        return (files - 1) / (received[-1] - received[0])

    def burst(self, files, rate):
        """Has the writer process write `files` files while the watcher runs,
        at `rate` files per second (0: as fast as it can). Returns the
        writer's seconds, the jobs that came for the burst, and the error
        code of a read of the input folder that failed meanwhile (message
        37), if any."""
        trace_start = self.prefix.trace_path.stat().st_size
        done = len(journal_jobs(self.journal))
        names = [f"burst{files}-{rate}-{i:05}.pdf" for i in range(files)]
        writer = subprocess.run([sys.executable, "-c", WRITER, str(self.input), str(rate)], input="\n".join(names),
                                capture_output=True, text=True, timeout=600, check=True)
        stamps = json.loads(writer.stdout)
        written = {"C:\\In\\" + name: at for name, at in zip(names, stamps)}
        jobs = [(path, at, at - written[path] - SETTLE) for path, at in self.watcher.wait_for_jobs(done + files)[done:]]
        failed = [event.strings[1] for event in self.prefix.events(trace_start) if event.event_id == 37]
        return stamps[-1] - stamps[0], jobs, failed[0] if failed else None

    def latency(self, files, spacing):
        done = len(journal_jobs(self.journal))
        written = {}
        for i in range(files):
            name = f"l{i:05}.pdf"
            written["C:\\In\\" + name] = self.drop(name)
            time.sleep(spacing)
        wait_until(lambda: len(journal_jobs(self.journal)) == done + files, 120, "not every job came")
        return [(at - written[path] - SETTLE) * 1000.0 for path, at in journal_jobs(self.journal)[done:]]

    def idle(self, seconds):
        time.sleep(SETTLE + 1.0)  # nothing pending any more
        proc = watcher_pid(self.prefix)
        if proc is None:
            return None
        before = activity(proc)
        time.sleep(seconds)
        after = activity(proc)
        return after[0] - before[0], after[1] - before[1]

    def stop(self):
        self.watcher.stop()


def startup(build, hot_folders, runs):
    """Launch to ready, in seconds, and the resident memory then (VmRSS, MB)
    of a watcher with this many hot folders, each on an input folder of its
    own outside the root: the medians of `runs` runs, each with a freshly
    started server."""
    prefix = fresh_prefix(build, f"startup-{hot_folders}")
    root = user_root(prefix)
    for i in range(hot_folders):
        (prefix.path / "drive_c" / "Inputs" / f"In{i:04}").mkdir(parents=True)
        make_hot_folder(root, f"Hot{i:04}", f"C:\\Inputs\\In{i:04}")
    seconds, rss = [], []
    for _ in range(runs):
        (root / "ready.txt").unlink(missing_ok=True)
        watcher = Watcher(build, prefix)
        try:
            launched = watcher.launch()
            watcher.wait_for_event(lambda event: event.event_id == 60)
            (root / "ready.txt").write_bytes(b"")
            ready = watcher.wait_for_event(
                lambda event: event.event_id == 38 and event.strings[1:] == ["ready.txt"])
            seconds.append(ready - launched)
            rss.append(memory(watcher_pid(prefix)))
            unwatched = sum(1 for event in prefix.events(watcher.trace_start) if event.event_id in (35, 36))
            if unwatched:
                raise RuntimeError(f"{unwatched} input folder(s) could not be watched")
        finally:
            watcher.stop()
    return statistics.median(seconds), statistics.median(rss)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("build", type=Path)
    parser.add_argument("--files", type=int, default=1000)
    # FILES or FILES@RATE: a burst of FILES files at RATE files per second.
    parser.add_argument("--bursts", default="1000,10000@4000,10000")
    parser.add_argument("--latency-files", type=int, default=200)
    parser.add_argument("--ping-count", type=int, default=5000)
    parser.add_argument("--idle-seconds", type=int, default=60)
    parser.add_argument("--hot-folders", default="1,100,1000")
    parser.add_argument("--startup-runs", type=int, default=3)
    args = parser.parse_args()
    build = args.build.resolve()
    os.environ.setdefault("HF_EXECUTABLE", str(build / "HotFolder" / "TarnwickHotFolder.exe"))
    os.environ.setdefault("HF_LAUNCHER", str(next(build.rglob("hf_launch.exe"))))

    bench = Bench(build)
    try:
        # The machine's other load makes single runs noisy: the median of three.
        round_trips = statistics.median(ping_pong(bench.prefix, build, args.ping_count) for _ in range(3))
        print(f"(a) pipe round trips per second:          {round_trips:8.0f}")
        jobs = bench.throughput(args.files)
        print(f"(b) watcher jobs per second ({args.files} files):  {jobs:8.0f}   "
              f"({jobs / round_trips:.0%} of (a); goal at least 50%)")
        delays = bench.latency(args.latency_files, 0.05)
        print(f"(c) settle deadline to job, ms:           median {statistics.median(delays):.1f}, "
              f"p99 {percentile(delays, 0.99):.1f}, max {max(delays):.1f} (goal p99 within 10 ms)")
        idle = bench.idle(args.idle_seconds)
        if idle is None:
            print("(d) idle: the watcher's Wine process was not found")
        else:
            print(f"(d) idle {args.idle_seconds} s: {idle[0]} context switches, {idle[1]} CPU ticks "
                  "over all threads of the watcher's Wine process")
        for burst in args.bursts.split(","):
            files, _, rate = burst.partition("@")
            files, rate = int(files), int(rate or 0)
            writing, jobs, failed = bench.burst(files, rate)
            pace = f"at {rate}/s" if rate else "as fast as it can"
            print(f"(e) {files} files written {pace} ({writing:.2f} s): {len({job[0] for job in jobs})} handed on")
            if len(jobs) > 1:
                delays = [job[2] * 1000.0 for job in jobs]
                print(f"      {(len(jobs) - 1) / (jobs[-1][1] - jobs[0][1]):.0f} jobs per second; settle deadline "
                      f"to job, ms: median {statistics.median(delays):.0f}, p99 {percentile(delays, 0.99):.0f}, "
                      f"max {max(delays):.0f}")
            if failed:
                print(f"      the input folder's read failed with {failed} (message 37): it is watched no more")
                break
    finally:
        bench.stop()
    for hot_folders in (int(n) for n in args.hot_folders.split(",") if n):
        seconds, rss = startup(build, hot_folders, args.startup_runs)
        print(f"(f) {hot_folders:4} hot folder(s): launch to ready {seconds:.2f} s, VmRSS {rss:.1f} MB "
              f"(medians of {args.startup_runs}; goal at 1000: 2 s, 40 MB)")


if __name__ == "__main__":
    main()
