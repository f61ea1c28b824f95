"""What InkML demands of the elements that a recording becomes, as the W3C's Recommendation of 20 September 2011 has it.

Written from the Recommendation alone: nothing here is shared with vxpadctl. Elements that no recording needs (brushes,
canvases, mappings, views) may stand in the contents of others, but nothing is known of them.
"""
import re
import xml.etree.ElementTree as ElementTree

NAMESPACE = "{http://www.w3.org/2003/InkML}"
XML_ID = "{http://www.w3.org/XML/1998/namespace}id"

# attributes that must be there, others that may be there, the elements inside in their order, each followed by a blank
ELEMENTS = {
    "ink": ("", "documentID", "((definitions|context|trace|traceGroup|traceView|annotation|annotationXML) )*"),
    "definitions": ("", "", "((brush|canvas|canvasTransform|context|inkSource|mapping|timestamp|trace|traceFormat|"
                            "traceGroup|traceView) )*"),
    "context": ("", "xml:id contextRef canvasRef canvasTransformRef traceFormatRef inkSourceRef brushRef timestampRef",
                "(canvas )?(canvasTransform )?(traceFormat )?(inkSource )?(brush )?(timestamp )?"),
    "inkSource": ("xml:id", "manufacturer model serialNo specificationRef description",
                  "traceFormat (sampleRate )?(latency )?(activeArea )?(srcProperty )*(channelProperties )?"),
    "traceFormat": ("", "xml:id", "(channel )*(intermittentChannels )?"),
    "channel": ("name", "xml:id type default min max orientation respectTo units", "(mapping )?"),
    "timestamp": ("xml:id", "time timestampRef timeString timeOffset", ""),
    "trace": ("", "xml:id type continuation priorRef contextRef brushRef duration timeOffset", ""),
}

# what the values of attributes look like, where not every text will do
NUMBER = r"[+-]?(\d+(\.\d*)?|\.\d+)([eE][+-]?\d+)?"
VALUES = {
    ("channel", "type"): "integer|decimal|double|boolean",
    ("channel", "orientation"): r"[+-]ve",
    ("channel", "min"): NUMBER,
    ("channel", "max"): NUMBER,
    ("channel", "default"): NUMBER + "|T|F",
    ("timestamp", "time"): NUMBER,
    ("timestamp", "timeOffset"): NUMBER,
    ("trace", "type"): "penDown|penUp|indeterminate",
    ("trace", "continuation"): "begin|end|middle",
    ("trace", "duration"): NUMBER,
    ("trace", "timeOffset"): NUMBER,
}

# the units of channels whose names have a meaning; "dev" are a device's own
LENGTHS = "m cm mm in pt pc em ex dev"
UNITS = {"X": LENGTHS, "Y": LENGTHS, "Z": LENGTHS, "F": "N dev %", "T": "s ms dev"}

REFERENCES = {"contextRef": "context", "traceFormatRef": "traceFormat", "inkSourceRef": "inkSource",
              "timestampRef": "timestamp", "respectTo": "timestamp", "priorRef": "trace"}

# a value of a point: a number, perhaps as a difference from the one before, or one of four letters and signs
VALUE = re.compile(r"[!'\"]?\s*-?\s*(\d+(?:\.\d*)?(?:[eE][+-]?\d+)?|\.\d+(?:[eE][+-]?\d+)?|#[0-9A-F]+)|([TF*?])")


class Broken(Exception):
    """A document is no InkML, or says what no reader can make sense of."""


def expect(holds, what):
    if not holds:
        raise Broken(what)


def name_of(element):
    expect(element.tag.startswith(NAMESPACE), f"{element.tag} is not of InkML's namespace")
    return element.tag[len(NAMESPACE):]


def check_element(element):
    name = name_of(element)
    expect(name in ELEMENTS, f"nothing is known of {name}")
    required, optional, content = ELEMENTS[name]
    attributes = {"xml:id" if key == XML_ID else key: value for key, value in element.attrib.items()}
    for key in required.split():
        expect(key in attributes, f"{name} lacks {key}")
    for key, value in attributes.items():
        expect(key in required.split() + optional.split(), f"{name} has no attribute {key}")
        pattern = VALUES.get((name, key), ".*")
        expect(re.fullmatch(pattern, value, re.DOTALL), f"{key} of {name} cannot be {value!r}")
    inside = "".join(name_of(child) + " " for child in element)
    expect(re.fullmatch(content, inside), f"{name} cannot have {inside!r} inside")
    if name != "trace":
        texts = [element.text, *(child.tail for child in element)]
        expect(all(not (text or "").strip() for text in texts), f"{name} has text inside")


def check_references(root):
    """Returns the elements by their ids."""
    by_id = {}
    for element in root.iter():
        key = element.attrib.get(XML_ID)
        if key is not None:
            expect(re.fullmatch(r"[A-Za-z_][\w.-]*", key), f"{key!r} is no id")
            expect(key not in by_id, f"the id {key} stands there twice")
            by_id[key] = element
    for element in root.iter():
        for attribute, kind in REFERENCES.items():
            target = element.attrib.get(attribute)
            if target is not None:
                expect(target.startswith("#") and target[1:] in by_id, f"{attribute} leads nowhere: {target}")
                expect(name_of(by_id[target[1:]]) == kind, f"{attribute} leads to another thing than a {kind}")
    return by_id


def check_channels(channels):
    names = [channel.attrib["name"] for channel in channels]
    expect(len(set(names)) == len(names), "a channel stands there twice")
    for channel in channels:
        name = channel.attrib["name"]
        expect(name in UNITS, f"nobody knows what the channel {name} is")
        unit = channel.attrib.get("units", "dev")
        expect(unit in UNITS[name].split(), f"the channel {name} cannot have the unit {unit}")
        expect(name != "T" or "respectTo" in channel.attrib, "nobody knows what the times count from")


def values_of(point):
    """The values of a point as texts, without the blanks inside."""
    values = []
    at = 0
    while point[at:].strip():
        at += len(point[at:]) - len(point[at:].lstrip())
        found = VALUE.match(point, at)
        expect(found, f"{point[at:]!r} is no value")
        values.append("".join(found[0].split()))
        at = found.end()
    return values


def check_trace(trace, channels):
    text = trace.text or ""
    points = text.split(",")
    if not points[-1].strip():
        points.pop()  # a comma may stand behind the last one
    expect(points, "a trace has at least one point")
    for point in points:
        values = values_of(point)
        expect(len(values) == len(channels), f"a point has {len(values)} values for {len(channels)} channels")
        for channel, value in zip(channels, values):
            kind = channel.attrib.get("type", "decimal")
            expect((value in "TF") == (kind == "boolean"), f"{value} is no {kind}")
            expect(kind != "integer" or not re.search(r"[.eE]", value) or value.startswith("#"), f"{value} is no {kind}")


def check(text):
    """Raises Broken, or ElementTree.ParseError where it is not even XML."""
    root = ElementTree.fromstring(text)
    expect(name_of(root) == "ink", "the document is no ink")
    for element in root.iter():
        check_element(element)
    by_id = check_references(root)
    for element in root.iter(NAMESPACE + "traceFormat"):
        check_channels(element.findall(NAMESPACE + "channel"))
    for trace in root.iter(NAMESPACE + "trace"):
        expect("contextRef" in trace.attrib, "a trace without a context has no channels but X and Y")
        context = by_id[trace.attrib["contextRef"][1:]]
        expect("traceFormatRef" in context.attrib, "the context says not how its points are written")
        check_trace(trace, by_id[context.attrib["traceFormatRef"][1:]].findall(NAMESPACE + "channel"))
