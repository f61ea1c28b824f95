#!/usr/bin/env python3
"""What vxpadctl makes of recordings, against an independent decoder, and as parsers of other programs read it.

Usage: export_test.py VXPADCTL [RSVG-CONVERT]
Without the converter the pictures made of pixels and for paper are left out.
"""
import csv
import io
import json
import os
import random
import re
import resource
import struct
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree
import zlib

import inkml_rules
import recording_decoder as decoder

vxpadctl = sys.argv[1]
converter = sys.argv[2] if len(sys.argv) > 2 and sys.argv[2] else None

HEAD = "vxpadcom-recording 1\n"
INKML = "{http://www.w3.org/2003/InkML}"
SVG = "{http://www.w3.org/2000/svg}"
XML_ID = "{http://www.w3.org/XML/1998/namespace}id"
PEN = "x=2:u16le,y=4:u16le,pressure=6:u16le"


def run(*words, **options):
    return subprocess.run([vxpadctl, *words], capture_output=True, timeout=50, check=False, **options)


class Files(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)

    def path(self, name):
        return os.path.join(os.fsencode(self.directory.name), os.fsencode(name))

    def write(self, name, content):
        with open(self.path(name), "wb") as file:
            file.write(content.encode() if isinstance(content, str) else content)
        return self.path(name)

    def exported(self, file, form, *more, status=0):
        result = run("export", file, "--format", form, *more)
        self.assertEqual(result.returncode, status, result.stderr)
        return result.stdout


def traces_of(text):
    """The points of each trace, by the names of the channels."""
    inkml_rules.check(text)
    root = ElementTree.fromstring(text)
    assert root.tag == INKML + "ink", root.tag
    assert all(element.tag.startswith(INKML) for element in root.iter())
    context = root.find(f"{INKML}definitions/{INKML}context")
    channels = [channel.attrib for channel in context.iter(INKML + "channel")]
    names = [channel["name"] for channel in channels]
    traces = []
    for trace in root.findall(INKML + "trace"):
        assert trace.attrib["contextRef"] == "#" + context.attrib[XML_ID]
        points = [point.split() for point in trace.text.strip().split(",")]
        assert all(len(point) == len(names) for point in points)
        traces.append([dict(zip(names, point)) for point in points])
    return root, channels, traces


def generated(random_numbers):
    """A layout and a recording of it, as text."""
    names = ["x", "y", "pressure", "tilt-x", "a_b", "n0", "bytes", "z" * 40]
    chosen = random_numbers.sample(names, random_numbers.randint(1, len(names)))
    longest = random_numbers.choice([4, 8, 20, 64, 4096])
    fields = []
    for name in chosen:
        kind = random_numbers.choice(list(decoder.TYPES))
        most = max(0, longest - decoder.TYPES[kind][0])
        fields.append((name, random_numbers.randint(0, min(most, 4095)), kind))
    layout = ",".join(f"{name}={offset}:{kind}" for name, offset, kind in fields)
    at = 0
    text = HEAD + random_numbers.choice(["", "maker A & <B>\nproduct \\x1b[1m \\\\ \"\\u202e\nserial 7\ninterface 2\n"])
    text += f"packet-size {longest}\n"
    for _ in range(random_numbers.randint(1, 30)):
        at += random_numbers.choice([0, 1, 1998, 999999, 86399999999])
        size = longest if random_numbers.random() < 0.8 else random_numbers.randint(1, longest)
        packet = bytes(random_numbers.choice([0, 1, 0x7f, 0x80, 0xff, random_numbers.randint(0, 255)])
                       for _ in range(size))
        text += f"{at} {packet.hex()}\n" + random_numbers.choice(["", "# 5 ff\n", "\n"])
        if at > 300000000000:
            break
    # One packet has them all.
    text += f"{at} {bytes(range(256)).hex() * 16}\n"[:len(str(at)) + 1 + 2 * longest] + "\n"
    return layout, text


