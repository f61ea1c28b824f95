#!/usr/bin/env python3
"""Writes the inputs from which the fuzz harnesses set out, a directory for each harness, and the same each time.

Usage: make_seeds.py DIRECTORY
What the bytes mean stands at the head of each harness.
"""
import pathlib
import struct
import sys

root = pathlib.Path(sys.argv[1])


def seed(harness, name, *parts):
    directory = root / harness
    directory.mkdir(parents=True, exist_ok=True)
    data = b"".join(part.encode() if isinstance(part, str) else bytes(part) for part in parts)
    (directory / name).write_bytes(data)


def counted(data):
    data = data.encode() if isinstance(data, str) else bytes(data)
    return bytes([len(data)]) + data


def message(kind, payload):
    """As messages.hpp tells one."""
    return bytes([kind, len(payload) - 1]) + bytes(payload)


MARKER = b"\xaa\x55"
REPLY = message(1, b"\x10\x01\x02")
REPORT = message(0x80, b"\x27\x00\x01")
PEN = message(0xC0, b"\x01\x02\x03\x04\x05")
TRICKY = message(2, MARKER + b"\x02" + MARKER + b"\x00" + MARKER)
ALL = REPLY + REPORT + PEN + TRICKY + PEN

# Streams.
seed("message_cutter", "damaged", [5], [0, 1, 2, 60], [3], REPLY, [5], PEN, [130], TRICKY, [7], REPORT, [0])
seed("message_cutter", "cut_behind_a_marker", [5], [0] * 4, [0], message(1, b"\x10\xaa\x55\x02"), [132], PEN, [0])
seed("message_cutter", "noise_behind_messages", [5], [9] * 4, [7], REPLY, [127], REPLY, [1], PEN, [64])
seed("framing", "one", [0], counted(MARKER))
seed("framing", "noise", [5], counted(b"\x01\x00\x00\x10"), counted(MARKER * 3), counted(b"\x00"))
seed("framing", "half_markers", [0], counted(b"\xaa"), counted(b"\x55"), counted(b"\xaa\xaa\x55\x02"), counted(b"\x00"))
seed("framing", "long", [0], counted(b"\xaa\x55" * 60), counted(bytes(range(200))))
seed("framing", "empty", [0], counted(b""))
for name, sizes in ("single_bytes", [0] * 4), ("two_sizes", [1, 6, 1, 6]), ("whole", [255] * 4):
    seed("stream_cuts", name, sizes, [0], ALL)
    seed("stream_cuts", name + "_pen_first", sizes, [1], ALL)
seed("stream_cuts", "long", [62, 3, 62, 3], [0], message(1, bytes(range(200))), PEN * 4, message(3, b"\xaa" * 100))

# Steps: 0 write, 1 read, 2 read pen data, 3 the pad sends, 4 raw bytes, 5 it goes.
for habits in 1, 3:
    seed("vcom_reports", f"round_trip_{habits}", [habits, 0, 0], counted(b"\x11" * 64), [1, 64], [0, 1],
         counted(MARKER * 20), [1, 64, 1, 3])
    seed("vcom_reports", f"pen_data_{habits}", [habits, 3], PEN, [3], PEN, [2, 64, 0, 0], counted(b"\x01"), [1, 64, 2, 3])
seed("vcom_reports", "no_answer", [0, 0, 0], counted(b"\x27"), [1, 64, 3], REPORT, [1, 64])
seed("vcom_reports", "other_answer", [0, 3], REPLY, [1, 64, 3], PEN, [1, 64, 2, 64])
seed("vcom_reports", "raw", [5, 4], counted(MARKER + b"\x02\x85\x01"), [1, 64, 2, 64, 4], counted(bytes(40)), [1, 64])
seed("vcom_reports", "gone", [9, 0, 0], counted(b"\x01"), [5, 1, 64, 2, 64, 0, 0], counted(b"\x02"))
seed("vcom_reports", "sizes", [1, 0, 0], counted(b""), [0, 0], counted(bytes(65)), [1, 0, 2, 0, 1, 65])

# Answers: 10 healthy, 20 none, 4 with the message id, 8 with success, 1 to 3 from whom.
HEALTHY, NONE, RIGHT = b"\x10", b"\x20\x00", 0x0C
everything = b"".join(bytes([which, argument]) + HEALTHY for which, argument in
                      zip(range(14), [0, 0, 11, 0, 13, 0, 5, 0, 20, 20, 202, 0, 0, 0]))
