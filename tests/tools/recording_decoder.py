"""Reads recordings and layouts, written from docs/recordings.md alone: nothing here is shared with vxpadctl."""
import re

TYPES = {
    "u8": (1, False, "little"), "i8": (1, True, "little"),
    "u16le": (2, False, "little"), "u16be": (2, False, "big"), "i16le": (2, True, "little"), "i16be": (2, True, "big"),
    "u32le": (4, False, "little"), "u32be": (4, False, "big"), "i32le": (4, True, "little"), "i32be": (4, True, "big"),
}


def decode_layout(text):
    """[(name, offset, type)]"""
    fields = []
    for field in text.split(","):
        name, place = field.split("=")
        offset, kind = place.split(":")
        fields.append((name, int(offset), kind))
    return fields


def decode_field(packet, offset, kind):
    size, is_signed, order = TYPES[kind]
    if offset + size > len(packet):
        return None
    return int.from_bytes(packet[offset:offset + size], order, signed=is_signed)


def without_escapes(text):
    """What a header line tells, where it was written by a recorder."""
    return re.sub(r"\\(\\|x[0-9a-f]{2}|u[0-9a-f]{4})",
                  lambda found: "\\" if found[1] == "\\" else chr(int(found[1][1:], 16)), text)


def decode_recording(text):
    """(header, [(microseconds, bytes)]) of a recording in which nothing is wrong"""
    lines = text.split("\n")
    assert lines[0] == "vxpadcom-recording 1"
    header = {"maker": None, "product": None, "serial": None, "interface": None}
    packets = []
    for line in lines[1:]:
        if not line or line.startswith("#"):
            continue
        key, _, value = line.partition(" ")
        if key.isdigit():
            packets.append((int(key), bytes.fromhex(value)))
        elif key == "interface":
            header[key] = int(value)
        elif key != "packet-size":
            header[key] = without_escapes(value)
    return header, packets


def rows_of(packets, fields):
    """[{"time": seconds as text, name: number}], or bytes where there are no fields"""
    rows = []
    for at, packet in packets:
        row = {"time": f"{at // 1000000}.{at % 1000000:06}"}
        for name, offset, kind in fields:
            row[name] = decode_field(packet, offset, kind)
        if not fields:
            row["bytes"] = packet.hex()
        rows.append(row)
    return rows


def strokes_of(rows):
    """[[(x, y, pressure, time)]]; pressure is None where there is none"""
    strokes = []
    is_drawing = False
    for row in rows:
        point = (row["x"], row["y"], row.get("pressure"), row["time"])
        if None in point[:2] or ("pressure" in row and point[2] is None):
            continue
        touches = point[2] is None or point[2] > 0
        if touches and not is_drawing:
            strokes.append([])
        if touches:
            strokes[-1].append(point)
        is_drawing = touches
    return strokes
