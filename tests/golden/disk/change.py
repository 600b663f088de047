"""Changes a precompiled file: change.py FILE NEW OFFSET:HEX... ["sign"].

The bytes at each offset are replaced; NEW may be shorter by OFFSET:cut. With "sign" the checksum is
made to fit again.
"""
import struct
import sys


def crc(data):
    register = 2**64 - 1
    for byte in data:
        register ^= byte if byte < 128 else byte | 0xFFFFFFFFFFFFFF00
        for _ in range(8):
            register = register >> 1 ^ (0xEDB88320EDB88320 if register & 1 else 0)
    return ~register % 2**64


old = open(sys.argv[1], "rb").read()
new = bytearray(old)
for change in sys.argv[3:]:
    if change == "sign":
        tables = struct.unpack("<Q", old[8:16])[0] - crc(old[16:])
        new[8:16] = struct.pack("<Q", (tables + crc(new[16:])) % 2**64)
    elif change.endswith(":cut"):
        del new[int(change[:-4]):]
    else:
        place, text = change.split(":")
        new[int(place):int(place) + len(text) // 2] = bytes.fromhex(text)
open(sys.argv[2], "wb").write(new)
