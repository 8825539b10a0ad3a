#!/usr/bin/env python3
"""Turns the message-compiler source of the event log messages into:

- MessageIds.h: the message ids as constants the core reports with (both builds);
- MessageTable.cpp: the texts exactly as the message compiler stores them
  (every source line ends in CR LF), for the simulated event log (native build).

Usage: message_table.py SOURCE.mc OUT_HEADER OUT_TABLE
"""
import sys


def parse(path):
    with open(path, "rb") as f:
        raw = f.read().decode("ascii")
    lines = raw.split("\r\n")
    messages = []
    i = 0
    current = {}
    while i < len(lines):
        line = lines[i]
        if line.startswith(";") or not line.strip():
            i += 1
            continue
        key, _, value = line.partition("=")
        if key == "MessageId":
            current = {"id": int(value, 0)}
        elif key == "SymbolicName":
            current["name"] = value
        elif key == "Language":
            text = []
            i += 1
            while lines[i] != ".":
                text.append(lines[i] + "\r\n")
                i += 1
            current["text"] = "".join(text)
            messages.append(current)
        i += 1
    return messages


def cxx_literal(text):
    out = []
    for ch in text:
        if ch == "\r":
            out.append("\\r")
        elif ch == "\n":
            out.append("\\n")
        elif ch in '"\\':
            out.append("\\" + ch)
        else:
            out.append(ch)
    return 'u"' + "".join(out) + '"'


def main():
    source, header, table = sys.argv[1:4]
    messages = parse(source)
    with open(header, "w", newline="\n") as f:
        f.write("// Generated from Messages.mc: the event log message ids.\n#pragma once\n\n")
        f.write('#include "platform/Types.h"\n\nnamespace hf {\n\n')
        for m in messages:
            f.write(f"constexpr DWORD {m['name']} = {m['id']};\n")
        f.write("\n}  // namespace hf\n")
    with open(table, "w", newline="\n") as f:
        f.write("// Generated from Messages.mc: the texts of the message table.\n")
        f.write('#include "platform/sim/SimEventLog.h"\n\n#include <map>\n\nnamespace hf::sim {\n\n')
        f.write("std::u16string MessageTableText(DWORD id)\n{\n")
        f.write("    static std::map<DWORD, std::u16string> const texts = {\n")
        for m in messages:
            f.write(f"        {{{m['id']}, {cxx_literal(m['text'])}}},\n")
        f.write("    };\n    auto it = texts.find(id);\n")
        f.write("    return it == texts.end() ? std::u16string() : it->second;\n}\n\n}  // namespace hf::sim\n")


if __name__ == "__main__":
    main()
