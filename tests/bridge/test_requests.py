"""What one may ask, and that the document says so."""

import itertools
import json
import pathlib
import re
import subprocess

import pytest

from bridge_client import BINARY, TEXT, Bridge, eventually, numbers


# ---- what one may ask ----


def test_list_and_info(client):
    pads = client.ask(ask="list")["pads"]
    assert [pad["serial"] for pad in pads] == ["A1", "C3"]
    pad = pads[0]
    assert pad["maker"] == "ACME" and pad["product"] == "Classic \ufffd" and pad["report_bytes"] == [64, 64]
    assert client.ask(ask="info", pad=pad["pad"]) == {"id": 2, "ok": True, **pad, "receiving": []}


def test_reports(bridge, client):
    pad = client.pads()["A1"]
    report = bytes([0x77, *range(1, 64)])
    assert client.ask(ask="set-feature", pad=pad, bytes=report.hex())["ok"]
    assert client.ask(ask="get-feature", pad=pad)["bytes"] == report.hex()
    assert len(client.ask(ask="get-feature", pad=pad, interface=1, size=20)["bytes"]) == 40
    assert client.ask(ask="write", pad=pad, interface=1, bytes="0102")["ok"]
    assert bridge.ask_emulator("log 1").endswith(" 1 0102\n\n")


@pytest.mark.parametrize("text", [
    "", "[]", "1", "null", '"list"', "{", "{}", '{"id":1}', '{"id":-1,"ask":"list"}', '{"id":"1","ask":"list"}',
    '{"id":1.5,"ask":"list"}', '{"id":9007199254740993,"ask":"list"}', '{"id":1e300,"ask":"list"}',
    '{"id":18446744073709551615,"ask":"list"}', '{"id":1,"ask":"nothing"}', '{"id":1,"ask":7}',
    '{"id":1,"ask":"list","pad":1}', '{"id":1,"ask":"info"}', '{"id":1,"ask":"info","pad":0}',
    '{"id":1,"ask":"info","pad":4294967296}', '{"id":1,"ask":"get-feature","pad":1,"interface":32}',
    '{"id":1,"ask":"get-feature","pad":1,"size":4097}', '{"id":1,"ask":"get-feature","pad":1,"size":0}',
    '{"id":1,"ask":"set-feature","pad":1}', '{"id":1,"ask":"set-feature","pad":1,"bytes":"0"}',
    '{"id":1,"ask":"set-feature","pad":1,"bytes":""}', '{"id":1,"ask":"write","pad":1,"bytes":"0x"}',
    '{"id":1,"ask":"write","pad":1,"bytes":"' + "00" * 4097 + '"}',
    '{"id":1,"ask":"start","pad":1,"layout":"x"}', '{"id":1,"ask":"start","pad":1,"layout":""}',
    '{"id":1,"ask":"start","pad":1,"layout":"' + "x=0:u8," * 1000 + '"}',
    '{"id":1,"ask":"ssp","pad":1}', '{"id":1,"ask":"ssp","pad":1,"bytes":"00000010","timeout":2001}',
    '{"id":1,"ask":"ssp","pad":1,"bytes":"00000010","timeout":0}',
    '{"id":1,"ask":"ssp","pad":1,"bytes":"00000010","size":1}',
    '{"id":1,"ask":"upload","pad":1}', '{"id":1,"ask":"upload","pad":1,"size":16777217}',
    '{"id":1,"ask":"upload","pad":1,"size":1,"interfaces":[]}', '{"id":1,"ask":"upload","pad":1,"size":1,"interfaces":[32]}',
    '{"id":1,"ask":"list","x":1e400}', '{"id":' + "9" * 60000 + ',"ask":"list"}', '{"id":1.0,"ask":"list"}',
    '{"id":1,"ask":"\\ud800"}', '{"id":1,"ask":"list\\u0000"}', '{"id":1,"ask":"info","pad":' + "[" * 30000,
    "[" * 60000, '{"a":' * 10000, '{"id":1,"ask":"list","ask":"list","\\u0000":1}', "\ufeff{}",
], ids=itertools.count())
def test_bad_requests_are_answered(client, text):
    client.send_frame(TEXT, text.encode())
    answer = client.receive()
    assert answer["ok"] is False and answer["error"] == "bad-request" and answer["message"]
    assert client.ask(ask="list")["ok"]


def test_pads_and_interfaces_that_are_not_there(client):
    pad = client.pads()["A1"]
    assert client.ask(ask="info", pad=77)["error"] == "no-pad"
    assert client.ask(ask="get-feature", pad=pad, interface=2)["error"] == "no-pad"
    assert client.ask(ask="start", pad=77)["error"] == "no-pad"
    assert client.ask(ask="stop", pad=77)["ok"]


# ---- SSP messages ----


COMPONENTS = "00000010"  # asks what the pad has


