#!/usr/bin/env python3
"""Runs TarnwickHotFolder.exe in a fresh Wine prefix and shows what it reports.

The steps, in order (each one a function below, so later roles slot in):
  1. a fresh prefix, cloned from the build's template, with its own Wine server;
  2. registration (nothing is registered yet);
  3. the start-service action, `TarnwickHotFolder.exe -startservice`;
  4. the service path run by hand, which cannot reach the service dispatcher;
  5. a user's watcher (`-currentuser`) with a demo hot folder, the test plug-in
     standing in for Acrobat, HotFolderControl.exe telling it to run, and a
     file dropped into the demo input folder, which becomes a job.
Every event is printed as the event log viewer renders it, from the message
texts in HotFolder/service/Messages.mc.
"""
import argparse
import getpass
import os
import re
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "wine" / "e2e"))
sys.path.insert(0, str(ROOT / "cmake"))

import message_table  # noqa: E402
import winetest  # noqa: E402

EVENT_TYPES = {0: "Success", 1: "Error", 2: "Warning", 4: "Information"}


def message_texts():
    """Message id to text, as windmc stores them: every line ends in CR LF."""
    messages = message_table.parse(ROOT / "HotFolder" / "service" / "Messages.mc")
    return {message["id"]: message["text"] for message in messages}


def render(text, strings):
    """The viewer's text: %n is a line break, %1 to %99 the insertion strings;
    anything else after % (the %s of messages 59 and 60) stays as it is."""
    def insert(match):
        if match.group(1) == "n":
            return "\r\n"
        index = int(match.group(1)) - 1
        return strings[index] if index < len(strings) else match.group(0)
    return re.sub(r"%(n|[1-9][0-9]?)", insert, text)


def show(title, run, texts):
    print(f"\n--- {title}")
    print(f"command line: {run.command_line}")
    print(f"exit code:    {run.exit_code}")
    show_events(run.events, texts)


def show_events(events, texts):
    categories = {1: "Service", 2: "User", 3: "Acrobat Plug-In"}
    for event in events:
        kind = EVENT_TYPES.get(event.type, str(event.type))
        category = categories.get(event.category, str(event.category))
        text = render(texts.get(event.event_id, f"(no message {event.event_id})"), event.strings)
        print(f"  event {event.event_id:2} [{kind}, {category}]")
        for line in text.rstrip("\r\n").split("\r\n"):
            print(f"      {line}")


def make_prefix(build, path):
    template = winetest.make_template(build / "wine" / "template")
    prefix = winetest.Prefix.create(path, template)
    prefix.start()
    return prefix


def register(prefix):
    """Registers the product in the prefix. Nothing is registered yet: the
    service, the COM server and the event source come with later roles."""


def start_service(prefix, texts):
    show("TarnwickHotFolder.exe -startservice", prefix.run(prefix.executable, "-startservice"), texts)


def service_path_by_hand(prefix, texts):
    show("TarnwickHotFolder.exe (the service path, started by hand)", prefix.run(prefix.executable, timeout=120),
         texts)


def watcher_with_demo_hot_folder(prefix, build, texts):
    """A user with one hot folder, Demo, whose input folder is C:\\Tarnwick Demo\\In;
    the test plug-in (tools/TestPlugIn) is registered as Acrobat, so every job
    copies its file to C:\\Tarnwick Demo\\Out and is written to its journal."""
    demo = prefix.path / "drive_c" / "Tarnwick Demo"
    (demo / "In").mkdir(parents=True, exist_ok=True)
    (demo / "Out").mkdir(exist_ok=True)
    root = prefix.path / "drive_c" / "users" / getpass.getuser() / "AppData" / "Local" / "Tarnwick Hot Folders"
    (root / "Demo").mkdir(parents=True, exist_ok=True)
    (root / "Demo" / "Desktop.ini").write_bytes(
        b"[Tarnwick]\r\nInputFolder=C:\\Tarnwick Demo\\In\r\nOutputFolder=C:\\Tarnwick Demo\\Out\r\n"
        b"Script=C:\\Tarnwick Demo\\stamp.py\r\n")
    prefix.reg_add(r"HKLM\Software\Tarnwick\AcrobatPath", None,
                   winetest.windows_path(build / "tools" / "TestPlugIn" / "TestPlugIn.exe"))

    print("\n--- TarnwickHotFolder.exe -currentuser, with the demo hot folder")
    start = prefix.trace_path.stat().st_size if prefix.trace_path.exists() else 0
    watcher = prefix.start_in_background(
        prefix.executable, "-currentuser",
        extra={"TARNWICK_TEST_PLUGIN": r'"-journal:C:\Tarnwick Demo\journal.txt" -lifetime:120000'})
    try:
        prefix.wait_for_events(lambda events: any(e.event_id == 60 for e in events), timeout=60, start=start)
        control = winetest.windows_path(build / "tools" / "ControlTool" / "HotFolderControl.exe")
        prefix.run(control, "run")
        print("told it to run (HotFolderControl.exe run); dropping report.pdf into C:\\Tarnwick Demo\\In")
        (demo / "In" / "report.pdf").write_bytes(b"%PDF-1.4 demo")
        journal = demo / "journal.txt"
        deadline = time.monotonic() + 30
        while time.monotonic() < deadline and "job\t" not in (journal.read_text("utf-8") if journal.exists() else ""):
            time.sleep(0.1)
        time.sleep(0.5)
        show_events(prefix.events(start), texts)
        print("test plug-in journal:")
        for line in (journal.read_text("utf-8").splitlines() if journal.exists() else ["(no journal)"]):
            print(f"      {line}")
        print(f"output folder: {sorted(p.name for p in (demo / 'Out').iterdir())}")
    finally:
        prefix.stop()
        watcher.end()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", default=str(ROOT / "build" / "windows"), help="the windows build folder")
    parser.add_argument("--prefix", default=str(ROOT / "build" / "run" / "prefix"), help="the Wine prefix to make")
    args = parser.parse_args()
    build = Path(args.build).resolve()
    os.environ["HF_EXECUTABLE"] = str(build / "HotFolder" / "TarnwickHotFolder.exe")
    os.environ["HF_LAUNCHER"] = str(build / "tests" / "wine" / "e2e" / "hf_launch.exe")

    texts = message_texts()
    print(f"Wine prefix: {args.prefix}")
    prefix = make_prefix(build, args.prefix)
    try:
        register(prefix)
        start_service(prefix, texts)
        service_path_by_hand(prefix, texts)
        watcher_with_demo_hot_folder(prefix, build, texts)
    finally:
        prefix.stop()
    return 0


if __name__ == "__main__":
    sys.exit(main())
