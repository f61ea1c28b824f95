"""What may go wrong."""

from __future__ import annotations

import enum


class ErrorCode(enum.IntEnum):
    """The library's result codes."""

    UNKNOWN = -1
    INVALID_HANDLE = 257
    INVALID_PARAMETER = 258


class PadError(Exception):
    """A call of the library that failed: its code, the function's name and what went wrong."""

    def __init__(self, code: int, function: str, message: str) -> None:
        super().__init__(f"{function}: {message}" if function else message)
        self.code = ErrorCode(code) if code in ErrorCode.__members__.values() else code
        self.function = function
        self.message = message


class PadRemovedError(PadError):
    """The pad was unplugged. It comes back with the next search."""
