#!/usr/bin/env python3
"""Receives from all pads side by side with asyncio and counts what comes, until each has been silent for three seconds."""

import asyncio
import sys

import vxpadcom


async def count(pad):
    reports = 0
    with pad.receive(timeout=3) as reception:
        try:
            async for _ in reception:
                reports += 1
        except (TimeoutError, vxpadcom.PadRemovedError) as end:
            print(f"{reports} reports, then: {end}")
    return reports


async def main():
    with vxpadcom.open() as pads:
        return sum(await asyncio.gather(*(count(pad) for pad in pads)))


if __name__ == "__main__":
    sys.exit(0 if asyncio.run(main()) else "no pad has sent anything")