for pad_type in range(4):
    seed("components", f"healthy_{pad_type}", [pad_type], HEALTHY, HEALTHY, everything[:36])
    seed("components", f"healthy_{pad_type}_more", [pad_type], HEALTHY, HEALTHY, everything[24:])
seed("components", "silent", [0], NONE, NONE, [2, 11], NONE)
seed("components", "silent_component", [1], HEALTHY, NONE, [4, 5], NONE, [7, 0], NONE)
seed("components", "long_lists", [1], [RIGHT], counted(b"\xff" + bytes(range(200))), [RIGHT],
     counted(b"\xff" + bytes(range(250))), [2, 11], HEALTHY, [4, 5], HEALTHY)
seed("components", "lying_counts", [2], [RIGHT], counted(b"\xff\x0b\x03\x01"), [RIGHT], counted(b"\x09\x0d\0\0\0\5"),
     [3, 0], HEALTHY, [4, 13], HEALTHY, [5, 0, RIGHT], counted(b"\x00\x10\x42"))
seed("components", "empty_lists", [0], [RIGHT], counted(b"\x00"), [RIGHT], counted(b""), [1, 0], HEALTHY)
seed("components", "wrong_ids", [0], HEALTHY, HEALTHY, [7, 0, 2], counted(b"\x10\x01\x03"), [12, 0, RIGHT], counted(b"\xff"))
seed("components", "legacy_answers", [0], HEALTHY, HEALTHY, [7, 0, 3], counted(b"\x10\x01\x03"), [7, 0, 0x43],
     counted(b"\x10"))
seed("components", "states", [0], HEALTHY, HEALTHY, [7, 0, RIGHT], counted(b"\x01"), [8, 9, RIGHT], counted(b"\x04"))
seed("components", "descriptions", [3], HEALTHY, HEALTHY, [13, 0, RIGHT], counted(bytes(range(28)) + b"\xffABC"),
     [13, 0, RIGHT], counted(bytes(27)), [13, 0, RIGHT], counted(b"\1" * 29))

# Pads: 0 HID (type, number, texts, habits), 1 VCOM (ids, more, ...).
HID = bytes([0, 8]) + b"\0" + counted("A\0C\0M\0E\0") + counted("P\0") + counted("S\0N\0") + b"\0"
VCOM = bytes([1, 0, 0])
seed("pad_start", "hid", HID)
seed("pad_start", "interfaces", HID, HID, HID)
seed("pad_start", "many", b"".join(bytes([0, 7]) + b"\0" + counted("") + counted("") + counted(f"{i}\0") + b"\0"
                                   for i in range(20)))
seed("pad_start", "vcom", VCOM)
seed("pad_start", "both", HID, VCOM, HID)
seed("pad_start", "long_texts", [0, 9, 1], counted(b"a\0" * 120), counted(b"\xff\xff" * 120), counted(b"\x00\xd8" * 120), [0])
seed("pad_start", "no_serial", [0, 9, 1], counted("a\0"), counted("b\0"), counted("c\0"), [1], VCOM)
seed("pad_start", "nonsense_version", [0, 0x89, 1, 2], counted(b"\x11\0" + b"\xff" * 60))
seed("pad_start", "no_version", [0, 0x89, 1, 2], counted(b""))
seed("pad_start", "endpoints", [1, 0, 2, 2, 1, 1, 2, 0x81, 0, 64, 1, 2, 0, 2, 1, 2, 3, 2, 0x80, 0, 0, 0, 0, 0, 0x83,
                                255, 255])
seed("pad_start", "no_configuration", [1, 0, 2, 0])
for which in range(8):
    seed("pad_start", f"failing_{which}", [1, 0, 4, which], HID)
seed("pad_start", "texts", [1, 0, 1], counted(b"%s%n" * 20), counted(b"\xff" * 255), counted(""))
seed("pad_start", "answers", [1, 1, 8, 2], counted(MARKER + b"\x02\x01\xff\xff"), counted(bytes(60)))
seed("pad_start", "named", [1, 0xFF, 0x41], counted(" Ltd"), counted("P"), counted("S"))


def call(thread, function, where=1, how=0x10, size=None, value=0):
    sized = [] if how & 0x10 else [size or 0]
    return bytes([thread, function, where, how, *sized, value])


