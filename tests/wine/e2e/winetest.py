#!/usr/bin/env python3
"""Runs the windows build's programs under Wine, each end-to-end test in a
Wine prefix of its own, and reads back the event reports they make.

Prefixes. A template prefix is made once per build (`wineboot -i`, about 10 s
and 700 MB) and cloned for every prefix a test uses: hard links for the files
Wine only reads, real copies of the files it rewrites in place (the registry
files, win.ini, system.ini), so a clone costs a few hundredths of a second and
never changes the template.

Wine servers. Every prefix has its own server. A test starts it persistent
(`wineserver -p`) and boots the prefix (`wineboot`) with its output detached,
and stops it at the end (`wineserver -k`). Without the persistent server,
Wine's services die a few seconds after the last foreground process; and a
prefix that boots from inside a test hands its services that test's output
pipes, which CTest then waits on for ever.

Events. Wine's event log keeps nothing: ReportEventW returns TRUE and only
traces the report. With WINEDEBUG=-all,+eventlog,fixme+advapi each report is
one line `fixme:advapi:ReportEventW (source,0xTYPE,0xCATEGORY,0xID,sid,0xCOUNT,
...)` followed by one `trace|warn|err:eventlog:ReportEventW L"..."` line per
line of each insertion string. A prefix sends the trace output of every
process it runs, services included, to one file, and `events()` parses it.

Command line (scripts and CTest):
    winetest.py template DIR                  make the template prefix unless it exists
    winetest.py ready PREFIX --template DIR   clone, start and boot a prefix unless it is running
    winetest.py stop PREFIX...                stop the Wine servers of these prefixes
"""
import argparse
import contextlib
import dataclasses
import fcntl
import getpass
import os
import re
import shutil
import subprocess
import sys
import time
from pathlib import Path

# Trace channels that show every event report and nothing else.
EVENT_TRACE = "-all,+eventlog,fixme+advapi"
# Files of a prefix that Wine rewrites in place: a clone gets real copies.
REWRITTEN_FILES = ("system.reg", "user.reg", "userdef.reg", "drive_c/windows/win.ini",
                   "drive_c/windows/system.ini")
TEMPLATE_MARK = ".hf-template"
BOOTED_MARK = ".hf-booted"
TRACE_FILE = "hf-trace.log"

# The abbreviations of the registry's roots, as `reg` takes them.
REGISTRY_ROOTS = {"HKCR": "HKEY_CLASSES_ROOT", "HKCU": "HKEY_CURRENT_USER", "HKLM": "HKEY_LOCAL_MACHINE"}

# wineserver -p exits with this code when the prefix's server already runs.
SERVER_ALREADY_RUNNING = 2


def wine_environment(prefix, debug="-all", extra=None):
    """The environment for Wine programs in `prefix`: no display, no Mono or
    Gecko installers, the given trace channels, and a UTF-8 locale, so Wine
    turns arguments, environment and console output to and from UTF-16 as
    UTF-8 whatever the caller's locale is."""
    env = dict(os.environ)
    for name in ("DISPLAY", "WAYLAND_DISPLAY"):
        env.pop(name, None)
    # Wine takes only an absolute prefix path; with any other it does nothing.
    env.update(WINEPREFIX=str(Path(prefix).resolve()), WINEDEBUG=debug, WINEDLLOVERRIDES="mscoree,mshtml=", LC_ALL="C.UTF-8")
    if extra:
        env.update(extra)
    return env


def run_detached(command, env, timeout, stderr=subprocess.DEVNULL):
    """Runs a command with no inherited descriptors beyond /dev/null (and the
    given stderr), in a session of its own, so nothing it leaves running holds
    the caller's pipes."""
    return subprocess.run(command, env=env, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=stderr,
                          timeout=timeout, start_new_session=True, close_fds=True, check=False).returncode


@contextlib.contextmanager
def locked(path):
    """An exclusive lock on `path`, so concurrent tests make a prefix once."""
    path.parent.mkdir(parents=True, exist_ok=True)
    with open(path, "a") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        try:
            yield
        finally:
            fcntl.flock(lock, fcntl.LOCK_UN)


