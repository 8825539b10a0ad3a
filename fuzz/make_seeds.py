#!/usr/bin/env python3
"""Writes the seed corpus of the fuzz targets into fuzz/corpus/<target>/.

Each seed is a small script in its target's input format (the comment at the
top of fuzz/<Target>Fuzz.cpp): typical traffic, and the odd cases the targets
are meant to reach from it. Run it again after changing a format.
"""
import pathlib
import struct

CORPUS = pathlib.Path(__file__).resolve().parent / "corpus"


def dword(value):
    return struct.pack("<I", value & 0xFFFFFFFF)


def word(value):
    return struct.pack("<H", value)


def utf16(text):
    return text.encode("utf-16-le")


# --- change records -------------------------------------------------------------------

ROOT, SCANS, SHARED = 0, 1, 2  # the watches: the root, then D:\Scans\Incoming, D:\Shared


def records(entries, packed=False):
    """A read's buffer: (action, name) records, each pointing at the next."""
    parts = []
    for action, name in entries:
        raw = name if isinstance(name, bytes) else utf16(name)
        size = 12 + len(raw)
        parts.append((action, raw, size if packed else (size + 3) & ~3))
    out = b""
    for i, (action, raw, spaced) in enumerate(parts):
        nxt = spaced if i + 1 < len(parts) else 0
        record = dword(nxt) + dword(action) + dword(len(raw)) + raw
        out += record.ljust(spaced, b"\0") if i + 1 < len(parts) else record
    return out


def completion(watch, buffer, count=None, error=0):
    op = 0x10 if error else 0
    out = bytes([op, watch]) + (dword(error) if error else b"")
    count = len(buffer) if count is None else count
    out += dword(count)
    if not error and count:
        out += word(len(buffer)) + buffer
    return out


def user(what, which):
    return bytes([2, what, which])


def later(ms):
    return bytes([3]) + word(ms)


FILE_ACTIONS = [(1, "scan.pdf"), (3, "scan.pdf"), (4, "scan.pdf"), (5, "Report 7.PDF"), (2, "x"), (9, "odd.pdf")]

CHANGE_RECORDS = {
    "padded_input_folder": bytes([0]) + completion(SCANS, records(FILE_ACTIONS)),
    "packed_input_folder": bytes([1]) + completion(SHARED, records(FILE_ACTIONS, packed=True)),
    "root_names": bytes([1]) + completion(ROOT, records([
        (1, "Invoices\\In\\scan.pdf"), (3, "Invoices\\In\\scan.pdf"), (3, "Scans\\Desktop.ini"),
        (1, "Self\\a.pdf"), (2, "SharedA\\DESKTOP.INI"), (5, "..\\Desktop.ini"), (1, ""),
        (3, "Invoices\\In\\"), (1, "\\Nowhere\\Desktop.ini\\"), (3, "Scans\\Desktop.ini\0x"),
        (2, "Invoices\\In\\..\\..\\Scans\\Desktop.ini"), (0, "Invoices\\Desktop.ini"),
    ], packed=True)),
    "rewalk_and_errors": bytes([0]) + completion(ROOT, b"", count=0) +
        completion(SHARED, records([(1, "a.pdf"), (3, "a.pdf")])) + completion(SHARED, b"", count=0) +
        later(2500) + completion(SHARED, b"", count=0) + completion(SHARED, b"", error=1022) +
        completion(SHARED, records([(1, "b.pdf")])) + completion(SCANS, b"", error=0xC0000005),
    "long_and_broken": bytes([2]) + completion(ROOT,
        dword(16) + dword(1) + dword(0x3FF00) + b"" +  # a long name, reaching past what was written
        b"") + completion(SCANS,
        dword(20) + dword(1) + dword(7) + utf16("odd") + b"\0" + b"\0" * 1 +  # an odd name length
        dword(0xFFFFFFF0) + dword(3) + dword(4) + utf16("ab")) + completion(SCANS,
        dword(0) + dword(2) + dword(0x40000) + utf16("past the end")),
    "user_changes": bytes([0]) + user(0, 1 + 8 * 2) + user(1, 2) + user(2, 2) + later(100) +
        user(4, 2) + user(2, 0) + user(3, 0) + user(5, 2) + completion(SCANS, records([(1, "late.pdf")])) +
        user(0, 5 + 8 * 9) + user(0, 4 + 8 * 8) + later(3000) + user(5, 4),
    "reload_by_record": bytes([1]) + completion(ROOT, records([
        (3, "Scans\\Desktop.ini"), (3, "SharedB\\Desktop.ini"), (3, "SCANS\\desktop.ini"),
    ])) + completion(SCANS, records([(1, "WakA.TMP"), (2, "WakA.TMP")])) +
        user(0, 1 + 8 * 7) + completion(ROOT, records([(3, "Scans\\Desktop.ini")])) +
        completion(SCANS, records([(1, "gone.pdf")])),
}

