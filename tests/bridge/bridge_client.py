"""The bridge over virtual pads, and a WebSocket client that can also misbehave."""

from __future__ import annotations

import base64
import json
import os
import pathlib
import re
import select
import signal
import socket
import struct
import subprocess
import tempfile
import time
from typing import Any, Dict, Iterator, List, Optional, Sequence, Set, Tuple, Union

ORIGIN = "https://counter.example"  # that of pages which the tests allow
LAYOUT = "x=2:u16le,y=4:u16le,pressure=6:u16le,number=8:u32le"
PATIENCE = 60  # seconds; on a busy machine everything takes long
TEXT, BINARY, CLOSE, PING, PONG = 1, 2, 8, 9, 10


class Bridge:
    """A bridge that runs over virtual pads until the `with` block ends."""

    def __init__(self, *options: str, pads: Sequence[str] = ("--vcom=type=16,serial=C3",)) -> None:
        self._directory = tempfile.TemporaryDirectory()
        self.directory = pathlib.Path(self._directory.name)
        self.address_file = self.directory / "vxpad-bridge" / "address"
        self._log = open(self.directory / "log", "w+")
        environment = {**os.environ, "XDG_RUNTIME_DIR": str(self.directory)}
        self.process = subprocess.Popen(
            ["vxpad-emulator", "run", *pads, "--", "sh", "-c", 'echo "$VXPAD_EMULATOR_CONTROL $$"; exec "$@"', "sh",
             "vxpad-bridge", "--port=0", *options],
            stdout=subprocess.PIPE, stderr=self._log, env=environment, text=True)
        assert self.process.stdout
        self.control, pid = self.process.stdout.readline().split()
        self.pid = int(pid)  # of the bridge itself
        self.said = self.process.stdout.readline()
        match = re.fullmatch(r"vxpad-bridge: http://127\.0\.0\.1:(\d+)/\n", self.said)
        assert match, (self.said, self.log())
        self.port = int(match[1])
        self.address = self.address_file.read_text().strip()
        self.token = self.address.split("?token=")[1]

    def __enter__(self) -> Bridge:
        return self

    def __exit__(self, *_: Any) -> None:
        status = self.end() if self.process.poll() is None else self.process.returncode
        log = self.log()
        self._directory.cleanup()
        assert status == 0, log

    def end(self) -> int:
        os.kill(self.pid, signal.SIGTERM)
        return self.process.wait(PATIENCE)

    def log(self) -> str:
        self._log.flush()
        return (self.directory / "log").read_text()

    def ask_emulator(self, request: str) -> str:
        with socket.socket(socket.AF_UNIX) as connection:
            connection.connect(self.control)
            connection.sendall(request.encode() + b"\n")
            reply = b""
            while not reply.endswith(b"\n\n"):
                part = connection.recv(4096)
                assert part
                reply += part
        assert reply.startswith(b"ok"), reply
        return reply.decode()

    def connect(self, address: str = "127.0.0.1") -> socket.socket:
        return socket.create_connection((address, self.port), PATIENCE)

    def head(self, target: Optional[str] = None, **fields: Optional[str]) -> bytes:
        """A request for the WebSocket; fields replace the usual ones, None leaves one out."""
        lines: Dict[str, Optional[str]] = {
            "Host": f"127.0.0.1:{self.port}", "Connection": "Upgrade", "Upgrade": "websocket",
            "Sec-WebSocket-Version": "13", "Sec-WebSocket-Key": base64.b64encode(os.urandom(16)).decode()}
        lines.update({name.replace("_", "-"): value for name, value in fields.items()})
        text = f"GET {f'/pads?token={self.token}' if target is None else target} HTTP/1.1\r\n"
        return (text + "".join(f"{name}: {value}\r\n" for name, value in lines.items() if value is not None)
                + "\r\n").encode("latin-1")

    def status(self, request: bytes) -> int:
        """What a request is answered with; 0 where nothing comes."""
        with self.connect() as connection:
            connection.sendall(request)
            answer = read_head(connection)
            return int(answer.split(b" ")[1]) if answer.startswith(b"HTTP/1.1 ") else 0

    def client(self, **fields: Optional[str]) -> Client:
        return Client(self, **fields)

    def descriptors(self) -> int:
        return len(os.listdir(f"/proc/{self.pid}/fd"))

    def has_accepted(self, connections: Sequence[socket.socket]) -> bool:
        """Whether the bridge holds all the other ends; until then they are nobody's, and their inodes 0."""
        rows = [line.split() for line in pathlib.Path("/proc/net/tcp").read_text().splitlines()]
        held = {row[2] for row in rows if row[1] == f"0100007F:{self.port:04X}" and row[9] != "0"}
        return held.issuperset(f"0100007F:{connection.getsockname()[1]:04X}" for connection in connections)


