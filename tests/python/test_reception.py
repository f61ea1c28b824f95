import asyncio
import ctypes
import gc
import os
import sys
import time

import pytest

import vxpadcom
from vxpadcom import reception


def numbers_of(reports, count, layout):
    return [layout.decode(next(reports))["number"] for _ in range(count)]


def test_every_report_comes_in_order(pads, emulator, layout):
    with pads[3].receive(timeout=5) as reports:
        emulator("play 3 1000 500")
        numbers = numbers_of(reports, 1000, layout)
    assert numbers == list(range(numbers[0], numbers[0] + 1000))
    assert reports.lost == 0


def test_input_reports_come_in_order(pads, emulator, layout):
    with pads[1].receive(timeout=5) as reports:
        emulator("play 1 loop 500")
        numbers = numbers_of(reports, 500, layout)
    # hidapi keeps 32 reports: on a machine that is busy elsewhere for long it drops some
    assert numbers == sorted(set(numbers))


def test_asyncio_receives_beside_another_task(pads, emulator):
    async def count(reports):
        received = 0
        async for _ in reports:
            received += 1
            if received == 500:
                return received

    async def main():
        ticks = 0
        with pads[1].receive(timeout=5) as reports:
            emulator("play 1 loop 500")
            task = asyncio.ensure_future(count(reports))
            while not task.done():
                ticks += 1
                await asyncio.sleep(0.01)
        return task.result(), ticks

    received, ticks = asyncio.run(main())
    assert received == 500
    assert ticks > 10


def test_pads_that_speak_ssp_send_pen_data_while_received_from(pads, emulator, layout):
    with pads[3].receive(timeout=5) as reports:
        assert "biodata=1" in emulator("ssp 3")
        assert {"x", "y", "pressure"} <= layout.decode(next(reports)).keys()
    deadline = time.monotonic() + 5
    while "biodata=0" not in emulator("ssp 3") and time.monotonic() < deadline:
        time.sleep(0.01)
    assert "biodata=0" in emulator("ssp 3")


def test_receiving_ends_after_its_seconds(pads, emulator):
    emulator("play 1 loop 100")
    begin = time.monotonic()
    with pads[1].receive(seconds=0.6) as reports:
        assert list(reports)
    with pads[2].receive(seconds=0.3) as reports:  # a silent one

        async def receive():
            return [report async for report in reports]

        assert asyncio.run(receive()) == []
    assert time.monotonic() - begin > 0.9


def test_a_silent_pad_times_out(pads):
    with pads[1].receive(timeout=0.1) as reports:
        with pytest.raises(TimeoutError):
            next(reports)
        with pytest.raises(TimeoutError):
            asyncio.run(reports.get_async(timeout=0.1))


def test_a_removed_pad_ends_the_iteration(pads, emulator):
    with pads[1].receive(timeout=10) as reports:
        emulator("input 1 0 0102")
        assert next(reports)[:2] == b"\x01\x02"
        emulator("unplug 1")
        with pytest.raises(vxpadcom.PadRemovedError):
            next(reports)
    with pads[2].receive(timeout=10) as reports:
        emulator("unplug 2")
        with pytest.raises(vxpadcom.PadRemovedError):
            asyncio.run(reports.get_async())


def test_the_end_of_block_or_session_ends_the_iteration(pads, emulator):
    with pads[1].receive() as reports:
        pass
    assert list(reports) == []
    with pads[1].receive() as reports:
        pads.search()
        assert list(reports) == []
        with pytest.raises(EOFError):
            reports.get()
    assert pads[1].get_feature()


def test_an_interface_is_received_from_once(pads):
    with pads[1].receive():
        with pytest.raises(RuntimeError):
            with pads[1].receive():
                pass
        with pads[1].receive(interface=1):
            pass


def test_a_start_that_fails_leaves_nothing_behind(pads):
    with pytest.raises(vxpadcom.PadError, match="there is no interface 2 of pad 1"):
        with pads[1].receive(interface=2):
            pass
    with pytest.raises(vxpadcom.PadError, match="interface 0 of pad 9 cannot be received from"):
        with vxpadcom.Pad(pads, 9).receive():
            pass
    with pads[1].receive():
        pass


def test_what_nobody_takes_is_lost_and_counted(pads, emulator, monkeypatch):
    monkeypatch.setattr(reception, "MOST_WAITING", 10)
    with pads[1].receive(timeout=5) as reports:
        emulator("play 1 50 100")
        deadline = time.monotonic() + 10
        while reports.lost < 40 and time.monotonic() < deadline:
            time.sleep(0.01)
    assert reports.lost == 40
    assert len(list(reports)) == 10


def bytes_of_malloc():
    """What the C library has handed out and not got back, of all that is not Python's own."""

    class Counts(ctypes.Structure):
        _fields_ = [
            (name, ctypes.c_size_t)
            for name in "arena ordblks smblks hblks hblkhd usmblks fsmblks uordblks fordblks keepcost".split()
        ]

    mallinfo2 = ctypes.CDLL(None).mallinfo2
    mallinfo2.restype = Counts
    counts = mallinfo2()
    return counts.uordblks + counts.hblkhd


def test_a_hundred_starts_and_stops_leave_nothing_behind(emulator):
    def held():
        gc.collect()
        return len(os.listdir("/proc/self/fd")), len(os.listdir("/proc/self/task"))

    def start_and_stop(receives):
        with vxpadcom.open() as pads:
            assert len(pads) == 3
            if receives:
                with pads[1].receive(timeout=5) as reports:
                    emulator("input 1 0 01")
                    assert next(reports)

    for _ in range(5):
        start_and_stop(receives=True)
    before, memory, blocks = held(), bytes_of_malloc(), sys.getallocatedblocks()
    for count in range(100):
        start_and_stop(receives=count % 10 == 0)
    deadline = time.monotonic() + 5  # a thread that was joined may have a moment to go
    while held() != before and time.monotonic() < deadline:
        time.sleep(0.01)
    assert held() == before
    # one lost block of 64 bytes, or one Python object, for each start would be more
    assert bytes_of_malloc() - memory < 6400
    assert sys.getallocatedblocks() - blocks < 100
