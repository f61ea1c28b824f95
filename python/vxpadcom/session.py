"""The library's start and stop, and the list of pads."""

from __future__ import annotations

import atexit
import ctypes
import logging
import threading
from types import TracebackType
from typing import Callable, Dict, Iterator, List, Optional, Set, Tuple, Type

from ._errors import ErrorCode, PadError, PadRemovedError
from ._library import DataCallback, DeviceCallback, LoggingCallback, library
from .pad import Pad
from .reception import Reception


class NoPadError(PadError, IndexError):
    """There is no pad of that number."""


class Session:
    """The pads that were found: iterate, or take session[1], session[2] ..., the numbers of `vxpadctl list`."""

    def __init__(self, on_removed: Optional[Callable[[Pad], None]], logger: Optional[logging.Logger]) -> None:
        self._on_removed = on_removed
        self._logger = logger
        self._pads: List[Pad] = []
        self._removed: Set[int] = set()
        self._receptions: Dict[Tuple[int, int], Reception] = {}  # by pad and interface
        self._lock = threading.Lock()  # never held over a call of the library

    def __iter__(self) -> Iterator[Pad]:
        return iter(self._pads)

    def __len__(self) -> int:
        return len(self._pads)

    def __getitem__(self, number: int) -> Pad:
        if not 1 <= number <= len(self._pads):
            there = f"only 1 to {len(self._pads)}" if self._pads else "none was found"
            message = f"there is no pad {number}: {there} ('vxpadctl list' tells why)"
            raise NoPadError(ErrorCode.INVALID_HANDLE, "", message)
        return self._pads[number - 1]

    def search(self) -> None:
        """Searches again. Receptions end, and what was a pad before may be another one now."""
        self._end_receptions()
        library.Initialize()
        with self._lock:
            self._removed.clear()
        library.SetOnDeviceRemovedHandler(_removal_callback, None)
        if self._logger is not None:
            library.RegisterLoggingCallBackProcedure(_logging_callback, None)
        count = library.GetDeviceCount(ctypes.c_uint())
        self._pads = [Pad(self, number) for number in range(1, count + 1)]

    def close(self) -> None:
        """Ends receiving and closes the pads."""
        global _current
        with _opening:
            if _current is self:
                self._end_receptions()
                library.Deinitialize()
                self._pads = []
                _current = None

    def was_removed(self, number: int) -> bool:
        """Whether a call has found the pad unplugged."""
        with self._lock:
            return number in self._removed

    def start(self, reception: Reception) -> None:
        """Has an interface received from."""
        number, interface = key = reception.pad.number, reception.interface
        if interface > 0 and interface >= reception.pad.interface_count:  # nothing would ever come of it
            raise PadError(ErrorCode.INVALID_PARAMETER, "", f"there is no interface {interface} of pad {number}")
        with self._lock:
            if key in self._receptions:
                raise RuntimeError(f"{reception.pad}: interface {interface} is being received from")
            self._receptions[key] = reception
        try:
            reception.pad.check(library.SetOnDataReceivedHandler(number, interface, _data_callback, None))
            if library.SetDataReceivingEnabled(number, interface, 1) != 0:  # names no record
                message = f"interface {interface} of pad {number} cannot be received from"
                raise PadError(ErrorCode.UNKNOWN, "SetDataReceivingEnabled", message)
        except PadError:
            self.stop(reception)
            raise

    def stop(self, reception: Reception) -> None:
        """Returns when no further report is read."""
        number, interface = key = reception.pad.number, reception.interface
        with self._lock:
            if self._receptions.get(key) is not reception:
                return
        library.SetDataReceivingEnabled(number, interface, 0)
        library.SetOnDataReceivedHandler(number, interface, DataCallback(0), None)
        with self._lock:
            self._receptions.pop(key, None)

    def _end_receptions(self) -> None:
        with self._lock:
            receptions, self._receptions = self._receptions, {}
        for reception in receptions.values():
            reception.end()

    def take_report(self, number: int, interface: int, report: bytes) -> None:
        with self._lock:
            reception = self._receptions.get((number, interface))
        if reception is not None:
            reception.put(report)

    def take_removal(self, number: int) -> None:
        """Possibly called several times for one removal."""
        with self._lock:
            is_news = number not in self._removed
            self._removed.add(number)
            receptions = [reception for key, reception in self._receptions.items() if key[0] == number]
        for reception in receptions:
            reception.end(PadRemovedError(ErrorCode.INVALID_HANDLE, "", f"pad {number} was removed"))
        if is_news and self._on_removed is not None and number <= len(self._pads):
            self._on_removed(self[number])

    def take_message(self, text: str) -> None:
        if self._logger is not None:
            self._logger.log(logging.INFO if text.startswith("info: ") else logging.ERROR, "%s", text)

    def __enter__(self) -> Session:
        return self

    def __exit__(
        self,
        _type: Optional[Type[BaseException]],
        _error: Optional[BaseException],
        _traceback: Optional[TracebackType],
    ) -> None:
        self.close()


_opening = threading.Lock()
_current: Optional[Session] = None  # the library has one list of pads for the whole process


def _on_data(_user: object, number: int, interface: int, data: int, length: int) -> None:
    session = _current
    if session is not None:
        session.take_report(number, interface, ctypes.string_at(data, length))


def _on_removed(_user: object, number: int) -> None:
    session = _current
    if session is not None:
        session.take_removal(number)


def _on_message(_user: object, message: int) -> None:
    session = _current
    if session is not None:
        units = ctypes.cast(message, ctypes.POINTER(ctypes.c_uint16))
        length = next(i for i in range(256) if units[i] == 0)
        session.take_message(ctypes.string_at(message, 2 * length).decode("utf-16-le", "replace").strip())


# Made once, for good: a thread may leave one after the session has ended.
_data_callback = DataCallback(_on_data)
_removal_callback = DeviceCallback(_on_removed)
_logging_callback = LoggingCallback(_on_message)


def open(on_removed: Optional[Callable[[Pad], None]] = None, logger: Optional[logging.Logger] = None) -> Session:
    """Finds the pads that are plugged in. One session at a time: the library has one list of pads for the process.

    on_removed is called with a pad that is found unplugged, on the thread that has found it; it must not search again
    nor close the session. A logger gets every message of the library, which is many.
    """
    global _current
    with _opening:
        if _current is not None:
            raise RuntimeError("a session is open already")
        session = _current = Session(on_removed, logger)
        try:
            session.search()
        except BaseException:
            _current = None
            raise
        return session


@atexit.register
def _close() -> None:
    if _current is not None:
        _current.close()  # no callback may run while the interpreter ends