seed("exported_calls", "texts", [7], *(call(i % 2, f) for i, f in enumerate((5, 6, 7, 8, 9, 10, 11, 12, 27, 28, 29, 30))))
seed("exported_calls", "reports", [7], *(call(t, f, value=3) for f in range(13, 18) for t in (0, 1)))
seed("exported_calls", "receiving", [1], call(0, 18), call(0, 20, value=1), call(1, 21), call(1, 14), call(0, 20),
     call(0, 19), call(1, 22))
seed("exported_calls", "vcom_receiving", [2], call(0, 18), call(0, 20, value=1), call(1, 24, value=20), call(1, 13),
     call(1, 14), call(1, 21), call(0, 1))
seed("exported_calls", "messages", [3], call(0, 23, 2), call(0, 24, 2, value=9), call(1, 23), call(1, 24))
seed("exported_calls", "restarts", [7], call(0, 0), call(1, 18), call(1, 20, value=1), call(0, 1), call(1, 3), call(0, 3),
     call(1, 4), call(0, 2))
seed("exported_calls", "pulled_out", [0x59], call(0, 25, value=1), call(0, 26, value=1), call(0, 18),
     call(0, 20, value=1), call(1, 14), call(1, 16), call(0, 13))
seed("exported_calls", "wrong_arguments", [7], *(call(f % 2, f, 0xFF, f % 4, 3) for f in range(32)))
seed("exported_calls", "upload", [1], call(0, 17, value=3), call(1, 17, value=1), call(0, 1), call(1, 17, 0, value=255))

# Files.
HEAD = "vxpadcom-recording 1\n"
seed("recordings", "whole", [1], HEAD, "# a comment\nmaker A B\nproduct P\nserial S\ninterface 0\npacket-size 4\n"
     "0 50011405\n1998 50 01 20\n\n1998 ff\n")
seed("recordings", "no_packet", [1], HEAD, "maker A\n")
seed("recordings", "wrong_version", [1], "vxpadcom-recording 2\n0 50\n")
seed("recordings", "older", [1], HEAD, "5 50\n4 50\n")
seed("recordings", "late", [1], HEAD, "604800000001 50\n")
seed("recordings", "odd_digits", [1], HEAD, "0 505\n")
seed("recordings", "late_header", [1], HEAD, "0 50\nmaker A\n")
seed("recordings", "too_long", [1], HEAD, "packet-size 1\n0 5050\n")
seed("recordings", "line_ends", [1], HEAD.replace("\n", "\r\n"), "\t0\t50\r\n")
seed("recordings", "strokes", [1], HEAD, "0 010203\n1 020304\n2 020300\n3 02\n4 050607\n5 ff\n6 0506070\n")
seed("recordings", "no_utf8", [1], HEAD.encode(), b"maker \xff\xed\xa0\x80 \x1b\\x1b\\\\ \"<&>\xef\xbf\xbf\nserial \xe2\x82\n0 010203\n")
seed("recordings", "huge_numbers", [1], HEAD, "packet-size 99999999999999999999\n18446744073709551616 00\n")
seed("recordings", "recorder", [0], counted("ACME\n\x1b"), struct.pack(">I", 0), counted(b"\x50\x01"),
     struct.pack(">I", 1998), counted(b"\xff" * 64))
seed("recordings", "recorder_late", [0], counted(""), struct.pack(">I", 9), counted(b""),
     b"".join(struct.pack(">I", 0xFFFFFFFF) + counted(b"\x01") for _ in range(150)))
PACKETS = counted(b"\x50\x01\x14\x00\xff\xff\x20\x00\x80\x90") + counted(b"\x00\x80")
for name, text in (("plot", "x=2:u16le,y=4:u16le,pressure=6:u16le"), ("all_types",
                   "a=0:u8,b=1:i8,c=2:u16le,d=2:u16be,e=4:i16le,f=4:i16be,g=6:u32le,h=6:u32be,i=6:i32le,j=6:i32be"),
                   ("signed_plot", "x=4:i16be,y=0:i8"), ("twice", "x=0:u8,x=1:u8"), ("far", "x=4095:u32be"),
                   ("too_far", "x=4096:u8"), ("no_type", "x=0:"), ("empty_fields", ",x=0:u8,,y=1:u8,"),
                   ("lines", "x=0:u8 y=1:u8\n# c\nz=2:u8"), ("long_name", "x" * 40 + "=0:u8"), ("sign", "x=-1:u8"),
                   ("no_pressure", "x=0:u32be,y=0:i32be,pressure=9:u8")):
    seed("layouts", name, PACKETS, text)
