"""Repeats transfers of one kind until one fails, says so and ends with 1; with 2 where none fails.

Usage: transfers.py PAD FUNCTION, which is GetFeature, SetFeature, ReadFile or WriteFile.
"""

import ctypes
import sys
import time

PATIENCE_S = 30

library = ctypes.CDLL("libvxpadcom.so.0")
pad, function = int(sys.argv[1]), getattr(library, sys.argv[2])
report = ctypes.create_string_buffer(b"\0\xc1\x02" + bytes(62), 65)
reply = ctypes.c_uint()
library.Initialize()
print("ready", flush=True)
deadline = time.monotonic() + PATIENCE_S
failed = 0
while failed == 0 and time.monotonic() < deadline:
    failed = function(pad, 0, report, 65, ctypes.byref(reply))
library.Deinitialize()
print("failed" if failed else "goes on")
sys.exit(1 if failed else 2)
