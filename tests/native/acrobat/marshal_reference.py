#!/usr/bin/env python3
"""Python's marshal for job payloads: the three texts (UTF-16LE in hex) as a dictionary, in two orders."""
import marshal
import sys

texts = [bytes.fromhex(units).decode("utf-16-le", "surrogatepass") for units in sys.argv[1:4]]
items = dict(zip([b"input", b"script", b"output_folder"], texts))
print(marshal.dumps(items, 2).hex())
print(marshal.dumps({key: items[key] for key in [b"output_folder", b"input", b"script"]}, 2).hex())