for name, text in (("strokes", "# two\n1 2 3\n4 5 6\n\n7 8 9\n"), ("lifted", "1 2 3\n1 2 0\n\n"), ("empty", "\n\n"),
                   ("too_few", "1 2\n"), ("too_large", "1 2 65536\n"), ("zeros", "0000000000000000000001 0 65535"),
                   ("blanks", " 1\t2  3 \r\n"), ("no_digits", "1 2 x"), ("sign", "1 2 +3")):
    seed("signatures", name, text)

# Files of ids.
for name, text in (("whole", "# mine\n1234 abcd hid 16 Counter pad\n\n0x1 0XF vcom 17 Z\xe4hler\r\n1235 1 hid 8"),
                   ("empty", ""), ("comments", "#\n  # 1 1 hid 16\n\t\n"), ("wrong", "1 1 usb 16\n1 1 hid 14\n1 1 hid\n1 1\n1\nx"),
                   ("twice", "1 1 hid 16\n1 1 hid 16\n"), ("bad_lines", "x\n" * 30), ("no_end", "1 1 hid 16 name")):
    seed("id_files", name, [0, 1, 30, 255], text)

# Control requests: every one, in several orders.
for name, lines in {
    "list": ["list", "list 1", "", "nonsense", " list "],
    "plugging": ["unplug 1", "list", "unplug 1", "plug 1", "plug 1", "state 1", "plug 9", "unplug 0", "unplug x"],
    "faults": ["fault 1 stall", "fault 2 noise=5,seed=3,count=2", "fault 2 replace=aa55,on=pen", "fault 1 delay=9,on=ssp",
               "fault 3 short=65536", "fault 1 garbage,seed=99999999999", "clear-faults 1", "fault 1 \\,="],
    "input": ["input 1 0 50", "input 1 1 5001 3", "input 1 2 50", "input 2 0 50", "input 3 0 " + "50" * 20, "input 1 0 5",
              "state 1", "log 1"],
    "ssp": ["ssp 1", "ssp 2", "ssp 3", "button 2 7", "button 2 256", "pen 2 010203", "pen 2 " + "01" * 65, "send 2 aa5502",
            "send 2", "log 2"],
    "pen": ["play 1", "play 1 loop", "play 1 5 1000", "play 2 0", "play 3 once 100001", "stop 1", "stop 2", "state 1"],
    "replay": ["replay 1 no-such-file", "replay 1 /", "replay 4 x"],
    "uploads": ["uploads 1", "reset-uploads 1", "uploads 2", "unplug 2", "uploads 2", "reset-uploads 2", "log 2"],
}.items():
    for piece in (0, 255):
        seed("control_requests", f"{name}_{piece}", [piece], "\n".join(lines) + "\n")
seed("control_requests", "half_a_line", [3], "list\nlis")
seed("control_requests", "nul", [3], "li\0st\n\r\n\xff\n".encode("latin-1"))


def request(operation, interface=0, argument=0, urb=0, shape=0, endpoint=0, setup=bytes(8), payload=b"", passing=0,
            client=0):
    return (bytes([8 * client, operation, interface, argument, urb, shape, endpoint]) + bytes(setup) + counted(payload) +
            bytes([passing]))


OPEN, CLOSE, GET_DRIVER, DISCONNECT, CONNECT, DISCONNECT_CLAIM, CLAIM, RELEASE, SET, CLEAR, RESET, SUBMIT, TRANSFER, \
    DISCARD, WAKE = range(15)
ISO, INTERRUPT, CONTROL, BULK = range(4)
GET_DEVICE = [0x80, 6, 0, 1, 0, 0, 18, 0]
SET_FEATURE = [0x21, 9, 0, 3, 0, 0, 8, 0]
GET_FEATURE = [0xA1, 1, 0, 3, 0, 0, 64, 0]


def shape(kind, length=2):
    return 8 * kind + length


HID_STEPS = (request(OPEN) + request(GET_DRIVER) + request(DISCONNECT_CLAIM) +
             request(SUBMIT, urb=1, shape=shape(CONTROL), endpoint=0x80, setup=GET_DEVICE) +
             request(TRANSFER, shape=shape(CONTROL, 1), setup=SET_FEATURE) +
             request(TRANSFER, shape=shape(CONTROL, 3), endpoint=0x80, setup=GET_FEATURE) +
             request(SUBMIT, urb=2, shape=shape(INTERRUPT, 3), endpoint=0x81))
