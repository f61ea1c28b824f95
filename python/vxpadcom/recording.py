"""Recordings, as `vxpadctl record` writes them."""

from __future__ import annotations

import dataclasses
import os
import re
from typing import Callable, Dict, Iterable, List, NamedTuple, Union

_FIRST_LINE = "vxpadcom-recording 1"
_LARGEST_PACKET = 4096
_MOST_PACKETS = 1_000_000
_LONGEST_US = 7 * 24 * 3600 * 1_000_000
_HEX = re.compile("(?:[0-9a-fA-F]{2})+")
_UNSAFE = re.compile("[\x00-\x1f\x7f-\x9f\u061c\u200b-\u200f\u2028-\u202e\u2060-\u206f\ufeff\\\\]")
_ESCAPE = re.compile(r"\\(?:x([0-9a-f]{2})|u([0-9a-f]{4})|(\\))")


class Packet(NamedTuple):
    at_us: int  # microseconds since the first packet
    data: bytes


def _escape(text: str) -> str:
    def escaped(match: "re.Match[str]") -> str:
        c = ord(match[0])
        return "\\\\" if match[0] == "\\" else f"\\x{c:02x}" if c < 0x100 else f"\\u{c:04x}"

    return _UNSAFE.sub(escaped, text)


def _unescape(text: str) -> str:
    return _ESCAPE.sub(lambda match: "\\" if match[3] else chr(int(match[1] or match[2], 16)), text)


def _number(text: str, largest: int, smallest: int = 0) -> int:
    if not re.fullmatch("[0-9]{1,15}", text) or not smallest <= int(text) <= largest:
        raise ValueError(f"'{text}' is no number from {smallest} to {largest}")
    return int(text)


@dataclasses.dataclass
class Recording:
    """What a pad sent, and when."""

    packets: List[Packet] = dataclasses.field(default_factory=list)
    maker: str = ""
    product: str = ""
    serial: str = ""
    interface: int = 0
    packet_size: int = _LARGEST_PACKET

    @classmethod
    def load(cls, file: Union[str, os.PathLike[str]]) -> Recording:
        """Raises ValueError, with the number of the line that is wrong."""
        with open(file, encoding="utf-8", errors="replace", newline="\n") as lines:
            return cls.parse(lines)

    @classmethod
    def parse(cls, lines: Iterable[str]) -> Recording:
        recording = cls()
        number = 0
        for number, line in enumerate(lines, 1):
            try:
                recording._take(number, line.strip())
            except ValueError as error:
                raise ValueError(f"line {number}: {error}") from None
        if number == 0:
            raise ValueError(f"a recording begins with the line '{_FIRST_LINE}'")
        return recording

    def _take(self, number: int, line: str) -> None:
        if number == 1:
            if line.split() != _FIRST_LINE.split():
                raise ValueError(f"a recording begins with the line '{_FIRST_LINE}'")
        elif "0" <= line[:1] <= "9":
            self._take_packet(*line.split(None, 1))
        elif line and not line.startswith("#"):
            self._take_header(*line.split(None, 1))

    def _take_header(self, key: str, value: str = "") -> None:
        setters: Dict[str, Callable[[], object]] = {
            "maker": lambda: _unescape(value),
            "product": lambda: _unescape(value),
            "serial": lambda: _unescape(value),
            "interface": lambda: _number(value, 254),
            "packet-size": lambda: _number(value, _LARGEST_PACKET, 1),
        }
        if key not in setters:
            raise ValueError("neither a packet nor one of the header lines")
        if self.packets:
            raise ValueError("header lines belong before the first packet")
        setattr(self, key.replace("-", "_"), setters[key]())

    def _take_packet(self, time: str, digits: str = "") -> None:
        packet = Packet(_number(time, _LONGEST_US), self._bytes("".join(digits.split())))
        if self.packets and packet.at_us < self.packets[-1].at_us:
            raise ValueError("older than the packet before it")
        if len(self.packets) == _MOST_PACKETS:
            raise ValueError(f"more than {_MOST_PACKETS} packets")
        self.packets.append(packet)

    def _bytes(self, digits: str) -> bytes:
        if not _HEX.fullmatch(digits) or len(digits) > 2 * self.packet_size:
            raise ValueError(f"a packet has 1 to {self.packet_size} bytes, in hexadecimal digits")
        return bytes.fromhex(digits)

    def save(self, file: Union[str, os.PathLike[str]]) -> None:
        with open(file, "w", encoding="utf-8", newline="\n") as lines:
            lines.write(self.text())

    def text(self) -> str:
        header = {"maker": self.maker, "product": self.product, "serial": self.serial}
        lines = [_FIRST_LINE]
        lines += [f"{key} {_escape(value)}" for key, value in header.items() if value]
        lines += [f"interface {self.interface}", f"packet-size {self.packet_size}"]
        lines += [f"{packet.at_us} {packet.data.hex()}" for packet in self.packets]
        return "\n".join(lines) + "\n"
