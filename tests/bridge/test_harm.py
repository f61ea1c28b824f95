"""Clients that mean harm end themselves only."""

import itertools
import os
import random
import resource
import signal
import socket
import struct
import time

import pytest

from bridge_client import CLOSE, PATIENCE, PING, TEXT, Bridge, eventually, is_well, numbers, read_head


@pytest.fixture(scope="module", autouse=True)
def silent():
    """A client that answers nothing, from the first test on: its time passes while others run."""
    with Bridge() as other, other.client() as connected:
        yield connected


def test_half_a_head_is_dropped_in_time(bridge):
    begin = time.monotonic()
    with bridge.connect() as connection:
        connection.sendall(bridge.head()[:-2])
        try:
            assert connection.recv(1) == b""
        except ConnectionResetError:
            pass
    assert 2 < time.monotonic() - begin < PATIENCE
    assert is_well(bridge)


@pytest.mark.parametrize("request_bytes", [
    b"\0" * 100, b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03" + bytes(500), b"GET\r\n\r\n", b"GET / HTTP/9.9\r\n\r\n",
    b"GET / HTTP/1.1\r\nHost\r\n\r\n", b"GET / HTTP/1.1\r\n Host: x\r\n\r\n", b"GET / HTTP/1.1\r\nHost: \xff\0\r\n\r\n",
    b"GET /" + b"a" * 20000 + b" HTTP/1.1\r\n\r\n", b"GET / HTTP/1.1\r\n" + b"a: b\r\n" * 5000 + b"\r\n",
    b"\r\n" * 5000, b"POST / HTTP/1.1\r\nContent-Length: -1\r\n\r\n",
    b"POST / HTTP/1.1\r\nContent-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n",
], ids=itertools.count())
def test_what_is_no_request(bridge, request_bytes):
    with bridge.connect() as connection:
        try:
            connection.sendall(request_bytes)
            connection.shutdown(socket.SHUT_WR)
            answer = read_head(connection)
        except OSError:
            answer = b""
    assert answer == b"" or answer.split()[1] in (b"400", b"403")
    assert is_well(bridge)


def frame(first, length, rest=b""):
    return bytes([first, length]) + rest


@pytest.mark.parametrize("data", [
    frame(0x81, 3, b"abc"),  # not masked
    frame(0x81, 0xFF, struct.pack(">Q", 1 << 62) + b"mask"),
    frame(0x81, 0xFF, struct.pack(">Q", 1 << 63) + b"mask"),
    frame(0x81, 0xFF, struct.pack(">Q", 65537) + b"mask"),
    frame(0xC1, 0x80, b"mask"),  # a reserved bit
    frame(0x83, 0x80, b"mask"),  # a kind that does not exist
    frame(0x80, 0x80, b"mask"),  # goes on where nothing has begun
    frame(0x89, 0xFE, struct.pack(">H", 126) + b"mask" + bytes(126)),  # a ping that is too long
    frame(0x09, 0x80, b"mask"),  # a ping in parts
    frame(0x81, 0x82, b"\0\0\0\0\xff\xfe"),  # no UTF-8
    frame(0x88, 0x81, b"\0\0\0\0\x01"),  # half a reason
    frame(0x01, 0x81, b"\0\0\0\0a") + frame(0x81, 0x81, b"\0\0\0\0a"),  # begins anew
    (frame(0x01, 0xFE, struct.pack(">H", 40000) + b"\0\0\0\0" + b" " * 40000) +
     frame(0x80, 0xFE, struct.pack(">H", 40000) + b"\0\0\0\0" + b" " * 40000)),  # too long in parts
], ids=itertools.count())
def test_what_is_no_frame_ends_its_client_only(bridge, client, data):
    with bridge.client() as other:
        other.socket.sendall(data)
        assert other.has_ended()
    assert client.ask(ask="list")["ok"]


def test_any_bytes(bridge, client):
    chance = random.Random(7)
    for _ in range(60):
        data = chance.randbytes(chance.randrange(1, 400))
        with bridge.connect() as connection:
            connection.sendall(data)
        with bridge.client() as other:
            other.socket.sendall(data)
    assert client.ask(ask="list")["ok"]


def test_a_flood_of_requests_is_answered_or_refused(client):
    count = 3000
    for number in range(count):
        client.send_frame(TEXT, b'{"id":%d,"ask":"list"}' % number)
    answered = set()
    while len(answered) < count:
        answer = client.receive()
        assert answer["ok"] or answer["error"] == "busy"
        answered.add(answer["id"])
    assert answered == set(range(count))


def test_pings_are_answered(client):
    client.send_frame(PING, b"here?")
    assert client.read_frame() == (10, b"here?")


def test_a_client_that_answers_no_ping_loses_its_connection(silent):
    kinds = []
    with pytest.raises((EOFError, ConnectionError)):
        while True:
            kinds.append(silent.read_frame()[0])
    assert PING in kinds


def test_a_slow_reader_loses_its_own_connection(bridge, client):
    pad = client.pads()["C3"]
    assert client.ask(ask="start", pad=pad)["ok"]
    with bridge.client() as slow:
        with pytest.raises(ConnectionError):
            for number in itertools.count():
                if number % 100 == 0:  # who answers no ping for half a minute is dropped
                    assert client.ask(ask="list")["ok"]
                slow.send_frame(TEXT, b'{"id":1,"ask":"start","pad":1,"layout":"%s"}' % (b"x" * 2000))
    bridge.ask_emulator("play 2 100 500")
    received = numbers(client.packets(), 100)
    assert received == list(range(received[0], received[0] + 100))
    assert client.ask(ask="stop", pad=pad)["ok"]


def test_a_thousand_connections(bridge, client):
    most = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
    before = bridge.descriptors()
    connections = []
    for number in range(1000):
        connection = bridge.connect()
        if number % 2:
            connection.sendall(b"GET / HT")
        connections.append(connection)
    eventually(lambda: bridge.descriptors() <= before + 40)
    assert client.ask(ask="list")["ok"]
    assert is_well(bridge)
    for connection in connections:
        connection.close()
    eventually(lambda: bridge.descriptors() <= before)


def test_no_more_clients_than_there_is_room_for(bridge):
    clients = []
    while True:
        with bridge.connect() as connection:
            connection.sendall(bridge.head())
            if not read_head(connection).startswith(b"HTTP/1.1 101"):
                break
        clients.append(bridge.client())
        assert len(clients) < 20
    assert clients[0].ask(ask="list")["ok"]
    for one in clients:
        one.send_frame(CLOSE, b"")
        one.socket.close()
    eventually(lambda: bridge.status(bridge.head()) == 101)


def test_no_more_clients_than_there_is_room_for_at_once():
    with Bridge() as bridge:
        connections = [bridge.connect() for _ in range(30)]
        eventually(lambda: bridge.has_accepted(connections))
        os.kill(bridge.pid, signal.SIGSTOP)
        for connection in connections:
            connection.sendall(bridge.head())
        os.kill(bridge.pid, signal.SIGCONT)
        statuses = [int(read_head(connection).split(b" ")[1]) for connection in connections]
        assert statuses.count(101) == 16 and statuses.count(503) == 14
        for connection in connections:
            connection.close()
        eventually(lambda: bridge.status(bridge.head()) == 101)
