#!/usr/bin/env python3
"""Sends a file to a pad, for example an image in the pad's own format, over all of its interfaces at once.

Usage: upload.py FILE [PAD], pads being numbered from 1.
"""

import pathlib
import sys

import vxpadcom


def main(file, pad=1):
    try:
        with vxpadcom.open() as pads:
            upload = pads[int(pad)].upload(pathlib.Path(file).read_bytes())
    except (OSError, vxpadcom.PadError, IndexError) as error:
        return str(error)
    print(f"sent {upload.sent} of {upload.total} bytes")
    return 0 if upload.sent == upload.total else "the pad did not take everything"


if __name__ == "__main__":
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