@pytest.mark.parametrize("serial", ["A1", "C3"])
def test_a_message_is_answered(client, serial):
    pad = client.pads()[serial]
    reply = client.ask(ask="ssp", pad=pad, bytes=COMPONENTS)
    assert reply["ok"] and bytes.fromhex(reply["bytes"])[3:5] == b"\x10\x01", reply
    assert client.ask(ask="ssp", pad=pad, interface=0, bytes=COMPONENTS, timeout=2000)["bytes"] == reply["bytes"]


@pytest.mark.parametrize("number,serial", [(1, "A1"), (2, "C3")])
def test_the_reply_to_another_message_is_nobodys(bridge, client, number, serial):
    pad = client.pads()[serial]
    wanted = client.ask(ask="ssp", pad=pad, bytes=COMPONENTS)["bytes"]
    bridge.ask_emulator(f"fault {number} twice,on=ssp,count=1")
    assert client.ask(ask="ssp", pad=pad, bytes="0000000f")["bytes"] == "0001000f02"  # which no pad knows
    for _ in range(3):
        assert client.ask(ask="ssp", pad=pad, bytes=COMPONENTS)["bytes"] == wanted
    bridge.ask_emulator(f"clear-faults {number}")


@pytest.mark.parametrize("number,serial", [(1, "A1"), (2, "C3")])
def test_a_message_that_is_not_answered(bridge, client, number, serial):
    pad = client.pads()[serial]
    bridge.ask_emulator(f"fault {number} drop,on=ssp")
    assert client.ask(ask="ssp", pad=pad, bytes=COMPONENTS, timeout=100)["error"] == "no-reply"
    bridge.ask_emulator(f"clear-faults {number}")
    assert client.ask(ask="ssp", pad=pad, bytes=COMPONENTS)["ok"]
    assert client.ask(ask="ssp", pad=99, bytes=COMPONENTS)["error"] == "no-pad"
    assert client.ask(ask="ssp", pad=pad, interface=7, bytes=COMPONENTS)["error"] == "no-pad"


def test_messages_of_several_clients_find_their_replies(bridge, client):
    with bridge.client() as other:
        for serial in ("A1", "C3"):
            pad = client.pads()[serial]
            other.pads()
            asked = {client: COMPONENTS, other: "0000000f"}  # which no pad knows
            for one, message in asked.items():
                for _ in range(8):
                    one.send(ask="ssp", pad=pad, bytes=message)
            replies = {one: {one.answer_to(set(range(1, 100)))["bytes"][6:10] for _ in range(8)} for one in asked}
            assert replies == {client: {"1001"}, other: {"0f02"}}


def test_messages_leave_pen_data_whole(bridge, client):
    pad = client.pads()["C3"]
    assert client.ask(ask="start", pad=pad)["ok"]
    bridge.ask_emulator("play 2 500 500")
    for _ in range(20):
        assert client.ask(ask="ssp", pad=pad, bytes=COMPONENTS)["bytes"][6:10] == "1001"
    received = numbers(client.packets(), 500)
    assert received == list(range(received[0], received[0] + 500))
    assert client.ask(ask="stop", pad=pad)["ok"]


@pytest.mark.parametrize("pads,fault", [(("--pad=type=16,serial=A1",), "set-feature"),
                                        (("--vcom=type=16,serial=A1,pen=off",), "bulk-out"),
                                        (("--vcom=type=16,serial=A1,pen=off",), "bulk-in")])
def test_a_message_to_a_pad_that_is_pulled_out(pads, fault):
    with Bridge(pads=pads) as bridge, bridge.client() as client:
        pad = client.pads()["A1"]
        bridge.ask_emulator(f"fault 1 unplug,on={fault}")
        assert client.ask(ask="ssp", pad=pad, bytes=COMPONENTS)["error"] == "no-pad"
        assert client.event("unplugged")["pad"] == pad


# ---- uploads ----


def send_upload(client, data, piece=50000, **fields):
    number = client.send(ask="upload", size=len(data), **fields)
    for at in range(0, len(data), piece):
        client.send_frame(BINARY, data[at:at + piece])
    return client.answer_to(number)


def test_an_upload_arrives_with_progress(bridge, client):
    pad = client.pads()["A1"]
    bridge.ask_emulator("reset-uploads 1")
    data = bytes(64 * 300 - 10)
    client.events.clear()
    assert send_upload(client, b"\x55" + data[1:], pad=pad, interfaces=[0, 1])["sent"] == len(data)
    progress = [(event["sent"], event["total"]) for event in client.events if event["event"] == "progress"]
    assert len(progress) == 3 and progress[-1] == (len(data), len(data)) and progress == sorted(progress)
    assert "received=300 " in bridge.ask_emulator("uploads 1")


