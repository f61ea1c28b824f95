"""The library's functions, by ctypes."""

from __future__ import annotations

import ctypes
import os
from typing import Any, Callable, Tuple

from ._errors import PadError

MAX_STRING_LENGTH = 256  # VXPAD_MAX_STRING_LENGTH, in UTF-16 units
ALL_INTERFACES = 0xFFFFFFFF

_uint = ctypes.c_uint
_uint_out = ctypes.POINTER(_uint)
_text = ctypes.c_void_p

DataCallback = ctypes.CFUNCTYPE(None, ctypes.c_void_p, _uint, _uint, ctypes.c_void_p, _uint)
DeviceCallback = ctypes.CFUNCTYPE(None, ctypes.c_void_p, _uint)
LoggingCallback = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_void_p)


def library_path() -> str:
    """What is loaded: the installed library, or the file that VXPADCOM_LIBRARY names."""
    return os.environ.get("VXPADCOM_LIBRARY") or "libvxpadcom.so.0"


try:
    library = ctypes.CDLL(library_path())
except OSError as _error:
    raise ImportError(f"{_error}: install libvxpadcom, or name the file in VXPADCOM_LIBRARY") from None

_texts = [_uint, _text, ctypes.c_int, _uint_out]
_number = [_uint, _uint_out]
_transfer = [_uint, _uint, ctypes.c_char_p, _uint, _uint_out]
_prototypes: "dict[str, list[Any]]" = {
    "Initialize": [],
    "Deinitialize": [],
    "GetDeviceCount": [_uint_out],
    "GetExceptionName": _texts,
    "GetExceptionMessage": _texts,
    "GetExceptionCode": _number,
    "GetSerialNumber": _texts,
    "GetVendorName": _texts,
    "GetProductName": [_uint, *_texts],
    "GetVendorId": _number,
    "GetProductId": [_uint, *_number],
    "GetEndPointCount": _number,
    "GetFeatureReportSize": [_uint, *_number],
    "GetFeature": _transfer,
    "SetFeature": _transfer,
    "ReadFile": _transfer,
    "WriteFile": _transfer,
    "WriteFileBuffer": _transfer,
    "SendSspMessage": _transfer[:-1],
    "ReceiveSspMessage": [*_transfer[:-1], _uint, _uint_out],
    "SetOnDataReceivedHandler": [_uint, _uint, DataCallback, ctypes.c_void_p],
    "SetDataReceivingEnabled": [_uint, _uint, _uint],
    "SetOnDeviceRemovedHandler": [DeviceCallback, ctypes.c_void_p],
    "RegisterLoggingCallBackProcedure": [LoggingCallback, ctypes.c_void_p],
}
for _name, _arguments in _prototypes.items():
    getattr(library, _name).argtypes = _arguments
    getattr(library, _name).restype = ctypes.c_int


library.vxpadcom_version.argtypes = []
library.vxpadcom_version.restype = ctypes.c_char_p


def library_version() -> str:
    """The version of the library that is loaded."""
    version: bytes = library.vxpadcom_version()
    return version.decode()


def read_text(function: Callable[..., int], *arguments: int) -> Tuple[int, str]:
    """Result and text of a function that writes text. Letters beyond ASCII come from a pad as U+FFFF."""
    units = (ctypes.c_uint16 * MAX_STRING_LENGTH)()
    reply = _uint()
    result = function(*arguments, units, MAX_STRING_LENGTH, reply)
    return result, bytes(units).decode("utf-16-le", "replace").split("\0")[0].replace("\uffff", "\ufffd")


def error_of(handle: int) -> PadError:
    """The failure whose record a call has returned."""
    code = _uint()
    library.GetExceptionCode(handle, code)
    _, function = read_text(library.GetExceptionName, handle)
    _, message = read_text(library.GetExceptionMessage, handle)
    return PadError(ctypes.c_int(code.value).value, function.strip(), message.strip())