# --- settings ---------------------------------------------------------------------------

UTF8, BELOW_ROOT = 1, 2


def ini(input_folder, output_folder="..\\Done", script="C:\\Scripts\\stamp.py", extra=""):
    return ("[.ShellClassInfo]\r\nIconResource=hot.ico,0\r\n[Tarnwick]\r\n" + extra +
            "InputFolder=" + input_folder + "\r\nOutputFolder=" + output_folder + "\r\nScript=" + script + "\r\n")


def settings(flags, path, first, second):
    raw_path = path.encode("utf-8") if flags & UTF8 else utf16(path)
    return bytes([flags]) + word(len(raw_path)) + raw_path + word(len(first)) + first + second


BOM = b"\xff\xfe"

SETTINGS = {
    "below_root": settings(UTF8 | BELOW_ROOT, "Invoices", ini("In").encode(), ini("D:\\In").encode()),
    "absolute_utf16": settings(0, "D:\\Hot\\Scans", BOM + utf16(ini("\"..\\..\\In\"", "'C:\\Out'")),
                               ini("In", script="").encode()),
    "long_values": settings(UTF8 | BELOW_ROOT, "Long", ini("x" * 300, "D:\\" + "o\\" * 140).encode(),
                            ini("..\\" * 90 + "In", "C:\\" + "y" * 258).encode()),
    "odd_files": settings(UTF8, "C:\\Users\\clerk\\AppData\\Local\\Tarnwick Hot Folders\\Case",
                          b"[tarnwick]\r\n  inputfolder =  In  \r\nOUTPUTFOLDER=\"Out\r\n[Tarnwick\r\nScript\r\n"
                          b"script= 's.py' \r\n[TARNWICK]\r\nScript=second.py\r\n\x1a",
                          b""),
    "dots": settings(UTF8 | BELOW_ROOT, "a\\..\\b", ini(".", "..\\..\\x", "\\Scripts\\s.py").encode(),
                     ini("C:", "\\\\server\\share\\out", "..\\..\\..\\..\\..\\..\\..\\s.py").encode()),
}

# --- control pipe -----------------------------------------------------------------------

PAUSE, RUN, STOP = 0x8000, 0x8001, 0x8002


def write(data, client=0):
    return bytes([16 * client + 0, len(data)]) + data


DRAIN = bytes([1])


def close(client=0):
    return bytes([16 * client + 2])


CONNECT = bytes([3])


def fail_next_read(error):
    return bytes([4]) + dword(error)


CONTROL_PIPE = {
    "commands": write(dword(RUN)) + DRAIN + write(dword(PAUSE)) + DRAIN + write(dword(STOP)) + DRAIN,
    "back_to_back": write(dword(RUN) + dword(PAUSE) + dword(0x12345678)) + DRAIN,
    "short_reads": write(dword(RUN)[:3]) + DRAIN + write(b"\x7f") + DRAIN + write(b"\x01\x80") +
        write(b"\x00\x00\x02") + DRAIN + write(b"") + DRAIN,
    "two_clients": CONNECT + write(dword(RUN), 1) + write(dword(STOP)) + DRAIN + close(0) + DRAIN +
        write(dword(PAUSE), 1) + DRAIN + close(1) + DRAIN,
    "failed_reads": write(dword(RUN)) + fail_next_read(5) + DRAIN + write(dword(STOP)) + DRAIN + CONNECT +
        fail_next_read(109) + write(dword(PAUSE), 1) + DRAIN,
    "close_with_bytes": write(dword(RUN) + b"\x00\x80") + close() + DRAIN,
}


def main():
    for target, seeds in (("change_records", CHANGE_RECORDS), ("settings", SETTINGS),
                          ("control_pipe", CONTROL_PIPE)):
        folder = CORPUS / target
        folder.mkdir(parents=True, exist_ok=True)
        for name, data in seeds.items():
            (folder / name).write_bytes(data)


if __name__ == "__main__":
    main()