class Exports(Files):
    def test_are_what_the_decoder_reads(self):
        random_numbers = random.Random(20240503)
        for case in range(60):
            layout, text = generated(random_numbers)
            with self.subTest(case=case, layout=layout):
                self.check(layout, text)

    def check(self, layout, text):
        file = self.write("a.rec", text)
        header, packets = decoder.decode_recording(text)
        fields = decoder.decode_layout(layout)
        rows = decoder.rows_of(packets, fields)
        plain = self.exported(file, "csv", "--layout", layout).decode()
        self.assertEqual(list(csv.DictReader(io.StringIO(plain))),
                         [{name: "" if value is None else str(value) for name, value in row.items()} for row in rows])

        document = json.loads(self.exported(file, "json", "--layout", layout), parse_float=str)
        self.assertEqual({name: document[name] for name in header}, header)
        self.assertEqual(list(document["packets"][0]), list(rows[0]))
        self.assertEqual(document["packets"], rows)
        lines = run("replay", file, "--fast", "--json", "--layout", layout).stdout.decode().splitlines()
        self.assertEqual([json.loads(line, parse_float=str) for line in lines], rows)

        names = [name for name, _, _ in fields]
        if "x" in names and "y" in names:
            traces = traces_of(self.exported(file, "inkml", "--layout", layout))[2]
            self.assertEqual([[(int(point["X"]), int(point["Y"]), int(point["F"]) if "F" in point else None,
                                point["T"]) for point in trace] for trace in traces], decoder.strokes_of(rows))
        else:
            self.assertEqual(run("export", file, "--format", "inkml", "--layout", layout).returncode, 2)

    def test_without_a_layout_have_the_bytes(self):
        text = HEAD + "0 5001\n1500000 FF00ff\n"
        file = self.write("a.rec", text)
        self.assertEqual(self.exported(file, "csv"), b"time,bytes\n0.000000,5001\n1.500000,ff00ff\n")
        rows = decoder.rows_of(decoder.decode_recording(text)[1], [])
        self.assertEqual(json.loads(self.exported(file, "json"), parse_float=str),
                         {"maker": None, "product": None, "serial": None, "interface": None, "packets": rows})
        lines = run("replay", file, "--fast", "--json").stdout.splitlines()
        self.assertEqual([json.loads(line, parse_float=str) for line in lines], rows)

    def test_of_strokes_tell_channels_and_pad(self):
        file = self.write("a.rec", HEAD + "maker ACME & \\x1bSons\nproduct \"Pad\" 100\nserial S<1>\n"
                          "0 500101000200ffff\n1998 500101000300feff\n2000 500001000300\n"
                          "3000 5000010003000000\n4000 5001090008000700\n")
        root, channels, traces = traces_of(self.exported(file, "inkml", "--layout", PEN))
        self.assertEqual([(c["name"], c["type"], c["units"]) for c in channels],
                         [("X", "integer", "dev"), ("Y", "integer", "dev"), ("F", "integer", "dev"),
                          ("T", "decimal", "s")])
        pad = root.find(f".//{INKML}inkSource").attrib
        self.assertEqual((pad["manufacturer"], pad["model"], pad["serialNo"]),
                         ("ACME & \\x1bSons", "\"Pad\" 100", "S<1>"))
        self.assertEqual([len(trace) for trace in traces], [2, 1])
        self.assertEqual(traces[1], [{"X": "9", "Y": "8", "F": "7", "T": "0.004000"}])
        _, channels, traces = traces_of(self.exported(file, "inkml", "--layout", "x=2:i8,y=4:i8"))
        self.assertEqual([channel["name"] for channel in channels], ["X", "Y", "T"])
        self.assertEqual([len(trace) for trace in traces], [5])

    def test_of_strokes_are_what_the_format_demands(self):
        file = self.write("a.rec", HEAD + "maker ACME\nproduct Pad\nserial 7\n0 5001010002000300\n1998 5001090008000700\n")
        ink = self.exported(file, "inkml", "--layout", PEN).decode()
        inkml_rules.check(ink)
        times = [channel for channel in traces_of(ink)[1] if channel["name"] == "T"]
        self.assertEqual([time["respectTo"] for time in times], ["#start"])
        # The rules would find what is wrong.
        for before, after, complaint in (
                ("2003/InkML", "2003/inkml", "not of InkML's namespace"),
                (" xml:id=\"pad\"", "", "inkSource lacks xml:id"),
                (" serialNo=", " serialNumber=", "inkSource has no attribute serialNumber"),
                ("type=\"integer\"", "type=\"int\"", "type of channel cannot be 'int'"),
                ("xml:id=\"start\"", "xml:id=\"pen\"", "the id pen stands there twice"),
                ("xml:id=\"start\"", "xml:id=\"1st\"", "'1st' is no id"),
                ("contextRef=\"#pen\"", "contextRef=\"pen\"", "contextRef leads nowhere: pen"),
                ("contextRef=\"#pen\"", "contextRef=\"#pad\"", "contextRef leads to another thing than a context"),
                (" respectTo=\"#start\"", "", "nobody knows what the times count from"),
                (" traceFormatRef=\"#packet\"", "", "says not how its points are written"),
                ("units=\"s\"", "units=\"dpi\"", "the channel T cannot have the unit dpi"),
                ("name=\"F\"", "name=\"X\"", "a channel stands there twice"),
                ("name=\"F\"", "name=\"pressure\"", "nobody knows what the channel pressure is"),
                ("<timestamp xml:id=\"start\"/>", "ink", "context has text inside"),
                ("<inkSource", "<timestamp xml:id=\"a\"/><inkSource", "context cannot have 'timestamp inkSource "),
                ("9 8 7 ", "9 8 ", "a point has 3 values for 4 channels"),
                ("9 8 7 ", "9 8 7.0 ", "7.0 is no integer"),
                ("9 8 7 ", "9 8 T ", "T is no integer"),
                ("9 8 7 ", "9 8 7; ", "is no value"),
                ("9 8 7 ", ", ", "a point has 0 values")):
            with self.subTest(after=after):
                broken = ink.replace(before, after)
                self.assertNotEqual(broken, ink)
                with self.assertRaisesRegex(inkml_rules.Broken, complaint):
                    inkml_rules.check(broken)

    def test_take_and_give_the_standard_files(self):
        text = HEAD + "0 0102\n"
        result = run("export", "-", "--format", "csv", "--layout", "x=1:u8", input=text.encode())
        self.assertEqual((result.stdout, result.stderr, result.returncode), (b"time,x\n0.000000,2\n", b"", 0))
        file = self.write("a.rec", text)
        out = self.path("out.json")
        result = run("export", file, "-o", out)
        self.assertEqual((result.stdout, result.stderr, result.returncode), (b"", b"", 0))
        with open(out, encoding="utf-8") as written:
            self.assertEqual(json.load(written)["packets"], [{"time": 0, "bytes": "0102"}])
        self.assertEqual(run("export", file, "--format", "csv", "-o", "-").stdout, b"time,bytes\n0.000000,0102\n")
        result = run("export", file, "--format", "csv", "-o", file)
        self.assertIn(b"would take the place of the recording", result.stderr)
        self.assertEqual(result.returncode, 1)
        with open(file, encoding="utf-8") as untouched:
            self.assertEqual(untouched.read(), text)

    def test_refuse_what_makes_no_sense(self):
        file = self.write("a.rec", HEAD + "0 0102\n")
        for words, message in (((), b"--format is missing: csv, json or inkml"),
                               (("--format", "xml"), b"--format takes csv, json or inkml, not 'xml'"),
                               (("--format", "1"), b"--format takes csv, json or inkml, not '1'"),
                               (("--format", "inkml"), b"--layout is missing"),
                               (("--format", "inkml", "--layout", "x=0:u8"), b"the layout has no field y"),
                               (("--format", "csv", "--layout", "time=0:u8"), b"the layout has a field time"),
                               (("--format", "csv", "--layout", "x=0:u9"), b"the types are u8")):
            result = run("export", file, *words)
            self.assertIn(message, result.stderr)
            self.assertEqual((result.returncode, result.stdout), (2, b""))
        self.assertIn(b"--layout goes with --json", run("report", "read", "1", "--layout", "x=0:u8").stderr)
        self.assertIn(b"--pad has a virtual pad send them", run("replay", file, "--json", "--pad", "1").stderr)

    def test_tell_of_fields_beyond_the_packets(self):
        file = self.write("a.rec", HEAD + "0 0102030405\n1000 0102\n")
        for form in ("csv", "json", "inkml"):
            result = run("export", file, "--format", form, "--layout", "x=0:u8,y=3:u16le")
            fate = b"left out" if form == "inkml" else b"with empty fields"
            self.assertEqual(result.stderr, b"vxpadctl: 1 packet " + fate + b", too short for the layout\n")
            self.assertEqual(result.returncode, 0)
            result = run("export", file, "--format", form, "--layout", "x=0:u8,y=4:u16le")
            self.assertIn(b"vxpadctl: the field y lies beyond the packets: it ends with byte 5, counted from 0, and the "
                          b"longest packet has 5 bytes\n", result.stderr)
            self.assertEqual(result.returncode, 1)
        several = self.write("b.rec", HEAD + "0 0102\n1000 0102\n2000 0102030405\n")
        result = run("export", several, "--format", "csv", "--layout", "x=0:u8,y=3:u16le")
        self.assertEqual(result.stderr, b"vxpadctl: 2 packets with empty fields, too short for the layout\n")
        result = run("plot", file, "--layout", "x=60:u16le,y=0:u8", "-o", self.path("a.svg"))
        self.assertIn(b"the field x lies beyond the packets: it ends with byte 61", result.stderr)
        self.assertNotIn(b"pressure above 0", result.stderr)
        self.assertFalse(os.path.exists(self.path("a.svg")))


