#!/usr/bin/env python3
"""Runs the windows build's programs under Wine, each end-to-end test in a
prefix cloned from a template made once per build, and reads back their event
reports from the trace (Wine's event log keeps nothing). Every prefix has its
own persistent server, booted with our output detached: Wine's services die
soon after the last foreground process, and services booted from inside a test
would hold the test's output pipes, which CTest then waits on for ever.

    winetest.py template DIR                  make the template prefix unless it exists
    winetest.py ready PREFIX --template DIR   clone, start and boot a prefix unless it is running
    winetest.py run PREFIX --template DIR [NAME=VALUE...] PROGRAM [ARGUMENT...]
                                              ready, then run PROGRAM there with NAME=VALUE (CTest's emulator
                                              for the GoogleTest suites)
    winetest.py stop PREFIX...                stop the Wine servers of these prefixes
"""
import collections
import contextlib
import fcntl
import getpass
import itertools
import os
import re
import shutil
import subprocess
import sys
import time
import unittest
from pathlib import Path

EVENT_TRACE = "-all,+eventlog,fixme+advapi"
REWRITTEN_FILES = ("system.reg", "user.reg", "userdef.reg", "drive_c/windows/win.ini", "drive_c/windows/system.ini")
TEMPLATE_MARK = ".hf-template"
BOOTED_MARK = ".hf-booted"
REGISTRY_ROOTS = {"HKCR": "HKEY_CLASSES_ROOT", "HKCU": "HKEY_CURRENT_USER", "HKLM": "HKEY_LOCAL_MACHINE"}
SERVER_ALREADY_RUNNING = 2  # wineserver -p's exit code when the prefix's server runs
SETTLE_SECONDS = 2.0  # how long a file must stay untouched before it is handed on
STALLED_SECONDS = 10  # the settle time, the test plug-in's start (a retry after 2 s) and some slack
SUCCESS, ERROR, INFORMATION = 0, 1, 4  # event types
CATEGORY_SERVICE, CATEGORY_USER = 1, 2
USERS_KEY = r"HKLM\SOFTWARE\Orvanta\Tarnwick\4\HotFolderUsers"
USER = "OFFICE\\clerk"


def wine_environment(prefix, debug="-all", extra=None):  # no display, Mono or Gecko; UTF-8
    env = {name: value for name, value in os.environ.items() if name not in ("DISPLAY", "WAYLAND_DISPLAY")}
    env.update(WINEPREFIX=str(Path(prefix).resolve()), WINEDEBUG=debug, WINEDLLOVERRIDES="mscoree,mshtml=",
               LC_ALL="C.UTF-8", **(extra or {}))
    return env


def run_detached(command, env, timeout, stderr=subprocess.DEVNULL):  # holding none of our pipes
    return subprocess.run(command, env=env, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=stderr,
                          timeout=timeout, start_new_session=True, close_fds=True, check=False).returncode


@contextlib.contextmanager
def locked(path):  # so that concurrent tests make `path` once
    lock_path = path.with_name(path.name + ".lock")
    lock_path.parent.mkdir(parents=True, exist_ok=True)
    with open(lock_path, "a") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def make_template(path):
    path = Path(path).resolve()
    with locked(path):
        if not (path / TEMPLATE_MARK).exists():
            shutil.rmtree(path, ignore_errors=True)  # left half-made by an interrupted run
            run_detached(["wineboot", "-i"], wine_environment(path), 300)
            stop_server(path)  # which writes the registry files
            if not (path / "system.reg").exists():
                raise RuntimeError(f"wineboot -i made no prefix at {path}")
            (path / TEMPLATE_MARK).touch()
    return path


def clone_prefix(template, path):
    """A fresh clone of the template: hard links, but copies of the files Wine rewrites in place."""
    template, path = make_template(template), Path(path).resolve()
    stop_server(path)
    shutil.rmtree(path, ignore_errors=True)
    path.mkdir(parents=True)
    subprocess.run(["cp", "-al", f"{template}/.", f"{path}/"], check=True)
    (path / TEMPLATE_MARK).unlink()
    for name in REWRITTEN_FILES:
        (path / name).unlink()
        shutil.copy2(template / name, path / name)
    return path


