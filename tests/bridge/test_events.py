"""What the bridge tells by itself: pen data, and pads that come and go."""

import os
import signal
import time

import pytest

from bridge_client import LAYOUT, PATIENCE, Bridge, eventually, is_well, numbers


# ---- pen data ----


def test_every_packet_comes_to_everybody(bridge):
    with bridge.client() as one, bridge.client() as other:
        pad = one.pads()["C3"]
        for client, layout in ((one, LAYOUT), (other, "number=8:u32le")):
            assert client.ask(ask="start", pad=pad, layout=layout)["ok"]
        assert one.ask(ask="info", pad=pad)["receiving"] == [0]
        bridge.ask_emulator("play 2 1000 500")
        first = numbers(one.packets(), 1000)
        assert first == list(range(first[0], first[0] + 1000))
        assert numbers(other.packets(), 1000) == first
        assert one.ask(ask="stop", pad=pad)["ok"]
        assert other.ask(ask="info", pad=pad)["receiving"] == [0]
        bridge.ask_emulator("play 2 10 500")
        assert numbers(other.packets(), 10) == list(range(first[-1] + 1, first[-1] + 11))
        assert other.ask(ask="stop", pad=pad)["ok"]
        assert other.ask(ask="info", pad=pad)["receiving"] == []
        assert one.ask(ask="list")["ok"] and not any(event["event"] == "pen" for event in one.events)


def test_packets_are_told_whole(bridge, client):
    pad = client.pads()["A1"]
    assert client.ask(ask="start", pad=pad)["ok"]
    for first in (1, 2):
        bridge.ask_emulator(f"input 1 0 {first:02x}01" + "d2043412ff00")
    packets = client.packets()
    one, two = next(packets), next(packets)
    assert one["bytes"] == "0101d2043412ff00" + "00" * 56
    assert one["fields"] == {"x": 1234, "y": 0x1234, "pressure": 255, "number": 0}
    assert two["us"] >= one["us"]
    assert client.ask(ask="stop", pad=pad)["ok"]


def test_nothing_comes_behind_the_answer_to_the_stop(bridge, client):
    pad = client.pads()["C3"]
    assert client.ask(ask="start", pad=pad)["ok"]
    bridge.ask_emulator("play 2 loop 500")
    received = [packet["fields"]["number"] for packet in client.event("pen")["packets"]]
    assert client.ask(ask="stop", pad=pad)["ok"]
    for event in client.events:
        received += [packet["fields"]["number"] for packet in event["packets"]]
    assert received == list(range(received[0], received[0] + len(received)))
    client.events.clear()
    assert client.ask(ask="list")["ok"] and client.is_silent(0.3) and client.events == []
    bridge.ask_emulator("stop 2")


def test_a_client_that_leaves_ends_its_receiving(bridge, client):
    pad = client.pads()["C3"]
    with bridge.client() as other:
        assert other.ask(ask="start", pad=pad)["ok"]
    eventually(lambda: client.ask(ask="info", pad=pad)["receiving"] == [])


# ---- coming and going ----


def test_pads_come_and_go():
    with Bridge(pads=("--pad=type=16,serial=A1", "--vcom=type=16,serial=C3,pen=off")) as bridge, bridge.client() as client:
        before = client.pads()
        for number, serial in ((1, "A1"), (2, "C3")):
            bridge.ask_emulator(f"unplug {number}")
            assert client.event("unplugged")["pad"] == before[serial]
            assert client.ask(ask="get-feature", pad=before[serial])["error"] == "no-pad"
            bridge.ask_emulator(f"plug {number}")
            back = client.event("plugged")
            assert back["serial"] == serial and back["pad"] > max(before.values())
            before = client.pads()
            assert before[serial] == back["pad"] and len(before) == 2


