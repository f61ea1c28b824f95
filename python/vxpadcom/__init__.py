"""USB signature pads through libvxpadcom.

    import vxpadcom

    with vxpadcom.open() as pads:
        for pad in pads:
            print(pad, pad.serial_number)
        with pads[1].receive() as reports:
            for report in reports:
                print(report.hex(" "))

Reports are bytes without a report id. What fails raises PadError. Everything may be used from any thread.
"""

from ._errors import ErrorCode, PadError, PadRemovedError
from ._library import library_path, library_version
from .layout import Field, Layout
from .pad import Pad, Upload
from .reception import Reception
from .recording import Packet, Recording
from .session import NoPadError, Session, open

__version__ = "0.1.0"

__all__ = [
    "ErrorCode",
    "Field",
    "Layout",
    "NoPadError",
    "Packet",
    "Pad",
    "PadError",
    "PadRemovedError",
    "Reception",
    "Recording",
    "Session",
    "Upload",
    "library_path",
    "library_version",
    "open",
]