def make_template(path, timeout=300):
    """Makes the template prefix at `path` unless a complete one is there."""
    path = Path(path).resolve()
    if (path / TEMPLATE_MARK).exists():
        return path
    with locked(path.with_name(path.name + ".lock")):
        if (path / TEMPLATE_MARK).exists():
            return path
        if path.exists():
            shutil.rmtree(path)  # left half-made by an interrupted run
        path.parent.mkdir(parents=True, exist_ok=True)
        env = wine_environment(path)
        started = time.monotonic()
        run_detached(["wineboot", "-i"], env, timeout)
        # Stopping the server writes the registry files.
        run_detached(["wineserver", "-k"], env, 60)
        run_detached(["wineserver", "-w"], env, 60)
        missing = [name for name in REWRITTEN_FILES if not (path / name).exists()]
        if missing:
            raise RuntimeError(f"wineboot -i left no {', '.join(missing)} in {path}")
        (path / TEMPLATE_MARK).write_text(f"made by wineboot -i in {time.monotonic() - started:.1f} s\n")
    return path


def clone_prefix(template, path):
    """Makes `path` a fresh clone of the template prefix."""
    template = make_template(template)
    path = Path(path).resolve()
    if path.exists():
        stop_server(path)
        shutil.rmtree(path)
    path.mkdir(parents=True)
    subprocess.run(["cp", "-al", f"{template}/.", f"{path}/"], check=True)
    (path / TEMPLATE_MARK).unlink()
    for name in REWRITTEN_FILES:
        (path / name).unlink()
        shutil.copy2(template / name, path / name)
    return path


def start_server(path, timeout=120):
    """Starts the prefix's persistent server and boots the prefix, with the
    trace output of the boot (and so of every service) going to the prefix's
    trace file. Does nothing more than check when the server already runs."""
    env = wine_environment(path)
    if run_detached(["wineserver", "-p"], env, 30) == SERVER_ALREADY_RUNNING and (path / BOOTED_MARK).exists():
        return
    with open(path / TRACE_FILE, "ab") as trace:
        run_detached(["wineboot"], wine_environment(path, EVENT_TRACE), timeout, stderr=trace)
    (path / BOOTED_MARK).touch()


def stop_server(path, timeout=60):
    """Stops the prefix's server and everything running in the prefix."""
    path = Path(path)
    if not (path / "system.reg").exists():
        return  # not a prefix, or never made
    env = wine_environment(path)
    run_detached(["wineserver", "-k"], env, timeout)
    run_detached(["wineserver", "-w"], env, timeout)
    with contextlib.suppress(FileNotFoundError):
        (path / BOOTED_MARK).unlink()


def ready_prefix(path, template):
    """Makes sure the prefix exists and its booted server runs (the GoogleTest
    suites' prefix: made on first use, kept between runs)."""
    path = Path(path).resolve()
    with locked(path.with_name(path.name + ".lock")):
        if not (path / "system.reg").exists():
            clone_prefix(template, path)
        start_server(path)
    return path


def windows_path(unix_path):
    """The path through Wine's Z: drive, which maps the Unix root."""
    return "Z:" + str(Path(unix_path).resolve()).replace("/", "\\")


def quote_argument(argument):
    """Quotes one argument so that CommandLineToArgvW gives it back unchanged."""
    if argument and not any(c in argument for c in ' \t\n\v"'):
        return argument
    quoted = '"'
    backslashes = 0
    for c in argument:
        if c == "\\":
            backslashes += 1
            continue
        if c == '"':
            quoted += "\\" * (2 * backslashes + 1) + '"'
        else:
            quoted += "\\" * backslashes + c
        backslashes = 0
    return quoted + "\\" * (2 * backslashes) + '"'


def command_line(program, *arguments):
    """A Windows command line: the program path in quotes, then the arguments."""
    return " ".join(['"' + program + '"'] + [quote_argument(a) for a in arguments])