def start_server(path):  # and boots the prefix, tracing to its trace file
    if run_detached(["wineserver", "-p"], wine_environment(path), 30) == SERVER_ALREADY_RUNNING and \
            (path / BOOTED_MARK).exists():
        return
    with open(path / Prefix.TRACE_FILE, "ab") as trace:
        run_detached(["wineboot"], wine_environment(path, EVENT_TRACE), 120, stderr=trace)
    (path / BOOTED_MARK).touch()


def stop_server(path):  # and everything running in the prefix
    if path.exists():
        for option in ("-k", "-w"):
            run_detached(["wineserver", option], wine_environment(path), 60)
        (path / BOOTED_MARK).unlink(missing_ok=True)


def poll(read, done, timeout, interval=0.1):
    """read() again until done(what it read) or `timeout` s have passed; the last read."""
    deadline = time.monotonic() + timeout
    while not done(value := read()) and time.monotonic() < deadline:
        time.sleep(interval)
    return value


def windows_path(unix_path):  # through Wine's Z: drive, which maps the Unix root
    return "Z:" + str(Path(unix_path).resolve()).replace("/", "\\")


def command_line(program, *switches):  # the program path in quotes; switches hold no blank or quote
    return " ".join([f'"{program}"', *switches])


Event = collections.namedtuple("Event", "type category event_id strings")
Run = collections.namedtuple("Run", "command_line exit_code events")


_REPORT = re.compile(r"^(?:[0-9a-f]+:)?([0-9a-f]+):fixme:advapi:ReportEventW "
                     r"\([0-9A-Fa-f]+,0x([0-9a-f]+),0x([0-9a-f]+),0x([0-9a-f]+),")
_STRING_LINE = re.compile(r'^(?:[0-9a-f]+:)?([0-9a-f]+):(?:trace|warn|err):eventlog:ReportEventW L"(.*)"(\.\.\.)?$')
_ESCAPE = re.compile(r'\\([nrt"\\]|[0-9a-f]{4})')


def parse_events(trace_text):
    """The event reports in a trace, in order. A string is traced line by line
    (empty strings left out, long ones cut with "..."), so a line ending in a
    line feed is joined with the report's next line."""
    events = []
    open_reports = {}  # by thread
    for line in trace_text.splitlines():
        report, string_line = _REPORT.match(line), _STRING_LINE.match(line)
        if report:
            thread, *numbers = report.groups()
            open_reports[thread] = Event(*(int(n, 16) for n in numbers), [])
            events.append(open_reports[thread])
        elif string_line and string_line.group(1) in open_reports:
            strings = open_reports[string_line.group(1)].strings
            text = _ESCAPE.sub(lambda m: {"n": "\n", "r": "\r", "t": "\t"}.get(m.group(1), m.group(1))
                               if len(m.group(1)) == 1 else chr(int(m.group(1), 16)), string_line.group(2))
            text += string_line.group(3) or ""
            if strings and strings[-1].endswith("\n"):
                strings[-1] += text
            else:
                strings.append(text)
    return events


