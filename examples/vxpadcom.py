"""The part of libvxpadcom that the examples need, by ctypes.

Functions raise PadError where the library files a failure.
"""

import ctypes

MAX_STRING_LENGTH = 256  # VXPAD_MAX_STRING_LENGTH, in UTF-16 units
ALL_INTERFACES = 0xFFFFFFFF

_library = ctypes.CDLL("libvxpadcom.so.0")
_uint = ctypes.c_uint

DataCallback = ctypes.CFUNCTYPE(None, ctypes.c_void_p, _uint, _uint, ctypes.c_void_p, _uint)

for _name, _arguments in {
    "Initialize": [],
    "Deinitialize": [],
    "EnumerateDevicesStart": [ctypes.POINTER(_uint)],
    "EnumerateDevicesNext": [ctypes.POINTER(_uint)],
    "GetFeatureReportSize": [_uint, _uint, ctypes.POINTER(_uint)],
    "GetExceptionMessage": [_uint, ctypes.c_void_p, ctypes.c_int, ctypes.POINTER(_uint)],
    "SetOnDataReceivedHandler": [_uint, _uint, DataCallback, ctypes.c_void_p],
    "SetDataReceivingEnabled": [_uint, _uint, _uint],
    "WriteFileBuffer": [_uint, _uint, ctypes.c_char_p, _uint, ctypes.POINTER(_uint)],
}.items():
    getattr(_library, _name).argtypes = _arguments
    getattr(_library, _name).restype = ctypes.c_int

_callbacks = []  # what the library may still call must not be collected


class PadError(Exception):
    """What the library says of a call that failed."""


def _message(handle):
    text = (ctypes.c_uint16 * MAX_STRING_LENGTH)()
    length = _uint()
    _library.GetExceptionMessage(handle, text, MAX_STRING_LENGTH, length)
    return bytes(text).decode("utf-16-le", "replace").split("\0")[0].strip()


def _check(result):
    if result != 0:
        raise PadError(_message(result) if result > 0 else "receiving cannot be started")


def initialize():
    _library.Initialize()


def deinitialize():
    """Ends all receiving; no callback runs afterwards."""
    _library.Deinitialize()
    _callbacks.clear()


def pads():
    """The numbers of the pads that are plugged in."""
    number = _uint()
    _library.EnumerateDevicesStart(number)
    while number.value != 0:
        yield number.value
        _library.EnumerateDevicesNext(number)


def feature_report_size(pad, interface=0):
    size = _uint()
    _check(_library.GetFeatureReportSize(pad, interface, size))
    return size.value


def receive(pad, on_report, interface=0):
    """Has on_report(bytes) called for each input report, on a thread of the library."""

    def on_data(_user_specific, _pad, _interface, data, length):
        on_report(ctypes.string_at(data, length))

    callback = DataCallback(on_data)
    _callbacks.append(callback)
    _check(_library.SetOnDataReceivedHandler(pad, interface, callback, None))
    _check(_library.SetDataReceivingEnabled(pad, interface, 1))


def upload(pad, data, interfaces=ALL_INTERFACES):
    """Sends bytes over several interfaces at once: how many of the sent pieces' bytes, and of how many."""
    payload = feature_report_size(pad) - 1
    pieces = b"".join(b"\0" + data[i : i + payload].ljust(payload, b"\0") for i in range(0, len(data), payload))
    sent = _uint()
    _check(_library.WriteFileBuffer(pad, interfaces, pieces, len(pieces), sent))
    return sent.value, len(pieces)
