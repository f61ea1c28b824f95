"""Reads feature reports of a pad for some seconds, and tells how many a second it were and how many failed."""

import ctypes
import sys
import time

library = ctypes.CDLL("libvxpadcom.so.0")
pad, seconds = int(sys.argv[1]), float(sys.argv[2])
report = ctypes.create_string_buffer(65)
reply = ctypes.c_uint()
library.Initialize()
library.SetFeature(pad, 0, b"\0\xc1\x02" + bytes(62), 65, ctypes.byref(reply))
read = failed = 0
start = time.monotonic()
while time.monotonic() < start + seconds:
    failed += library.GetFeature(pad, 0, report, 65, ctypes.byref(reply)) != 0
    read += 1
print(f"{read / (time.monotonic() - start):.0f} a second, {failed} of {read} failed")
library.Deinitialize()
sys.exit(failed != 0)