class Prefix:
    """A Wine prefix cloned from the template, with its own persistent server."""
    TRACE_FILE = "hf-trace.log"

    def __init__(self, path):
        self.path = Path(path).resolve()
        self.trace_path = self.path / self.TRACE_FILE
        self.executable = windows_path(os.environ["HF_EXECUTABLE"])
        self.launcher = os.environ["HF_LAUNCHER"]

    def start(self):
        start_server(self.path)

    def stop(self):
        stop_server(self.path)

    def wine(self, *arguments, timeout=60, check=True, input=None, debug="-all"):
        """Runs `wine ARGUMENTS...`; its output is decoded from code page 437,
        the OEM code page of the en-US locale that C.UTF-8 gives."""
        result = subprocess.run(["wine", *arguments], env=wine_environment(self.path, debug), input=input or b"",
                                capture_output=True, timeout=timeout, check=False)
        result.stdout = result.stdout.decode("cp437")
        if check and result.returncode != 0:
            raise RuntimeError(f"wine {' '.join(arguments)} exited with {result.returncode}: {result.stderr!r}")
        return result

    def reg_tree(self, key):
        """`wine reg query /s` as {path below `key` ("" for itself): {value name ("" for the default): (type,
        data)}}; None when the key is missing (a failure of reg.exe itself is asked again, then raised)."""
        for _ in range(3):
            result = self.wine("reg", "query", key, "/s", check=False)
            if result.returncode == 0 or "Unable to find" in result.stdout:
                break
        else:
            raise RuntimeError(f"reg query {key} exited with {result.returncode}: {result.stdout!r} {result.stderr!r}")
        if result.returncode != 0:
            return None
        root, _, rest = key.partition("\\")
        base = "\\".join(filter(None, [REGISTRY_ROOTS.get(root.upper(), root), rest]))
        tree = {}
        for line in filter(str.strip, result.stdout.splitlines()):
            if not line.startswith("    "):
                values = tree.setdefault(line[len(base):].lstrip("\\"), {})
                continue
            name, kind, data = re.match(r"^    (.*?)    (REG_[A-Z_]+)(?:    (.*))?$", line).groups()
            values["" if name == "(Default)" else name] = (kind, data or "")
        return tree

    def launch(self, program, extra=None, run=subprocess.Popen, **options):
        """Starts (or `run`s) `program` in the prefix, tracing the events, `extra` added to its environment."""
        with open(self.trace_path, "ab") as trace:
            return run(["wine", program], env=wine_environment(self.path, EVENT_TRACE, extra),
                       stdin=subprocess.DEVNULL, stderr=trace, **options)

    def run_command_line(self, line, timeout=60):
        """Runs a raw command line through the build's launcher (exactly as given, with its 32-bit exit code);
        returns it with the events reported meanwhile."""
        start = self.trace_size()
        output = self.launch(self.launcher, {"HF_LAUNCH_COMMAND_LINE": line}, subprocess.run, stdout=subprocess.PIPE,
                             timeout=timeout).stdout
        match = re.search(rb"^exit code (-?\d+)\s*$", output, re.MULTILINE)
        if not match:
            raise RuntimeError(f"the launcher ran no program: {output!r}")
        return Run(line, int(match.group(1)), self.events(start))

    def run(self, program, *arguments, timeout=60):
        return self.run_command_line(command_line(program, *arguments), timeout)

    def give_user_a_hot_folder(self):
        """The user's hot folder Invoices (input C:\\In, outside the root, output C:\\Out), made before any
        watcher starts; starts the prefix and names the test plug-in as Acrobat."""
        for folder in ("In", "Out"):
            (self.path / "drive_c" / folder).mkdir()
        ini, text = self.hot_folder("Invoices", r"C:\In", r"C:\Out", r"C:\Scripts\stamp.py")
        ini.write_bytes(b"[.ShellClassInfo]\r\n" + text)
        self.start()
        self.wine("reg", "add", r"HKLM\Software\Tarnwick\AcrobatPath", "/f", "/ve", "/d",
                  windows_path(build_file("tools", "TestPlugIn", "TestPlugIn.exe")))

    def root(self):
        return self.path / "drive_c" / "users" / getpass.getuser() / "AppData" / "Local" / "Tarnwick Hot Folders"

    def hot_folder(self, name, input_folder, output_folder, script):  # its Desktop.ini's path and text, yet to write
        (self.root() / name).mkdir(parents=True)
        return self.root() / name / "Desktop.ini", (f"[Tarnwick]\r\nInputFolder={input_folder}\r\n"
                                                    f"OutputFolder={output_folder}\r\nScript={script}\r\n").encode()

    def start_watcher(self, switch="-currentuser", plug_in="-lifetime:180000"):
        """Starts the executable as the user's watcher and waits until it watches its root; the test plug-in it
        starts journals to C:\\journal.txt. stop() ends the watcher with the prefix, then wait() for it."""
        watcher = self.launch(self.launcher, stdout=subprocess.DEVNULL, start_new_session=True, extra={
            "HF_LAUNCH_COMMAND_LINE": command_line(self.executable, switch),
            "TARNWICK_TEST_PLUGIN": rf"-journal:C:\journal.txt {plug_in}"})
        self.wait_for_events(has_event(60), timeout=60)
        return watcher

    def control(self, *arguments, tool=None, input=None):
        """HotFolderControl.exe (the build's, or `tool`): its exit code and output."""
        result = self.wine(tool or str(build_file("tools", "ControlTool", "HotFolderControl.exe")), *arguments,
                           input=input, timeout=120, check=False)
        return result.returncode, (result.stdout + result.stderr.decode("utf-8", "replace")).strip()

    def drop(self, name):
        (self.path / "drive_c" / "In" / name).write_bytes(b"%PDF-1.4 " + name.encode())

    def journal(self, kind="job", folder=None):
        """The test plug-in's journal lines of a kind (jobs from `folder`, a Windows path, if given), split at
        tabs, without the kind (a job's: number, input, script, output folder, reply, outcome, received)."""
        journal = self.path / "drive_c" / "journal.txt"
        lines = journal.read_text(encoding="utf-8").splitlines() if journal.exists() else []
        rows = [line.split("\t")[1:] for line in lines if line.split("\t")[0] == kind]
        return [row for row in rows if folder in (None, row[1].rsplit("\\", 1)[0])]

    def wait_for_jobs(self, count, folder=None, stall=STALLED_SECONDS):
        """The jobs once there are `count`, or once none has come for `stall` s."""
        jobs, before = self.journal(folder=folder), -1
        while before < len(jobs) < count:
            before = len(jobs)
            jobs = poll(lambda: self.journal(folder=folder), lambda now: len(now) > before, stall, 0.05)
        return jobs

    def settled_jobs(self, count=0, folder=None, stall=STALLED_SECONDS):
        """The jobs once there are `count`, and long enough after for a file dropped just before to have been
        handed on too."""
        self.wait_for_jobs(count, folder, stall)
        time.sleep(SETTLE_SECONDS * 2 + 1)
        return self.journal(folder=folder)

    def trace_size(self):  # the trace file is there from the prefix's start
        return self.trace_path.stat().st_size

    def events(self, start=0):
        with open(self.trace_path, "rb") as trace:
            trace.seek(start)
            return parse_events(trace.read().decode("utf-8", "replace"))

    def wait_for_events(self, predicate, timeout=30, start=0):  # until predicate(events so far) holds
        events = poll(lambda: self.events(start), predicate, timeout)
        if not predicate(events):
            raise TimeoutError(f"the events never came; reported so far: {events}")
        return events

    def since(self, start, *event_ids):  # the strings of the events of these ids reported after `start`
        return [e.strings for e in self.events(start) if e.event_id in event_ids]


