#!/usr/bin/env python3
"""Receives pen data: prints the first bytes of each report as it comes.

Usage: receive.py [PAD [REPORTS]], pads being numbered from 1.
"""

import itertools
import sys

import vxpadcom

SHOWN = 8  # bytes of a report; what they mean differs from one pad model to another
PATIENCE_S = 10


def main(pad=1, wanted=100):
    try:
        with vxpadcom.open() as pads, pads[pad].receive(timeout=PATIENCE_S) as reports:
            for report in itertools.islice(reports, wanted):
                print(f"pad {pad}:", report[:SHOWN].hex(" "))
    except (vxpadcom.PadError, IndexError, TimeoutError) as error:
        return str(error)
    print(f"{wanted} reports")
    return 0


if __name__ == "__main__":
    sys.exit(main(*(int(argument) for argument in sys.argv[1:3])))