seed("usbfs_requests", "hid", HID_STEPS, [7, 5], request(WAKE), request(DISCARD, urb=2), request(RELEASE), request(CLOSE))
seed("usbfs_requests", "hid_unplugged", HID_STEPS, [5], request(DISCARD, urb=2), request(SUBMIT, urb=1), [5])
seed("usbfs_requests", "hid_gone", HID_STEPS, [4], HID_STEPS)
seed("usbfs_requests", "vcom", request(OPEN, argument=1), request(CLAIM),
     request(SUBMIT, urb=1, shape=shape(BULK, 5), endpoint=0x81), request(SUBMIT, urb=2, shape=shape(BULK, 3), endpoint=0x81),
     [14, 9], request(TRANSFER, shape=shape(BULK, 1), endpoint=2), request(DISCARD, urb=2), request(SET), request(CLEAR, argument=0x81))
seed("usbfs_requests", "vcom_small_rooms", request(OPEN, argument=1), request(CLAIM),
     request(SUBMIT, urb=1, shape=shape(BULK, 1), endpoint=0x81), request(SUBMIT, urb=2, shape=shape(BULK, 2), endpoint=0x81),
     [14, 40], [14, 2])
seed("usbfs_requests", "two_clients", request(OPEN), request(CLAIM), request(DISCONNECT), request(CLAIM),
     request(OPEN, client=1), request(CLAIM, client=1), request(DISCONNECT, client=1), request(CLAIM, client=1), [4],
     request(CLAIM, client=1), request(CONNECT, client=1), request(RELEASE, client=1), request(CONNECT, client=1))
seed("usbfs_requests", "not_open", request(CLAIM), request(SUBMIT), request(15), request(16))
seed("usbfs_requests", "wrong_descriptors", request(OPEN, passing=0x20), request(OPEN, passing=0x62),
     request(TRANSFER, passing=8))
seed("usbfs_requests", "wrong_interfaces", request(OPEN), *(request(o, interface=200) for o in range(1, 9)))
seed("usbfs_requests", "raw", [3], counted(b"\x00" * 50), [3], counted(b"\xff" * 64))
seed("usbfs_requests", "payload", request(OPEN, argument=1),
     request(SUBMIT, shape=0x80 | shape(BULK, 1), endpoint=2, payload=bytes(100)))

# Requests of the bridge's clients, and heads of strangers.
for name, text in {
    "list": '{"id":1,"ask":"list"}',
    "info": '{"id":9007199254740992,"ask":"info","pad":4294967295}',
    "get_feature": '{"id":1,"ask":"get-feature","pad":1,"interface":31,"size":4096}',
    "set_feature": '{"id":1,"ask":"set-feature","pad":1,"bytes":"00ffA5"}',
    "write": '{"bytes":"00","interface":0,"pad":1,"ask":"write","id":0}',
    "start": '{"id":1,"ask":"start","pad":1,"layout":"x=2:u16le,y=4:i32be"}',
    "stop": '{"id":1,"ask":"stop","pad":1}',
    "upload": '{"id":1,"ask":"upload","pad":1,"interfaces":[0,31],"size":16777216}',
    "not_whole": '{"id":1,"ask":"',
    "nothing_known": '{"id":1,"ask":"\\u0000","pad":-1e99,"":null}',
    "deep": "[" * 200,
    "no_utf8": b'{"id":1,"ask":"\xff\xfe"}',
    "origin": "https://counter.example:8443",
    "local_origin": "http://[::1]:3000",
}.items():
    seed("bridge_requests", name, [1], text)
HOST, ORIGIN, TARGET = counted("127.0.0.1:7429"), counted("https://counter.example"), "/pads?token=0123456789abcdef"
seed("bridge_requests", "pads", [2 + 4 + 16], HOST, ORIGIN, counted("GET"), counted(""), TARGET)
seed("bridge_requests", "page", [4], counted("LOCALHOST:7429"), counted("GET"), counted("document"), TARGET.replace("pads", ""))
seed("bridge_requests", "frame", [4], counted("[::1]:7429"), counted("GET"), counted("iframe"), TARGET.replace("pads", ""))
seed("bridge_requests", "own_origin", [2 + 4 + 16], HOST, counted("http://localhost:7429"), counted("GET"), counted(""),
     "/pads?&a=b&token=0123456789abcdef&")
seed("bridge_requests", "two_hosts", [2 + 8], HOST, HOST, counted("GET"), counted(""), TARGET)
seed("bridge_requests", "nothing", [2], counted("POST"), counted(""), "*")