@dataclasses.dataclass
class Event:
    """One ReportEventW call as Wine traced it."""
    type: int
    category: int
    event_id: int
    string_count: int
    strings: list
    thread: str

    def __repr__(self):
        return f"Event(id={self.event_id}, type={self.type}, category={self.category}, strings={self.strings!r})"


_REPORT = re.compile(r"^(?:[0-9a-f]+:)?([0-9a-f]+):fixme:advapi:ReportEventW "
                     r"\([0-9A-Fa-f]+,0x([0-9a-f]+),0x([0-9a-f]+),0x([0-9a-f]+),[0-9A-Fa-f]+,0x([0-9a-f]+),")
_STRING_LINE = re.compile(r'^(?:[0-9a-f]+:)?([0-9a-f]+):(?:trace|warn|err):eventlog:ReportEventW (L".*)$')


def decode_debugstr(text):
    """Decodes Wine's debugstr_w form: L"..." with \\n \\r \\t \\" \\\\ and
    \\XXXX escapes; a string cut short by the tracer ends in "..." after the
    closing quote and comes back with "..." appended."""
    assert text.startswith('L"'), text
    out = []
    i = 2
    while i < len(text) and text[i] != '"':
        c = text[i]
        if c == "\\":
            nxt = text[i + 1]
            if nxt in 'nrt"\\':
                out.append({"n": "\n", "r": "\r", "t": "\t"}.get(nxt, nxt))
                i += 2
            else:
                out.append(chr(int(text[i + 1:i + 5], 16)))
                i += 5
        else:
            out.append(c)
            i += 1
    if text[i + 1:].startswith("..."):
        out.append("...")
    return "".join(out)


def parse_events(trace_text):
    """The event reports in a trace, in the order they were made.

    Wine traces an insertion string line by line and leaves out empty strings,
    so the strings are rebuilt by joining a line that ends in a line feed with
    the next line of the same report; `string_count` is the count the caller
    passed."""
    events = []
    open_reports = {}
    for line in trace_text.splitlines():
        report = _REPORT.match(line)
        if report:
            thread, event_type, category, event_id, count = report.groups()
            event = Event(int(event_type, 16), int(category, 16), int(event_id, 16), int(count, 16), [], thread)
            events.append(event)
            open_reports[thread] = event
            continue
        string_line = _STRING_LINE.match(line)
        if string_line and string_line.group(1) in open_reports:
            event = open_reports[string_line.group(1)]
            text = decode_debugstr(string_line.group(2))
            if event.strings and event.strings[-1].endswith("\n"):
                event.strings[-1] += text
            else:
                event.strings.append(text)
    return events


@dataclasses.dataclass
class Run:
    """One program run in a prefix: its command line, its exit code as the
    Windows process returned it, and the events reported while it ran."""
    command_line: str
    exit_code: int
    events: list

    def event_ids(self):
        return [event.event_id for event in self.events]


class Background:
    """A program started by Prefix.start_in_background."""

    def __init__(self, prefix, line, extra=None):
        env = prefix.environment(EVENT_TRACE, dict(extra or {}, HF_LAUNCH_COMMAND_LINE=line))
        self.command_line = line
        self.trace = open(prefix.trace_path, "ab")
        self.process = subprocess.Popen(["wine", prefix.launcher], env=env, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=self.trace, start_new_session=True)

    def end(self, timeout=30):
        """Waits for the program to end (after the prefix's stop())."""
        try:
            self.process.wait(timeout=timeout)
        finally:
            self.trace.close()


