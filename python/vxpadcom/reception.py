"""Pen data as it comes."""

from __future__ import annotations

import asyncio
import collections
import contextlib
import threading
import time
from types import TracebackType
from typing import TYPE_CHECKING, AsyncIterator, Deque, Iterator, Optional, Tuple, Type

from ._errors import PadError

if TYPE_CHECKING:
    from .pad import Pad

MOST_WAITING = 100_000  # reports that nobody has taken; beyond them the oldest are lost


class Reception:
    """The input reports of one interface, each 64 bytes, while the `with` block lasts.

    Iterate with `for` or `async for`. The iteration ends when the block or the session does, or when its seconds are
    over; a removed pad raises PadRemovedError and, with a timeout in seconds, a silent one TimeoutError.
    """

    def __init__(self, pad: Pad, interface: int, timeout: Optional[float], seconds: Optional[float] = None) -> None:
        self.pad = pad
        self.interface = interface
        self.timeout = timeout
        self.seconds = seconds
        self.lost = 0  # reports that were dropped because nobody took them
        self._reports: Deque[bytes] = collections.deque()
        self._changed = threading.Condition()
        self._has_ended = True
        self._ends_at: Optional[float] = None
        self._error: Optional[PadError] = None
        self._waiter: Optional[Tuple[asyncio.AbstractEventLoop, asyncio.Event]] = None

    def put(self, report: bytes) -> None:
        """Called by the session, on a thread of the library."""
        with self._changed:
            if self._ends_at is not None and time.monotonic() > self._ends_at:
                return
            if len(self._reports) == MOST_WAITING:
                self._reports.popleft()
                self.lost += 1
            self._reports.append(report)
            self._wake()

    def end(self, error: Optional[PadError] = None) -> None:
        """Called by the session. What has come can still be taken."""
        with self._changed:
            self._has_ended = True
            self._error = self._error or error
            self._wake()

    def _wake(self) -> None:
        self._changed.notify_all()
        if self._waiter is not None:
            loop, event = self._waiter
            with contextlib.suppress(RuntimeError):  # the loop is closed
                loop.call_soon_threadsafe(event.set)

    def _pop(self) -> Optional[bytes]:
        if self._reports:
            return self._reports.popleft()
        if self._error is not None:
            raise self._error
        if self._has_ended or self._rest(None) == 0:
            raise EOFError(f"{self.pad}: receiving has ended")
        return None

    def _rest(self, deadline: Optional[float]) -> Optional[float]:
        """The seconds until the deadline or the end, whichever is earlier; None where there is neither."""
        times = [at for at in (deadline, self._ends_at) if at is not None]
        return max(0.0, min(times) - time.monotonic()) if times else None

    def get(self, timeout: Optional[float] = None) -> bytes:
        """The next report. Raises TimeoutError after so many seconds without one, EOFError after the end."""
        deadline = None if timeout is None else time.monotonic() + timeout
        with self._changed:
            while True:
                report = self._pop()
                if report is not None:
                    return report
                if deadline is not None and time.monotonic() >= deadline:
                    raise TimeoutError(f"{self.pad}: no report within {timeout} s")
                self._changed.wait(self._rest(deadline))

    async def get_async(self, timeout: Optional[float] = None) -> bytes:
        """get() for asyncio; one task at a time."""
        event = asyncio.Event()
        deadline = None if timeout is None else time.monotonic() + timeout
        with self._changed:
            self._waiter = (asyncio.get_running_loop(), event)
        while True:
            with self._changed:
                event.clear()
                report = self._pop()
            if report is not None:
                return report
            if deadline is not None and time.monotonic() >= deadline:
                raise TimeoutError(f"{self.pad}: no report within {timeout} s")
            with contextlib.suppress(asyncio.TimeoutError):
                await asyncio.wait_for(event.wait(), self._rest(deadline))

    def __iter__(self) -> Iterator[bytes]:
        return self

    def __next__(self) -> bytes:
        try:
            return self.get(self.timeout)
        except EOFError:
            raise StopIteration from None

    def __aiter__(self) -> AsyncIterator[bytes]:
        return self

    async def __anext__(self) -> bytes:
        try:
            return await self.get_async(self.timeout)
        except EOFError:
            raise StopAsyncIteration from None

    def __enter__(self) -> Reception:
        self._has_ended = False
        self._error = self._ends_at = None
        try:
            self.pad.session.start(self)
        except BaseException:
            self._has_ended = True
            raise
        self._ends_at = None if self.seconds is None else time.monotonic() + self.seconds
        return self

    def __exit__(
        self,
        _type: Optional[Type[BaseException]],
        _error: Optional[BaseException],
        _traceback: Optional[TracebackType],
    ) -> None:
        self.pad.session.stop(self)
        self.end()
