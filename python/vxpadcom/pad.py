"""One pad."""

from __future__ import annotations

import ctypes
from typing import TYPE_CHECKING, Callable, NamedTuple, Optional

from ._errors import PadRemovedError
from ._library import ALL_INTERFACES, error_of, library, read_text
from .reception import Reception

if TYPE_CHECKING:
    from .session import Session

_PIECES_BETWEEN_PROGRESS = 1024
_LONGEST_MS = 0x7FFFFFFF


class Upload(NamedTuple):
    """How much of an upload the pad has taken, in bytes of the data."""

    sent: int
    total: int


class Pad:
    """A pad of a session, until that is closed or searches again. Interfaces are counted from 0."""

    def __init__(self, session: Session, number: int) -> None:
        self.session = session
        self.number = number

    def __repr__(self) -> str:
        return f"pad {self.number}"

    def check(self, result: int) -> None:
        """Raises what a call that failed has filed."""
        if result == 0:
            return
        error = error_of(result)
        if self.session.was_removed(self.number):
            error = PadRemovedError(error.code, error.function, error.message)
        raise error

    def _text(self, function: Callable[..., int], *arguments: int) -> str:
        result, text = read_text(function, self.number, *arguments)
        self.check(result)
        return text

    def _number(self, function: Callable[..., int], *arguments: int) -> int:
        reply = ctypes.c_uint()
        self.check(function(self.number, *arguments, reply))
        return reply.value

    @property
    def serial_number(self) -> str:
        return self._text(library.GetSerialNumber)

    @property
    def vendor_name(self) -> str:
        return self._text(library.GetVendorName)

    @property
    def product_name(self) -> str:
        return self._text(library.GetProductName, 0).rstrip(" ")

    @property
    def vendor_id(self) -> int:
        return self._number(library.GetVendorId)

    @property
    def product_id(self) -> int:
        return self._number(library.GetProductId, 0)

    @property
    def interface_count(self) -> int:
        return self._number(library.GetEndPointCount)

    def report_size(self, interface: int = 0) -> int:
        """Bytes of a full report."""
        return self._number(library.GetFeatureReportSize, interface) - 1

    def get_feature(self, size: Optional[int] = None, interface: int = 0) -> bytes:
        """A feature report, of the full size unless told otherwise."""
        room = ctypes.create_string_buffer(1 + (self.report_size(interface) if size is None else size))
        reply = ctypes.c_uint()
        self.check(library.GetFeature(self.number, interface, room, len(room), reply))
        return room.raw[1:]

    def set_feature(self, report: bytes, interface: int = 0) -> None:
        """Sends a feature report."""
        self._send(library.SetFeature, report, interface)

    def write(self, report: bytes, interface: int = 0) -> None:
        """Sends an output report."""
        self._send(library.WriteFile, report, interface)

    def _send(self, function: Callable[..., int], report: bytes, interface: int) -> None:
        reply = ctypes.c_uint()
        self.check(function(self.number, interface, b"\0" + report, 1 + len(report), reply))

    def read(self, size: Optional[int] = None, interface: int = 0) -> Optional[bytes]:
        """An input report that waits, or None. It has the pad's full size, 20 bytes for pads of type 1."""
        room = ctypes.create_string_buffer(1 + (self.report_size(interface) if size is None else size))
        reply = ctypes.c_uint(0)
        self.check(library.ReadFile(self.number, interface, room, len(room), reply))
        return room.raw[1:] if reply.value else None

    def receive(
        self, interface: int = 0, timeout: Optional[float] = None, seconds: Optional[float] = None
    ) -> Reception:
        """The input reports as they come, also the pen data of a pad that speaks SSP.

        With a timeout, so many seconds without one raise TimeoutError. With seconds, all ends after so many.
        """
        return Reception(self, interface, timeout, seconds)

    def upload(
        self, data: bytes, interfaces: int = ALL_INTERFACES, progress: Optional[Callable[[Upload], None]] = None
    ) -> Upload:
        """Sends data over several interfaces at once, bit i of interfaces being interface i.

        progress is called between parts. An upload that ends early has sent less than its total; the next one begins
        with its own first byte.
        """
        payload = self.report_size()
        part = payload * (_PIECES_BETWEEN_PROGRESS if progress else max(1, len(data)))
        sent = 0
        # Too short to be sent: it takes back the position that an upload which ended early has left.
        self.check(library.WriteFileBuffer(self.number, interfaces, b"\0", 1, ctypes.c_uint()))
        for start in range(0, len(data), part):
            length = min(part, len(data) - start)
            pieces = [
                b"\0" + data[at : at + payload].ljust(payload, b"\0") for at in range(start, start + length, payload)
            ]
            reply = ctypes.c_uint()
            block = b"".join(pieces)
            self.check(library.WriteFileBuffer(self.number, interfaces, block, len(block), reply))
            sent += min(length, reply.value // (payload + 1) * payload)
            if progress:
                progress(Upload(sent, len(data)))
            if reply.value < len(block):
                break
        return Upload(sent, len(data))

    def send_ssp(self, message: bytes, interface: int = 0) -> None:
        """Sends one SSP message."""
        self.check(library.SendSspMessage(self.number, interface, message, len(message)))

    def receive_ssp(self, timeout: float = 1.0, interface: int = 0, size: int = 4096) -> bytes:
        """One SSP message of at most size bytes that is no pen data; a failure where none comes in so many seconds."""
        room = ctypes.create_string_buffer(size)
        limit = min(max(round(timeout * 1000), 0), _LONGEST_MS)
        reply = ctypes.c_uint()
        self.check(library.ReceiveSspMessage(self.number, interface, room, size, limit, reply))
        return room.raw[: reply.value]