class Harm(Files):
    def test_recordings_that_are_cut_give_what_was_there(self):
        whole = HEAD + "maker ACME\n0 0101020003000400\n10 0101050006000700\n"
        for cut in range(len(whole)):
            file = self.write("a.rec", whole[:cut])
            for form in ("csv", "json", "inkml"):
                result = run("export", file, "--format", form, "--layout", "x=2:u8,y=4:u8,pressure=6:u8")
                self.assertIn(result.returncode, (0, 1))
                if result.returncode == 1:
                    self.assertRegex(result.stderr, rb"^vxpadctl: (.*a\.rec(:\d+)?: .+|the field |\d+ packet)")
                if result.stdout and form == "json":
                    json.loads(result.stdout)
                elif result.stdout and form == "inkml":
                    traces_of(result.stdout)
        result = run("export", self.write("a.rec", whole + "9 ff\n"), "--format", "json")
        self.assertEqual(len(json.loads(result.stdout)["packets"]), 2)
        self.assertRegex(result.stderr, rb"a\.rec:5: older than the packet before it\n$")
        self.assertEqual(result.returncode, 1)

    def test_what_is_no_recording_leaves_no_file(self):
        for content, message in (("", b"no packet at all"), ("hello\n", b"a recording begins with"),
                                 (HEAD + "0 0\n", b":2: "), (HEAD + "0 " + "00" * 40000, b":2: longer than"),
                                 (b"\0" * 70000, b":1: longer than"), (HEAD + "maker a", b"no packet at all")):
            result = run("export", self.write("a.rec", content), "--format", "json", "-o", self.path("out"))
            self.assertIn(message, result.stderr)
            self.assertEqual(result.returncode, 1)
            self.assertFalse(os.path.exists(self.path("out")))
        for missing in ("missing.rec", "."):
            result = run("export", self.path(missing), "--format", "csv")
            self.assertRegex(result.stderr, rb"^vxpadctl: .+: (No such file|not a regular file)")
            self.assertEqual(result.returncode, 1)

    def test_texts_that_are_no_utf8_stay_out_of_xml_and_json(self):
        maker = b"\xff\xc0\x80\xed\xa0\x80\xf4\x90\x80\x80\xe2\x82 \x1b\x01\xef\xbf\xbf \"<&>'"
        content = HEAD.encode() + b"maker " + maker + b"\nproduct \\x1b\\xff\\u12\n0 0101020003000400\n"
        name = b"\xff\xfe<&>\x1b\".rec"
        file = self.write(name, content)
        layout = "x=2:u8,y=4:u8"
        document = json.loads(self.exported(file, "json").decode())
        self.assertEqual(document["maker"], "\ufffd" * 11 + " \x1b\x01\uffff \"<&>'")
        self.assertEqual(document["product"], "\x1b\\xff\\u12")
        pad = traces_of(self.exported(file, "inkml", "--layout", layout))[0].find(f".//{INKML}inkSource").attrib
        self.assertEqual(pad["manufacturer"], "\ufffd" * 11 + " \\x1b\\x01\ufffd \"<&>'")
        out = self.path("a.svg")
        self.assertEqual(run("plot", file, "--layout", layout, "-o", out).returncode, 0)
        self.assertEqual(ElementTree.parse(os.fsdecode(out)).find(SVG + "title").text, "\ufffd\ufffd<&>\\x1b\".rec")
        result = run("export", self.path(b"\xff\x1b"), "--format", "csv")
        self.assertIn("/\ufffd\\x1b: No such file or directory\n", result.stderr.decode())

    def test_results_that_nobody_takes(self):
        file = self.write("a.rec", HEAD + "".join(f"{at} {'07' * 60}\n" for at in range(20000)))
        for words in (("export", file, "--format", "csv"), ("export", file, "--format", "json"),
                      ("export", file, "--format", "inkml", "--layout", PEN), ("replay", file, "--fast", "--json"),
                      ("plot", file, "--layout", PEN, "-o", "-")):
            with open("/dev/full", "wb") as full:
                result = subprocess.run([vxpadctl, *words], stdout=full, stderr=subprocess.PIPE, timeout=50, check=False)
            self.assertEqual((result.stderr, result.returncode),
                             (b"vxpadctl: cannot write the result: No space left on device\n", 1))
            with subprocess.Popen([vxpadctl, *words], stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
                process.stdout.read(10)
                process.stdout.close()
                self.assertEqual((process.stderr.read(), process.wait(50)), (b"", 0))
        result = run("export", file, "--format", "csv", "-o", "/dev/full")
        self.assertEqual(result.stderr, b"vxpadctl: cannot write /dev/full: No space left on device\n")
        for word in ("--help", "--version"):
            with open("/dev/full", "wb") as full:
                result = subprocess.run([vxpadctl, word], stdout=full, stderr=subprocess.PIPE, timeout=50, check=False)
            self.assertEqual((result.stderr, result.returncode),
                             (b"vxpadctl: cannot write the result: No space left on device\n", 1))

    @unittest.skipIf(os.environ.get("VXPADCOM_SANITIZE"), "a sanitizer keeps memory that was freed")
    def test_large_recordings_take_no_more_memory(self):
        with open(self.path("a.rec"), "w", encoding="ascii") as file:
            file.write(HEAD)
            for at in range(150000):
                file.write(f"{at} {'07' * 64}\n")
        limit = 16 << 20  # of a file of 20 MB
        for form in ("csv", "inkml"):
            with open(os.devnull, "wb") as null:
                subprocess.run([vxpadctl, "export", self.path("a.rec"), "--format", form, "--layout", PEN], stdout=null,
                               preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_DATA, (limit, limit)), timeout=50,
                               check=True)


