"""The pads that run.sh plugs in: 1 classic, 2 HID with SSP, 3 VCOM."""

import os
import pathlib
import socket

import pytest

import vxpadcom

SOURCE = pathlib.Path(__file__).parents[2]


def ask_emulator(request):
    """The reply to a control request."""
    with socket.socket(socket.AF_UNIX) as connection:
        connection.connect(os.environ["VXPAD_EMULATOR_CONTROL"])
        connection.sendall(request.encode() + b"\n")
        reply = b""
        while not reply.endswith(b"\n\n"):
            part = connection.recv(4096)
            assert part, "the emulator has closed the connection"
            reply += part
    assert reply.startswith(b"ok"), reply
    return reply.decode()


@pytest.fixture
def emulator():
    yield ask_emulator
    for number in (1, 2, 3):
        if "plugged=0" in ask_emulator(f"state {number}"):
            ask_emulator(f"plug {number}")
        ask_emulator(f"stop {number}")


@pytest.fixture
def pads(emulator):
    with vxpadcom.open() as session:
        numbers = {pad.serial_number: pad.number for pad in session}
        assert numbers == {"A1": 1, "B2": 2, "C3": 3}
        yield session


@pytest.fixture
def layout():
    return vxpadcom.Layout.load(SOURCE / "emulator/virtual-pad.layout")
