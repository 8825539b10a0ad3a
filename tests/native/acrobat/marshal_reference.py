#!/usr/bin/env python3
"""Job messages by Python's marshal: the three texts (UTF-16LE in hex) as a dictionary after its length, in two orders."""
import marshal
import sys

texts = [bytes.fromhex(units).decode("utf-16-le", "surrogatepass") for units in sys.argv[1:4]]
for order in ([0, 1, 2], [2, 0, 1]):
    payload = marshal.dumps({[b"input", b"script", b"output_folder"][i]: texts[i] for i in order}, 2)
    print((len(payload).to_bytes(4, "little") + payload).hex())
