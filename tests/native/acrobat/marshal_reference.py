#!/usr/bin/env python3
"""Python's own marshal module as the reference for job message payloads.

Texts travel as UTF-16LE in hexadecimal, so that surrogates without their
partner pass through unchanged.

    marshal_reference.py encode INPUT SCRIPT OUTPUT_FOLDER
        Prints, in hexadecimal, marshal.dumps of the dictionary
        {b"input": INPUT, b"script": SCRIPT, b"output_folder": OUTPUT_FOLDER}
        in marshal version 2: the newest version without the reference flags
        and short string forms that versions 3 and 4 add, so byte strings are
        's', texts 'u' in UTF-8 (surrogates passed through), the dictionary
        '{' ... '0', and the items in insertion order.

    marshal_reference.py reorder INPUT SCRIPT OUTPUT_FOLDER
        As encode, with the items inserted as output_folder, input, script.

    marshal_reference.py decode PAYLOAD
        Reads PAYLOAD (hexadecimal) back with marshal.loads and prints one line
        per item, in the order read: the key, a space, the text as UTF-16LE hex.
"""
import marshal
import sys


def text(hex_units):
    return bytes.fromhex(hex_units).decode("utf-16-le", "surrogatepass")


def units(value):
    return value.encode("utf-16-le", "surrogatepass").hex()


def main(argv):
    command = argv[1]
    if command in ("encode", "reorder"):
        values = {b"input": text(argv[2]), b"script": text(argv[3]), b"output_folder": text(argv[4])}
        order = [b"input", b"script", b"output_folder"]
        if command == "reorder":
            order = [b"output_folder", b"input", b"script"]
        print(marshal.dumps({key: values[key] for key in order}, 2).hex())
        return 0
    if command == "decode":
        for key, value in marshal.loads(bytes.fromhex(argv[2])).items():
            if not isinstance(key, bytes) or not isinstance(value, str):
                print("unexpected item types", type(key), type(value))
                return 1
            print(key.decode("ascii"), units(value))
        return 0
    print("unknown command", command, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