def test_one_upload_at_a_time(bridge, client):
    pad = client.pads()["A1"]
    number = client.send(ask="upload", pad=pad, size=100)
    with bridge.client() as other:
        assert other.ask(ask="upload", pad=pad, size=100)["error"] == "busy"
        other.send_frame(BINARY, b"123")
        assert other.receive()["error"] == "bad-request"
    client.send_frame(BINARY, bytes(60))
    client.send_frame(BINARY, bytes(60))
    assert client.answer_to(number)["error"] == "bad-request"
    assert send_upload(client, b"\x55" * 100, pad=pad)["sent"] == 100


def is_upload_taken(client, pad):
    """Whether nobody else's upload is under way."""
    number = client.send(ask="upload", pad=pad, size=64)
    client.send_frame(TEXT, b'{"id":0,"ask":"list"}')  # its answer comes first where the upload was begun
    answer = client.answer_to({number, 0})
    if answer["id"] == number:
        assert answer["error"] == "busy" and client.answer_to(0)["ok"]
        return False
    client.send_frame(BINARY, b"\x55" * 64)
    return client.answer_to(number)["sent"] == 64


def test_an_upload_that_is_left_makes_way(bridge, client):
    pad = client.pads()["A1"]
    with bridge.client() as other:
        other.send(ask="upload", pad=pad, size=100)
        other.send_frame(BINARY, bytes(10))
        assert other.ask(ask="list")["ok"]
    eventually(lambda: is_upload_taken(client, pad))


def test_an_upload_to_no_pad_fails(client):
    assert send_upload(client, b"123", pad=99)["error"] == "no-pad"
    assert send_upload(client, b"123", pad=client.pads()["A1"], interfaces=[7])["error"] == "failed"


def test_a_pad_that_is_pulled_out_during_an_upload():
    with Bridge(pads=("--pad=type=16,serial=A1,unknown=loop-back",)) as bridge, bridge.client() as client:
        pad = client.pads()["A1"]
        bridge.ask_emulator("fault 1 unplug,on=set-feature,after=200")
        assert send_upload(client, b"\x55" * 64 * 1000, pad=pad)["error"] == "no-pad"
        assert client.event("unplugged")["pad"] == pad
        bridge.ask_emulator("clear-faults 1")
        bridge.ask_emulator("plug 1")
        assert send_upload(client, b"\x55" * 640, pad=client.event("plugged")["pad"])["sent"] == 640


def test_an_upload_whose_client_leaves_while_it_is_sent(bridge, client):
    pad = client.pads()["A1"]
    with bridge.client() as other:
        other.send(ask="upload", pad=pad, size=64 * 2000)
        for _ in range(2):
            other.send_frame(BINARY, b"\x55" * 64 * 1000)
        assert other.event("progress")["sent"] < 64 * 2000
    eventually(lambda: is_upload_taken(client, pad))


# ---- what the document says ----


def members(message):
    return {name: members(value) if isinstance(value, dict) else type(value).__name__
            for name, value in message.items()}


def test_the_examples_of_the_document():
    text = (pathlib.Path(__file__).parents[2] / "docs" / "bridge.md").read_text()
    examples = re.findall(r"^    ([→←]) (\{.*)$", text, re.MULTILINE)
    asked = {json.loads(example)["ask"] for way, example in examples if way == "→"}
    assert asked == {"list", "info", "get-feature", "set-feature", "write", "ssp", "start", "stop", "upload"}
    with Bridge("--layout", "x=2:u16le,y=4:u16le,pressure=6:u16le",
                pads=("--pad=type=16,serial=A1,interfaces=2,unknown=loop-back",)) as bridge, bridge.client() as client:
        for way, example in examples:
            message = json.loads(example)
            if way == "→":
                client.send_frame(TEXT, example.encode())
                if message["ask"] == "upload":
                    client.send_frame(BINARY, b"123")
                continue
            if message.get("event") == "pen":
                bridge.ask_emulator("input 1 0 50010a01")
            if message.get("event") == "unplugged":
                bridge.ask_emulator("unplug 1")
            if message.get("event") == "plugged":
                bridge.ask_emulator("plug 1")
            told = client.event(message["event"]) if "event" in message else client.answer_to(message["id"])
            assert members(told) == members(message)
            if message.get("ask") not in ("list", "info") and "vendor_id" not in str(message) and "us" not in str(message):
                assert told == message


def test_help_fits_a_terminal():
    text = subprocess.run(["vxpad-bridge", "--help"], stdout=subprocess.PIPE, text=True, check=True).stdout
    assert all(len(line) <= 100 for line in text.splitlines())
    assert subprocess.run(["vxpad-bridge", "--nothing"], stderr=subprocess.DEVNULL).returncode == 2
    with open("/dev/full", "w") as full:
        assert subprocess.run(["vxpad-bridge", "--help"], stdout=full, stderr=subprocess.DEVNULL).returncode == 1
