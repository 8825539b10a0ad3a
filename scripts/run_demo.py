#!/usr/bin/env python3
"""Runs the whole hot folder system in a fresh Wine prefix and shows what it
reports.

The steps, in order (each one a function below):
  1. a fresh prefix, cloned from the build's template, with its own Wine server;
  2. `TarnwickHotFolder.exe -Service`: the COM server, the type library and the
     automatically started service "Tarnwick Hot Folders" with its event source;
  3. `TarnwickHotFolder.exe -startservice`: the service starts, and its
     supervisor finds no installed users;
  4. `HotFolderControl.exe install-user` and `is-installed`, through FolderService;
  5. a user's watcher started as the logon entry starts it (`-currentuser`),
     with a demo hot folder and the test plug-in (tools/TestPlugIn) standing in
     for Acrobat: it announces itself, the service connects and tells it to
     run, and a file dropped into the demo input folder becomes a job;
  6. `net stop`: the service stops and the watcher idles; a second file stays
     where it is.
Every event is printed as the event log viewer renders it, from the message
texts in HotFolder/service/Messages.mc.
"""
import argparse
import getpass
import os
import re
import subprocess
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
    categories = {0: "None", 1: "Service", 2: "User", 3: "Acrobat Plug-In"}
    for event in events:
        kind = EVENT_TYPES.get(event.type, str(event.type))
        category = categories.get(event.category, str(event.category))
        if event.event_id == 0:
            # The service module's own lines: no message, one insertion string.
            text = event.strings[0] if event.strings else ""
        else:
            text = render(texts.get(event.event_id, f"(no message {event.event_id})"), event.strings)
        print(f"  event {event.event_id:2} [{kind}, {category}]")
        for line in text.rstrip("\r\n").split("\r\n"):
            print(f"      {line}")


def make_prefix(build, path):
    template = winetest.make_template(build / "wine" / "template")
    prefix = winetest.Prefix(winetest.clone_prefix(template, path))
    prefix.start()
    return prefix


def trace_position(prefix):
    return prefix.trace_path.stat().st_size if prefix.trace_path.exists() else 0


def install_service(prefix, texts):
    show("TarnwickHotFolder.exe -Service", prefix.run(prefix.executable, "-Service", timeout=120), texts)
    # An environment step, not the product's: Wine's type library marshaler
    # looks libraries up under locale 0 only, and the product registers 0x409.
    library = r"HKCR\TypeLib\{524F5CA9-889F-479E-9DCC-E15F61C695AC}\1.0"
    prefix.wine("reg", "copy", library + r"\409", library + r"\0", "/s", "/f")
    print("(Wine only: the type library's 409 registration copied to locale 0)")


def start_service(prefix, texts):
    start = trace_position(prefix)
    run = prefix.run(prefix.executable, "-startservice")
    print("\n--- TarnwickHotFolder.exe -startservice, and the service it starts")
    print(f"exit code:    {run.exit_code} (1: the start request was accepted)")
    events = prefix.wait_for_events(lambda e: any(x.event_id == 6 for x in e) and
                                    any(x.event_id == 0 and x.strings == ["Service started/resumed"] for x in e),
                                    timeout=60, start=start)
    show_events(events, texts)


def control(prefix, build, *arguments, input=None):
    tool = build / "tools" / "ControlTool" / "HotFolderControl.exe"
    result = prefix.wine(str(tool), *arguments, input=input, timeout=120, check=False)
    output = (result.stdout + result.stderr.decode("utf-8", "replace")).strip()
    print(f"HotFolderControl {' '.join(arguments)}: exit code {result.returncode}: {output}")


def add_user(prefix, build):
    print("\n--- HotFolderControl.exe, an administrator's tool, through FolderService")
    control(prefix, build, "install-user", r"OFFICE\clerk", input=b"secret\n")
    control(prefix, build, "is-installed", r"OFFICE\clerk")
    users = prefix.reg_tree(r"HKLM\SOFTWARE\Orvanta\Tarnwick\4\HotFolderUsers")[""]
    for name, (kind, data) in users.items():
        print(f"stored: {name} {kind}, {len(data) // 2} bytes, sealed by the data protection API")


def wait_for_journal(journal, count, seconds):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        lines = journal.read_text("utf-8").splitlines() if journal.exists() else []
        if sum(line.startswith("job\t") for line in lines) >= count:
            return
        time.sleep(0.1)


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
    prefix.wine("reg", "add", r"HKLM\Software\Tarnwick\AcrobatPath", "/f", "/ve", "/d",
                winetest.windows_path(build / "tools" / "TestPlugIn" / "TestPlugIn.exe"))
    journal = demo / "journal.txt"

    print("\n--- TarnwickHotFolder.exe -currentuser (as the logon entry starts it), with the demo hot folder")
    start = trace_position(prefix)
    watcher = prefix.launch(prefix.launcher, stdout=subprocess.DEVNULL, start_new_session=True, extra={
        "HF_LAUNCH_COMMAND_LINE": winetest.command_line(prefix.executable, "-currentuser"),
        "TARNWICK_TEST_PLUGIN": r'"-journal:C:\Tarnwick Demo\journal.txt" -lifetime:120000'})
    prefix.wait_for_events(lambda events: any(e.event_id == 49 for e in events), timeout=60, start=start)
    print("the watcher announced itself and the service connected to it; dropping report.pdf into "
          "C:\\Tarnwick Demo\\In")
    (demo / "In" / "report.pdf").write_bytes(b"%PDF-1.4 demo")
    wait_for_journal(journal, 1, 30)
    time.sleep(0.5)
    show_events(prefix.events(start), texts)
    print("test plug-in journal:")
    for line in (journal.read_text("utf-8").splitlines() if journal.exists() else ["(no journal)"]):
        print(f"      {line}")
    print(f"output folder: {sorted(p.name for p in (demo / 'Out').iterdir())}")
    return watcher, demo


def stop_service(prefix, texts, demo):
    print("\n--- net stop \"Tarnwick Hot Folders\"")
    start = trace_position(prefix)
    prefix.wine("net", "stop", "Tarnwick Hot Folders", timeout=120, check=False)
    prefix.wait_for_events(lambda events: any(e.event_id == 44 for e in events), timeout=60, start=start)
    show_events(prefix.events(start), texts)
    print("the watcher idles; dropping later.pdf into C:\\Tarnwick Demo\\In and waiting 5 s")
    before = len(prefix.events(start))
    (demo / "In" / "later.pdf").write_bytes(b"%PDF-1.4 later")
    time.sleep(5)
    show_events(prefix.events(start)[before:], texts)
    print(f"output folder: {sorted(p.name for p in (demo / 'Out').iterdir())} (later.pdf was not handed on)")


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
    watcher = None
    try:
        install_service(prefix, texts)
        start_service(prefix, texts)
        add_user(prefix, build)
        watcher, demo = watcher_with_demo_hot_folder(prefix, build, texts)
        stop_service(prefix, texts, demo)
    finally:
        prefix.stop()
        if watcher:
            watcher.wait(timeout=30)
    return 0


if __name__ == "__main__":
    sys.exit(main())
