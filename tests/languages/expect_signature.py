"""Holds a drawing to the signature that a virtual pad has played over and over.

Usage: expect_signature.py DRAWING SIGNATURE
"""

import pathlib
import sys
import xml.etree.ElementTree

drawing = xml.etree.ElementTree.parse(sys.argv[1]).getroot()
drawn = [line.get("points").split() for line in drawing.iter("{http://www.w3.org/2000/svg}polyline")]

text = pathlib.Path(sys.argv[2]).read_text()
lines = [line for line in text.splitlines() if not line.startswith("#")]
strokes = [
    [",".join(point.split()[:2]) for point in stroke.splitlines()] for stroke in "\n".join(lines).strip().split("\n\n")
]
missing = [stroke for stroke in strokes if stroke not in drawn]
if not strokes or missing:
    sys.exit(f"{len(missing)} of {len(strokes)} strokes are not drawn")
