#!/usr/bin/env python3
"""The watcher's job hand-over under Wine, measured against a plain named-pipe
round trip on the same machine.

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
      switches of its Wine process) and how much CPU it uses in IDLE seconds.

Usage: bench/wine/watcher_bench.py BUILD_DIR [--files N] [--latency-files N] [--idle-seconds S]
BUILD_DIR is the windows build (build/windows). Needs Wine as scripts/setup.sh installs it.
"""
import argparse
import getpass
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
    server = subprocess.Popen(["wine", ping, "server", name], env=prefix.environment(), stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, start_new_session=True)
    server.stdout.readline()  # "listening"
    client = subprocess.run(["wine", ping, "client", name, str(count)], env=prefix.environment(),
                            stdin=subprocess.DEVNULL, capture_output=True, timeout=300, check=True)
    server.wait(timeout=60)
    for line in client.stdout.decode().splitlines():
        if line.startswith("round trips per second:"):
            return float(line.split(":")[1])
    raise RuntimeError(client.stdout)


def watcher_pids():
    pids = []
    for proc in Path("/proc").iterdir():
        if proc.name.isdigit():
            try:
                if b"TarnwickHotFolder.exe" in (proc / "cmdline").read_bytes():
                    pids.append(proc)
            except OSError:
                pass
    return pids


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


class Bench:
    def __init__(self, build):
        self.build = build
        os.environ.setdefault("HF_EXECUTABLE", str(build / "HotFolder" / "TarnwickHotFolder.exe"))
        launcher = next(build.rglob("hf_launch.exe"))
        os.environ.setdefault("HF_LAUNCHER", str(launcher))
        template = build / "wine" / "template"
        winetest.make_template(template)
        path = build / "wine" / "bench" / "watcher"
        if path.exists():
            winetest.stop_server(path)
            shutil.rmtree(path)
        self.prefix = Prefix.create(path, template)
        drive_c = self.prefix.path / "drive_c"
        self.input = drive_c / "In"
        self.journal = drive_c / "journal.txt"
        self.input.mkdir()
        (drive_c / "Out").mkdir()
        hot_folder = drive_c / "users" / getpass.getuser() / "AppData" / "Local" / "Tarnwick Hot Folders" / "Bench"
        hot_folder.mkdir(parents=True)
        (hot_folder / "Desktop.ini").write_bytes(
            b"[Tarnwick]\r\nInputFolder=C:\\In\r\nOutputFolder=C:\\Out\r\nScript=C:\\Scripts\\x.py\r\n")

    def start_watcher(self):
        self.prefix.start()
        self.prefix.reg_add(r"HKLM\Software\Tarnwick\AcrobatPath", None,
                            windows_path(self.build / "tools" / "TestPlugIn" / "TestPlugIn.exe"))
        line = command_line(self.prefix.executable, "-currentuser")
        env = self.prefix.environment(EVENT_TRACE, {"HF_LAUNCH_COMMAND_LINE": line,
                                                    "TARNWICK_TEST_PLUGIN": r"-journal:C:\journal.txt -bench:1"})
        self.trace = open(self.prefix.trace_path, "ab")
        self.watcher = subprocess.Popen(["wine", self.prefix.launcher], env=env, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=self.trace, start_new_session=True)
        self.prefix.wait_for_events(lambda events: any(e.event_id == 60 for e in events), timeout=60)

    def control(self, command):
        tool = windows_path(self.build / "tools" / "ControlTool" / "HotFolderControl.exe")
        run = self.prefix.run(tool, command)
        if run.exit_code != 0:
            raise RuntimeError(f"HotFolderControl {command} failed")

    def drop(self, name):
        (self.input / name).write_bytes(b"%PDF-1.4")
        return time.time()

    def throughput(self, files):
        self.control("run")
        self.drop("warm-up.pdf")  # the first job starts the plug-in
        wait_until(lambda: len(journal_jobs(self.journal)) == 1, 60, "the warm-up job never came")
        self.control("pause")
        for i in range(files):
            self.drop(f"t{i:05}.pdf")
        time.sleep(SETTLE + 1.0)
        self.control("run")
        wait_until(lambda: len(journal_jobs(self.journal)) == files + 1, 300, "not every job came")
        received = [at for _, at in journal_jobs(self.journal)[1:]]
        return (files - 1) / (received[-1] - received[0])

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
        procs = watcher_pids()
        if len(procs) != 1:
            return None
        before = activity(procs[0])
        time.sleep(seconds)
        after = activity(procs[0])
        return after[0] - before[0], after[1] - before[1]

    def stop(self):
        self.prefix.stop()
        self.watcher.wait(timeout=60)
        self.trace.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("build", type=Path)
    parser.add_argument("--files", type=int, default=1000)
    parser.add_argument("--latency-files", type=int, default=200)
    parser.add_argument("--ping-count", type=int, default=5000)
    parser.add_argument("--idle-seconds", type=int, default=60)
    args = parser.parse_args()

    bench = Bench(args.build.resolve())
    bench.start_watcher()
    try:
        # The machine's other load makes single runs noisy: the median of three.
        round_trips = statistics.median(ping_pong(bench.prefix, bench.build, args.ping_count) for _ in range(3))
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
    finally:
        bench.stop()


if __name__ == "__main__":
    main()
