#!/usr/bin/env python3
"""Receives pen data: prints the first bytes of each report as it comes.

Usage: receive.py [PAD [REPORTS]], pads being numbered from 1.
"""

import queue
import sys

import vxpadcom

SHOWN = 8  # bytes of a report; what they mean differs from one pad model to another
PATIENCE_S = 10


def main(pad=1, wanted=100):
    reports = queue.SimpleQueue()
    vxpadcom.initialize()
    try:
        vxpadcom.receive(pad, reports.put)
        for _ in range(wanted):
            print(f"pad {pad}:", reports.get(timeout=PATIENCE_S)[:SHOWN].hex(" "))
    except queue.Empty:
        return "the pad has fallen silent"
    except vxpadcom.PadError as error:
        return str(error)
    finally:
        vxpadcom.deinitialize()
    print(f"{wanted} reports")
    return 0


if __name__ == "__main__":
    sys.exit(main(*(int(argument) for argument in sys.argv[1:3])))