def pixels_of(png):
    """(width, height, rows of (r, g, b, a)) of an image of 8 bits with an alpha channel or without"""
    assert png[:8] == b"\x89PNG\r\n\x1a\n"
    at = 8
    data = b""
    width = height = depth = kind = 0
    while at < len(png):
        size, name = struct.unpack(">I4s", png[at:at + 8])
        chunk = png[at + 8:at + 8 + size]
        assert zlib.crc32(name + chunk) == struct.unpack(">I", png[at + 8 + size:at + 12 + size])[0]
        if name == b"IHDR":
            width, height, depth, kind = struct.unpack(">IIBB", chunk[:10])
        elif name == b"IDAT":
            data += chunk
        at += 12 + size
    assert depth == 8 and kind in (2, 6)
    step = 4 if kind == 6 else 3
    data = zlib.decompress(data)
    rows = []
    before = bytearray(width * step)
    for y in range(height):
        line = bytearray(data[y * (width * step + 1) + 1:(y + 1) * (width * step + 1)])
        method = data[y * (width * step + 1)]
        for i, value in enumerate(line) if method else ():
            left = line[i - step] if i >= step else 0
            above = before[i]
            corner = before[i - step] if i >= step else 0
            guess = left + above - corner
            nearest = min((left, above, corner), key=lambda value, guess=guess: abs(guess - value))
            line[i] = (value + (0, left, above, (left + above) // 2, nearest)[method]) & 0xff
        rows.append([tuple(line[x:x + step]) + ((255,) if step == 3 else ()) for x in range(0, len(line), step)])
        before = line
    return width, height, rows


class Pictures(Files):
    WHITE = (255, 255, 255, 255)
    INK = (0x11, 0x22, 0x33, 255)

    # A horizontal line from 100 to 900 at height 200, and a dot below its middle.
    RECORDING = HEAD + "".join(
        f"{at} 5000{struct.pack('<HHH', x, y, pressure).hex()}\n"
        for at, (x, y, pressure) in enumerate([(100, 200, 500), (900, 200, 500), (900, 200, 0), (500, 500, 500),
                                               (500, 500, 0)]))

    def plotted(self, name, *more):
        file = self.write("a.rec", self.RECORDING)
        out = self.path(name)
        result = run("plot", file, "--layout", PEN, "-o", out, *more)
        self.assertEqual((result.stdout, result.stderr, result.returncode), (b"", b"", 0))
        with open(out, "rb") as picture:
            return picture.read()

    def expect_picture(self, width, height, rows):
        """The box is 3 % of 800 larger on each side."""
        scale = width / 848
        self.assertEqual(height, width * 329 // 800)
        for corner in (rows[0][0], rows[0][-1], rows[-1][0], rows[-1][-1]):
            self.assertEqual(corner, self.WHITE)
        for x, y in ((100, 200), (500, 200), (900, 200), (500, 500)):
            self.assertEqual(rows[round((y - 176) * scale)][round((x - 76) * scale)], self.INK)
        for x, y in ((500, 300), (100, 500), (520, 500)):
            self.assertEqual(rows[round((y - 176) * scale)][round((x - 76) * scale)], self.WHITE)

    def test_svg_has_a_size_a_background_and_no_style(self):
        root = ElementTree.fromstring(self.plotted("a.svg"))
        self.assertEqual(root.tag, SVG + "svg")
        self.assertEqual([float(number) for number in root.attrib["viewBox"].split()], [76, 176, 848, 348])
        self.assertEqual((float(root.attrib["width"]), float(root.attrib["height"])), (800, 329))
        background = root[1]
        self.assertEqual((background.tag, background.attrib["fill"]), (SVG + "rect", "#fff"))
        self.assertEqual([float(background.attrib[name]) for name in ("x", "y", "width", "height")],
                         [52, 152, 896, 396])
        self.assertFalse(any("style" in element.attrib or element.tag == SVG + "style" for element in root.iter()))

    def test_formats_are_told_by_name_or_option(self):
        self.assertTrue(self.plotted("a.any").startswith(b"<?xml"))
        self.assertTrue(self.plotted("a.png", "--format", "svg").startswith(b"<?xml"))
        result = run("plot", self.write("a.rec", self.RECORDING), "--layout", PEN, "-o", "-", "--format", "gif")
        self.assertIn(b"--format takes svg, png or pdf, not 'gif'", result.stderr)
        self.assertEqual(result.returncode, 2)

    def test_without_the_converter_say_what_is_missing(self):
        file = self.write("a.rec", self.RECORDING)
        out = self.path("a.png")
        result = run("plot", file, "--layout", PEN, "-o", out, env={**os.environ, "PATH": self.directory.name})
        self.assertRegex(result.stderr, rb"rsvg-convert \(Debian's package librsvg2-bin\); SVG needs nothing\n$")
        self.assertEqual(result.returncode, 1)
        self.assertFalse(os.path.exists(out))
        with open(self.path("rsvg-convert"), "w", encoding="ascii") as program:
            program.write("#!/bin/sh\nexit 3\n")
        os.chmod(self.path("rsvg-convert"), 0o755)
        result = run("plot", file, "--layout", PEN, "-o", out, env={**os.environ, "PATH": self.directory.name + ":/bin"})
        self.assertEqual(result.stderr, b"vxpadctl: cannot draw the picture: rsvg-convert failed\n")
        self.assertEqual(result.returncode, 1)

    @unittest.skipUnless(converter, "no rsvg-convert")
    def test_other_programs_show_svg_with_its_background(self):
        shown = subprocess.run([converter], input=self.plotted("a.svg"), capture_output=True, timeout=50, check=True)
        width, height, rows = pixels_of(shown.stdout)
        self.assertEqual(width, 800)
        self.expect_picture(width, height, rows)

    @unittest.skipUnless(converter, "no rsvg-convert")
    def test_png(self):
        width, height, rows = pixels_of(self.plotted("a.png"))
        self.assertEqual(width, 1600)
        self.expect_picture(width, height, rows)
        file = self.write("a.rec", self.RECORDING)
        with open(self.path("a.png"), "rb") as picture:
            self.assertEqual(run("plot", file, "--layout", PEN, "-o", "-", "--format", "png").stdout, picture.read())
        with open("/dev/full", "wb") as full:
            result = subprocess.run([vxpadctl, "plot", file, "--layout", PEN, "-o", "-", "--format", "png"], stdout=full,
                                    stderr=subprocess.PIPE, timeout=50, check=False)
        self.assertEqual(result.stderr, b"vxpadctl: cannot write the result: No space left on device\n")

    @unittest.skipUnless(converter, "no rsvg-convert")
    def test_pdf(self):
        pdf = self.plotted("a.pdf")
        self.assertTrue(pdf.startswith(b"%PDF-") and pdf.rstrip().endswith(b"%%EOF"))
        box = re.search(rb"/MediaBox \[ ?0 0 ([0-9.]+) ([0-9.]+)", pdf)
        self.assertAlmostEqual(float(box[1]), 600, delta=1)
        self.assertAlmostEqual(float(box[2]), 246.75, delta=1)
        streams = [zlib.decompress(found[1]) for found in re.finditer(rb"stream\r?\n(.*?)\r?\nendstream", pdf, re.S)
                   if found[1][:1] == b"\x78"]
        drawing = b"\n".join(streams)
        self.assertEqual(len(re.findall(rb"\bm\b", drawing)), 2, drawing)
        self.assertEqual(len(re.findall(rb"\bS\b", drawing)), 2, drawing)
        self.assertRegex(drawing, rb"\bre\b|\bf\b")


if __name__ == "__main__":
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    unittest.main(argv=sys.argv[:1])