class Prefix:
    """A Wine prefix cloned from the template, with its own persistent server,
    for one test. Use it as a context manager:

        with Prefix.for_test("start_service") as prefix:
            run = prefix.run(prefix.executable, "-startservice")
    """

    def __init__(self, path):
        self.path = Path(path).resolve()
        self.trace_path = self.path / TRACE_FILE

    @classmethod
    def create(cls, path, template=None):
        template = template or os.environ["HF_WINE_TEMPLATE"]
        return cls(clone_prefix(template, path))

    @classmethod
    def for_test(cls, name):
        """A fresh prefix named after the test, under the build's e2e folder."""
        return cls.create(Path(os.environ["HF_E2E_DIR"]) / name)

    # The programs of the build, as the test's environment names them.
    @property
    def executable(self):
        return windows_path(os.environ["HF_EXECUTABLE"])

    @property
    def launcher(self):
        return os.environ["HF_LAUNCHER"]

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *exc):
        self.stop()

    def start(self):
        start_server(self.path)

    def stop(self):
        stop_server(self.path)

    def environment(self, debug="-all", extra=None):
        return wine_environment(self.path, debug, extra)

    def wine(self, *arguments, timeout=60, check=True, input=None):
        """Runs `wine ARGUMENTS...` (a Wine tool such as reg, or a console
        program of the build) and returns it completed, its output decoded;
        `input` (bytes) is its standard input. Console tools write redirected
        output in the OEM code page, 437 for the en-US locale that C.UTF-8
        gives."""
        stdin = {"input": input} if input is not None else {"stdin": subprocess.DEVNULL}
        result = subprocess.run(["wine", *arguments], env=self.environment(), capture_output=True,
                                timeout=timeout, check=False, **stdin)
        result.stdout = result.stdout.decode("cp437")
        if check and result.returncode != 0:
            raise RuntimeError(f"wine {' '.join(arguments)} exited with {result.returncode}: "
                               f"{result.stderr.decode('utf-8', 'replace')}")
        return result

    def reg_add(self, key, value=None, data=None, kind="REG_SZ"):
        """Writes a registry value (or creates a key) with `wine reg add`."""
        arguments = ["reg", "add", key, "/f"]
        if value is None:
            arguments.append("/ve")
        elif value:
            arguments += ["/v", value]
        if data is not None:
            arguments += ["/t", kind, "/d", data]
        self.wine(*arguments)

    def reg_query(self, key, value=None):
        """`wine reg query` of a value's line (or a key's listing); None when
        the key or value is missing (reg exits 1)."""
        arguments = ["reg", "query", key] + (["/v", value] if value else [])
        result = self.wine(*arguments, check=False)
        return result.stdout if result.returncode == 0 else None

    def reg_tree(self, key):
        """Every key from `key` down with its values, as `wine reg query /s`
        lists them: {path below `key` ("" for the key itself): {value name
        ("" for the default value): (type, data)}}, binary data in
        hexadecimal; None when the key is missing."""
        result = self.wine("reg", "query", key, "/s", check=False)
        if result.returncode != 0:
            return None
        root, _, rest = key.partition("\\")
        base = "\\".join(filter(None, [REGISTRY_ROOTS.get(root.upper(), root), rest]))
        tree = {}
        values = None
        for line in result.stdout.splitlines():
            if not line.strip():
                continue
            if not line.startswith("    "):
                values = tree.setdefault(line[len(base):].lstrip("\\"), {})
                continue
            match = re.match(r"^    (.*?)    (REG_[A-Z_]+)(?:    (.*))?$", line)
            if not match:
                raise RuntimeError(f"reg query printed an unexpected line: {line!r}")
            name = "" if match.group(1) == "(Default)" else match.group(1)
            values[name] = (match.group(2), match.group(3) or "")
        return tree

    def run_command_line(self, line, timeout=60):
        """Runs a raw Windows command line through the build's launcher, which
        starts it with CreateProcessW exactly as given, waits for it and
        prints its 32-bit exit code. Returns the run with the events reported
        while it ran (by it, or by anything else in the prefix)."""
        start = self.trace_path.stat().st_size if self.trace_path.exists() else 0
        env = self.environment(EVENT_TRACE, {"HF_LAUNCH_COMMAND_LINE": line})
        with open(self.trace_path, "ab") as trace:
            result = subprocess.run(["wine", self.launcher], env=env, stdin=subprocess.DEVNULL,
                                    stdout=subprocess.PIPE, stderr=trace, timeout=timeout, check=False)
        output = result.stdout.decode("utf-8", "replace")
        match = re.search(r"^exit code (-?\d+)\s*$", output, re.MULTILINE)
        if not match:
            raise RuntimeError(f"the launcher ran no program ({result.returncode}): {output!r}")
        return Run(line, int(match.group(1)), self.events(start))

    def start_in_background(self, program, *arguments, extra=None):
        """Starts a long-running program (a watcher, say) through the build's
        launcher and returns at once. Its trace output goes to the prefix's
        trace, so events() shows its reports; `extra` adds environment
        variables, which the programs it starts inherit. stop() ends it with
        every other Wine process of the prefix; then call its end()."""
        return Background(self, command_line(program, *arguments), extra)

    def run(self, program, *arguments, timeout=60):
        """Runs a program with arguments quoted as Windows expects."""
        return self.run_command_line(command_line(program, *arguments), timeout)

    def give_user_a_hot_folder(self):
        """Gives the prefix's user one hot folder, "Invoices", and starts the
        prefix with the test plug-in (tools/TestPlugIn) standing in for Acrobat
        through the AcrobatPath value. The root and the hot folder exist before
        any watcher starts, so a watcher finds them at start-up; the input
        folder C:\\In lies outside the root and gets a watch of its own.
        Returns the Unix paths of the input folder, the output folder C:\\Out
        and the plug-in's journal C:\\journal.txt."""
        drive_c = self.path / "drive_c"
        folders = drive_c / "In", drive_c / "Out", drive_c / "journal.txt"
        folders[0].mkdir()
        folders[1].mkdir()
        local = drive_c / "users" / getpass.getuser() / "AppData" / "Local"
        hot_folder = local / "Tarnwick Hot Folders" / "Invoices"
        hot_folder.mkdir(parents=True)
        (hot_folder / "Desktop.ini").write_bytes(
            b"[.ShellClassInfo]\r\n[Tarnwick]\r\nInputFolder=C:\\In\r\nOutputFolder=C:\\Out\r\n"
            b"Script=C:\\Scripts\\stamp.py\r\n")
        self.start()
        plug_in = Path(os.environ["HF_BUILD_DIR"], "tools", "TestPlugIn", "TestPlugIn.exe")
        self.reg_add(r"HKLM\Software\Tarnwick\AcrobatPath", None, windows_path(plug_in))
        return folders

    def start_watcher(self):
        """Starts the executable as the user's watcher (-currentuser) and waits
        until it watches its root folder. The plug-in it starts inherits its
        switches from the watcher's environment: journal C:\\journal.txt."""
        watcher = self.start_in_background(
            self.executable, "-currentuser",
            extra={"TARNWICK_TEST_PLUGIN": r"-journal:C:\journal.txt -lifetime:180000"})
        self.wait_for_events(lambda events: any(e.event_id == 60 for e in events), timeout=60)
        return watcher

    def events(self, start=0):
        """The events reported in this prefix, from byte `start` of the trace."""
        if not self.trace_path.exists():
            return []
        with open(self.trace_path, "rb") as trace:
            trace.seek(start)
            return parse_events(trace.read().decode("utf-8", "replace"))

    def wait_for_events(self, predicate, timeout=30, start=0):
        """Waits until predicate(events) holds for the events reported so far
        (by services, say) and returns them; fails after `timeout` seconds."""
        deadline = time.monotonic() + timeout
        while True:
            events = self.events(start)
            if predicate(events):
                return events
            if time.monotonic() > deadline:
                raise TimeoutError(f"the events never came; reported so far: {events}")
            time.sleep(0.1)


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    commands = parser.add_subparsers(dest="command", required=True)
    template = commands.add_parser("template", help="make the template prefix unless it exists")
    template.add_argument("path")
    ready = commands.add_parser("ready", help="clone, start and boot a prefix unless it is running")
    ready.add_argument("path")
    ready.add_argument("--template", required=True)
    stop = commands.add_parser("stop", help="stop the Wine servers of these prefixes")
    stop.add_argument("paths", nargs="+")
    args = parser.parse_args(argv)
    if args.command == "template":
        make_template(args.path)
    elif args.command == "ready":
        ready_prefix(args.path, args.template)
    else:
        for path in args.paths:
            stop_server(Path(path))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