def test_a_pad_that_is_pulled_out_while_it_sends():
    with Bridge("--layout", LAYOUT, pads=("--vcom=type=16,serial=C3,pen=loop", "--pad=type=16,serial=A1")) as bridge, \
            bridge.client() as client:
        pads = client.pads()
        assert client.ask(ask="start", pad=pads["C3"])["ok"]
        next(client.packets())
        bridge.ask_emulator("unplug 1")
        assert client.event("unplugged")["pad"] == pads["C3"]
        assert client.pads() == {"A1": pads["A1"]}


def test_pads_that_come_while_another_sends_wait():
    with Bridge(pads=("--vcom=type=16,serial=C3,pen=off", "--pad=type=16,serial=A1")) as bridge, bridge.client() as client:
        pads = client.pads()
        bridge.ask_emulator("unplug 2")
        client.event("unplugged")
        assert client.ask(ask="start", pad=pads["C3"], layout=LAYOUT)["ok"]
        bridge.ask_emulator("plug 2")
        bridge.ask_emulator("play 1 500 500")
        received = numbers(client.packets(), 500)
        assert received == list(range(received[0], received[0] + 500))
        assert client.ask(ask="stop", pad=pads["C3"])["ok"]
        assert client.event("plugged")["serial"] == "A1"
        assert client.pads()["C3"] == pads["C3"]


def test_a_request_that_meets_a_pad_being_pulled_out():
    with Bridge(pads=("--pad=type=16,serial=A1",)) as bridge, bridge.client() as client:
        pad = client.pads()["A1"]
        bridge.ask_emulator("fault 1 unplug,on=get-feature")
        assert client.ask(ask="get-feature", pad=pad)["error"] == "no-pad"
        assert client.event("unplugged")["pad"] == pad


def test_a_signal_while_a_request_waits_for_its_pad():
    with Bridge("--layout", LAYOUT, pads=("--vcom=type=16,serial=C3,pen=loop", "--pad=type=16,serial=A1")) as bridge, \
            bridge.client() as client:
        pads = client.pads()
        assert client.ask(ask="start", pad=pads["C3"])["ok"]
        bridge.ask_emulator("fault 2 silence,on=get-feature")
        for _ in range(16):
            client.send(ask="get-feature", pad=pads["A1"])
        time.sleep(0.2)
        assert bridge.end() == 0
        assert not bridge.address_file.exists()


@pytest.mark.parametrize("which", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
def test_a_signal_leaves_the_pads_in_order(which):
    with Bridge("--layout", LAYOUT) as bridge, bridge.client() as client:
        assert client.ask(ask="start", pad=client.pads()["C3"])["ok"]
        assert "biodata=1" in bridge.ask_emulator("ssp 1")
        os.kill(bridge.pid, which)
        assert client.has_ended()
        assert bridge.process.wait(PATIENCE) == 0
        assert not bridge.address_file.exists()


def test_a_closed_terminal_does_not_matter_where_it_was_to_be_ignored():
    before = signal.signal(signal.SIGHUP, signal.SIG_IGN)  # the bridge inherits it
    try:
        with Bridge() as bridge:
            os.kill(bridge.pid, signal.SIGHUP)
            assert is_well(bridge)
    finally:
        signal.signal(signal.SIGHUP, before)


def test_what_is_written_gets_into_no_log():
    os.environ["LIBVXPADCOM_DEBUG"] = os.environ["LIBVXPADCOM_DEBUG_FUNC"] = "1"
    try:
        with Bridge("--layout", LAYOUT) as bridge, bridge.client() as client:
            assert client.ask(ask="start", pad=client.pads()["C3"])["ok"]
            bridge.ask_emulator("play 1 20 500")
            numbers(client.packets(), 20)
            assert client.ask(ask="stop", pad=1)["ok"]
            assert bridge.end() == 0
            assert bridge.log() == "" and bridge.process.stdout.read() == ""
    finally:
        del os.environ["LIBVXPADCOM_DEBUG"], os.environ["LIBVXPADCOM_DEBUG_FUNC"]
