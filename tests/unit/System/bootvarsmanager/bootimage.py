#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Reads and writes boot environment files by their description alone.

  bootimage.py read FILE            prints a line for each variable: key and value in hexadecimal
  bootimage.py write FILE [HEX HEX]...   writes a file of these keys and values
  bootimage.py check FILE           prints what is wrong, or nothing; exit status 1 when wrong
"""

import struct
import sys
import zlib

LARGEST = 65536
HEADER = 12


class Invalid(Exception):
    """The file is not a boot environment."""


def encode(variables):
    """Returns the bytes of a file with these variables, in the order of their names."""
    area = b"".join(key + b"\0" + value + b"\0\0"
                    for key, value in sorted(variables.items()) if value)
    if HEADER + len(area) > LARGEST:
        raise Invalid("too big")
    return struct.pack("<I", 0x00FFFFFF) + struct.pack(">II", zlib.crc32(area), len(area)) + area


def area_of(image):
    """Returns the variable area of a valid image."""
    if len(image) < HEADER:
        raise Invalid("shorter than its header")
    flags, = struct.unpack("<I", image[:4])
    crc, size = struct.unpack(">II", image[4:HEADER])
    if flags & 0xFF000000 or not flags & 0x00FF0000:
        raise Invalid(f"flags {flags:#010x}")
    area = image[HEADER:HEADER + size]
    if len(area) < size:
        raise Invalid(f"size {size} of {len(area)}")
    if size and zlib.crc32(area) != crc:
        raise Invalid(f"crc {crc:#010x}")
    return area


def decode(image):
    """Returns the variables of a valid image."""
    area, variables = area_of(image), {}
    while area:
        key, found, rest = area.partition(b"\0")
        value, ended, rest = rest.partition(b"\0")
        if not found or not ended or not rest.startswith(b"\0"):
            break
        variables[key], area = value, rest[1:]
    return variables


def main():
    """Returns the exit status."""
    verb, path, *words = sys.argv[1:]
    if verb == "write":
        fields = [bytes.fromhex(word) for word in words]
        with open(path, "wb") as file:
            file.write(encode(dict(zip(fields[::2], fields[1::2]))))
        return 0
    with open(path, "rb") as file:
        image = file.read()
    try:
        variables = decode(image)
    except Invalid as problem:
        print(problem)
        return 1
    if verb == "read":
        for key, value in variables.items():
            print(key.hex(), value.hex())
    return 0


if __name__ == "__main__":
    sys.exit(main())
