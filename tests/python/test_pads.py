import logging
import os
import subprocess
import sys
import threading

import pytest

import vxpadcom


def test_a_pad_tells_who_it_is(pads):
    pad = pads[1]
    assert (pad.product_name, pad.vendor_name, pad.serial_number) == ("Classic \ufffd", "ACME", "A1")
    assert pad.interface_count == 2
    assert pad.report_size() == 64
    assert 0 < pad.vendor_id < 0x10000 and 0 < pad.product_id < 0x10000
    assert [repr(pad) for pad in pads] == ["pad 1", "pad 2", "pad 3"]


def test_there_is_no_pad_0_and_none_beyond_the_last(pads):
    assert len(pads) == 3
    for number in (0, -1, 4):
        with pytest.raises(IndexError) as failure:
            pads[number]
        assert isinstance(failure.value, vxpadcom.PadError)
        assert str(failure.value) == f"there is no pad {number}: only 1 to 3 ('vxpadctl list' tells why)"


def test_that_no_pad_was_found_is_told(pads, emulator):
    for number in (1, 2, 3):
        emulator(f"unplug {number}")
    pads.search()
    with pytest.raises(vxpadcom.NoPadError, match="there is no pad 1: none was found"):
        pads[1]


def test_a_library_that_is_missing_is_named():
    code = subprocess.run(
        [sys.executable, "-c", "import vxpadcom"],
        env={**os.environ, "VXPADCOM_LIBRARY": "/nowhere/libvxpadcom.so.0"}, capture_output=True, text=True,
    )
    assert code.returncode == 1
    assert code.stderr.splitlines()[-1].startswith("ImportError: /nowhere/libvxpadcom.so.0: ")
    assert "install libvxpadcom" in code.stderr


def test_feature_reports_go_there_and_back(pads):
    report = bytes(range(0x80, 0xC0))
    pads[1].set_feature(report)
    assert pads[1].get_feature() == report


def test_input_reports_are_fetched_one_by_one(pads, emulator):
    assert pads[1].read() is None
    emulator("input 1 0 0102ff")
    report = None
    while report is None:
        report = pads[1].read()
    assert report[:4] == b"\x01\x02\xff\x00" and len(report) == 64


def test_output_reports_reach_the_pad(pads, emulator):  # as feature reports, which is how the library sends them
    pads[1].write(b"\x77" * 64)
    assert "out feature 0 " + "77" * 64 in emulator("log 1")


def test_a_failure_has_code_function_and_message(pads):
    with pytest.raises(vxpadcom.PadError) as failure:
        pads[1].get_feature(size=0)
    assert failure.value.code is vxpadcom.ErrorCode.INVALID_PARAMETER
    assert failure.value.function == "GetFeature"
    assert "dst_length" in failure.value.message
    assert not isinstance(failure.value, vxpadcom.PadRemovedError)


def test_a_removed_pad_is_told_and_found_again(emulator):
    removed = []
    with vxpadcom.open(on_removed=removed.append) as pads:
        pad = pads[1]
        emulator("unplug 1")
        for _ in range(2):
            with pytest.raises(vxpadcom.PadRemovedError):
                pad.get_feature()
        assert removed == [pad]
        emulator("plug 1")
        pads.search()
        assert pads[1].get_feature()


def test_one_session_at_a_time(pads):
    with pytest.raises(RuntimeError):
        vxpadcom.open()
    pads.close()
    pads.close()  # harmless
    with vxpadcom.open() as another:
        assert len(another) == 3
        pads.close()  # not this one's
        assert another[1].serial_number == "A1"


def test_a_closed_session_s_pads_fail(pads):
    pad = pads[1]
    pads.close()
    assert len(pads) == 0
    with pytest.raises(vxpadcom.PadError):
        pad.get_feature()


def test_an_upload_arrives_with_progress(pads, emulator):
    emulator("reset-uploads 1")
    data = bytes(range(256)) * 1000
    seen = []
    assert pads[1].upload(data, progress=seen.append) == (len(data), len(data))
    assert [part.sent for part in seen] == [65536, 131072, 196608, 256000]
    assert "received=4000 " in emulator("uploads 1")
    assert pads[1].upload(data, interfaces=1) == (len(data), len(data))
    assert pads[1].upload(b"") == (0, 0)


def test_an_upload_to_a_pad_that_is_pulled_is_not_complete(pads, emulator):
    seen = []

    def unplug(part):
        if part not in seen:
            seen.append(part)
            emulator("unplug 1")

    with pytest.raises(vxpadcom.PadRemovedError):
        upload = pads[1].upload(bytes(200_000), progress=unplug)
        assert upload == (65536, 200_000)
        pads[1].get_feature()


def test_an_upload_begins_anew_after_one_that_was_broken_off(pads, emulator):
    emulator("fault 1 unplug,on=set-feature,after=100")
    broken = pads[1].upload(bytes(200_000))
    assert broken.sent < broken.total
    emulator("clear-faults 1")
    emulator("plug 1")
    pads.search()
    assert pads[1].upload(bytes(200_000)) == (200_000, 200_000)
    assert "received=3125 " in emulator("uploads 1")


@pytest.mark.parametrize("number", [2, 3])
def test_ssp_messages_go_there_and_back(pads, number):
    pads[number].send_ssp(bytes.fromhex("00000010"))  # which components are there?
    assert pads[number].receive_ssp()[:4] == bytes.fromhex("00060010")


def test_a_time_out_of_ssp_is_a_failure(pads):
    with pytest.raises(vxpadcom.PadError) as failure:
        pads[3].receive_ssp(timeout=0.05)
    assert failure.value.function == "ReceiveSspMessage"
    with pytest.raises(vxpadcom.PadError):
        pads[3].receive_ssp(timeout=-1)  # no time at all


def test_messages_reach_a_logger(emulator, caplog):
    caplog.set_level(logging.INFO, "pads")
    with vxpadcom.open(logger=logging.getLogger("pads")) as pads:
        with pytest.raises(vxpadcom.PadError):
            pads[1].get_feature(size=0)
    levels = {record.levelno for record in caplog.records}
    assert levels == {logging.INFO, logging.ERROR}
    assert any("dst_length is <= 1" in record.getMessage() for record in caplog.records)


def test_pads_serve_several_threads(pads):
    wrong = []

    def exchange(number):
        for count in range(200):
            report = bytes([0x80 + number, count]) * 32
            pads[1].set_feature(report, interface=0)
            if len(pads[1].get_feature()) != 64 or not pads[number].serial_number:
                wrong.append(number)

    threads = [threading.Thread(target=exchange, args=(number,)) for number in (1, 2, 3)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not wrong