def has_event(event_id, strings=None):
    return lambda events: any(e.event_id == event_id and strings in (None, e.strings) for e in events)


def build_file(*parts):
    return Path(os.environ["HF_BUILD_DIR"], *parts)


class PrefixStory(unittest.TestCase):
    """A story in a fresh prefix named `prefix_name`, started before its tests (with the user's hot folder
    when `hot_folder`) and stopped after them, ending the story's `watcher`."""
    prefix_name = None
    hot_folder = False
    watcher = None

    @classmethod
    def setUpClass(cls):
        path = Path(os.environ["HF_E2E_DIR"]) / cls.prefix_name
        cls.prefix = Prefix(clone_prefix(os.environ["HF_WINE_TEMPLATE"], path))
        cls.prefix.give_user_a_hot_folder() if cls.hot_folder else cls.prefix.start()

    @classmethod
    def tearDownClass(cls):
        cls.prefix.stop()
        if cls.watcher:
            cls.watcher.wait(timeout=30)


def main(command, path, *rest):
    if command == "template":
        make_template(path)
    elif command in ("ready", "run"):  # the GoogleTest suites' prefix: made on first use, kept between runs
        path = Path(path).resolve()
        with locked(path):
            if not (path / "system.reg").exists():
                clone_prefix(rest[rest.index("--template") + 1], path)
            start_server(path)
        if command == "run":
            settings = list(itertools.takewhile(lambda argument: "=" in argument, rest[2:]))
            env = wine_environment(path, extra=dict(setting.split("=", 1) for setting in settings))
            os.execvpe("wine", ["wine", *rest[2 + len(settings):]], env)
    else:
        for prefix in (path, *rest):
            stop_server(Path(prefix))


if __name__ == "__main__":
    main(*sys.argv[1:])