def read_head(connection: socket.socket) -> bytes:
    """Byte by byte, so that what comes behind it stays."""
    head = b""
    while not head.endswith(b"\r\n\r\n"):
        try:
            part = connection.recv(1)
        except ConnectionResetError:
            break
        if not part:
            break
        head += part
    return head


def eventually(holds: Any, what: str = "") -> None:
    deadline = time.monotonic() + PATIENCE
    while not holds():
        assert time.monotonic() < deadline, what
        time.sleep(0.02)


class Client:
    """A WebSocket to the bridge. Messages that are no answers are kept as events."""

    def __init__(self, bridge: Bridge, **fields: Optional[str]) -> None:
        self.socket = bridge.connect()
        self.socket.sendall(bridge.head(**fields))
        answer = read_head(self.socket)
        assert answer.startswith(b"HTTP/1.1 101 "), answer
        self.events: List[Dict[str, Any]] = []
        self._buffer = b""
        self._last_id = 0

    def __enter__(self) -> Client:
        return self

    def __exit__(self, *_: Any) -> None:
        self.socket.close()

    def send_frame(self, kind: int, data: bytes, final: bool = True, masked: bool = True) -> None:
        size = len(data)
        length = bytes([size]) if size < 126 else b"\x7e" + struct.pack(">H", size) if size < 65536 else \
            b"\x7f" + struct.pack(">Q", size)
        mask = os.urandom(4)
        repeated = (mask * (size // 4 + 1))[:size]
        body = (int.from_bytes(data, "big") ^ int.from_bytes(repeated, "big")).to_bytes(size, "big") if masked else data
        self.socket.sendall(bytes([0x80 * final | kind, 0x80 * masked | length[0]]) + length[1:] +
                            (mask if masked else b"") + body)

    def read_frame(self) -> Tuple[int, bytes]:
        first, length = self._take(2)
        if length == 126:
            length, = struct.unpack(">H", self._take(2))
        elif length == 127:
            length, = struct.unpack(">Q", self._take(8))
        return first & 15, self._take(length)

    def _take(self, size: int) -> bytes:
        while len(self._buffer) < size:
            part = self.socket.recv(1 << 16)
            if not part:
                raise EOFError("the bridge has closed the connection")
            self._buffer += part
        taken, self._buffer = self._buffer[:size], self._buffer[size:]
        return taken

    def receive(self) -> Dict[str, Any]:
        """The next message, whatever it is."""
        while True:
            kind, data = self.read_frame()
            if kind == TEXT:
                message: Dict[str, Any] = json.loads(data)
                return message
            if kind == PING:
                self.send_frame(PONG, data)
            elif kind == CLOSE:
                raise EOFError(f"the bridge says good bye: {struct.unpack('>H', data[:2])[0]}")

    def send(self, **request: Any) -> int:
        self._last_id += 1
        self.send_frame(TEXT, json.dumps({"id": self._last_id, **request}).encode())
        return self._last_id

    def answer_to(self, number: Union[None, int, Set[int]]) -> Dict[str, Any]:
        numbers = number if isinstance(number, set) else {number}
        while True:
            message = self.receive()
            if "event" not in message:
                assert message["id"] in numbers, message
                return message
            self.events.append(message)

    def ask(self, **request: Any) -> Dict[str, Any]:
        return self.answer_to(self.send(**request))

    def event(self, name: str) -> Dict[str, Any]:
        """The next event of that name that nobody has taken; others before it are dropped."""
        while self.events:
            event = self.events.pop(0)
            if event["event"] == name:
                return event
        while True:
            message = self.receive()
            assert "event" in message, message
            if message["event"] == name:
                return message

    def packets(self) -> Iterator[Dict[str, Any]]:
        while True:
            yield from self.event("pen")["packets"]

    def pads(self) -> Dict[str, int]:
        """The pads' numbers by their serial numbers."""
        return {pad["serial"]: pad["pad"] for pad in self.ask(ask="list")["pads"]}

    def has_ended(self) -> bool:
        """Whether the bridge ends the connection, however it does that."""
        try:
            while True:
                self.read_frame()
        except (EOFError, ConnectionError):
            return True
        except socket.timeout:
            return False

    def is_silent(self, seconds: float) -> bool:
        return not self._buffer and not select.select([self.socket], [], [], seconds)[0]


def numbers(packets, count):
    return [next(packets)["fields"]["number"] for _ in range(count)]


def is_well(bridge):
    with bridge.client() as client:
        return client.ask(ask="list")["ok"]
