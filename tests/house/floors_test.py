#!/usr/bin/env python3
"""Holds src/ to its floors: no call and no include leads to a higher floor, files form no circle, and whatever a file
calls is declared by a header that it includes.

Usage: floors_test.py NM SRC INCLUDE OBJECT...
"""
import pathlib
import re
import subprocess
import sys

# From the lowest to the highest; those of one line do not use one another.
FLOORS = ["support"], ["transport", "wire"], ["exchange"], ["commands"], ["pads"], ["session"], ["api"]
HEIGHT = {floor: height for height, floors in enumerate(FLOORS) for floor in floors}

nm = sys.argv[1]
src, include = map(pathlib.Path, sys.argv[2:4])
findings = set()
uses = {}  # file -> the files that it calls or includes; a file is "floor/name"


def note_use(file, used, how):
    uses.setdefault(file, set()).add(used)
    floor, used_floor = file.split("/")[0], used.split("/")[0]
    if floor != used_floor and HEIGHT[floor] <= HEIGHT[used_floor]:
        findings.add(f"{file} {how} of {used}, which is no lower floor")


def symbols(object_file):
    """The names that an object defines for others, and those that it leaves to others."""
    defined, undefined = set(), set()
    for line in subprocess.check_output([nm, "--extern-only", "--demangle", object_file], text=True).splitlines():
        kind, name = re.match(r"[0-9a-f ]* (\w) (.*)", line).groups()
        if kind == "U":
            undefined.add(name)
        elif kind in "TDBR":
            defined.add(name)
    return defined, undefined


def included(path):
    """The tree's own headers that a file includes."""
    names = re.findall(r'^#include "(.+)"', path.read_text(), re.MULTILINE)
    return [directory / name for name in names for directory in (src, include) if (directory / name).is_file()]


def reachable(path, seen):
    for header in included(path):
        if header not in seen:
            seen.add(header)
            reachable(header, seen)
    return seen


def find_circle(file, way, done):
    if file in way:
        findings.add("a circle: " + " -> ".join(way[way.index(file):] + [file]))
    elif file not in done:
        for used in sorted(uses.get(file, ())):
            find_circle(used, way + [file], done)
        done.add(file)


objects = {}
for argument in sys.argv[4:]:
    if match := re.search(rf"((?:{'|'.join(HEIGHT)})/\w+)\.cpp\.o$", argument):
        objects[match.group(1)] = symbols(argument)
if {file.split("/")[0] for file in objects} != set(HEIGHT):
    sys.exit("objects of every floor are needed")
owner = {name: file for file, (defined, _) in objects.items() for name in defined}

for file, (_, undefined) in objects.items():
    declarations = "".join(header.read_text() for header in reachable(src / f"{file}.cpp", set()))
    for name in undefined & owner.keys():
        word = re.sub(r"[\[(].*", "", name).split("::")[-1]
        note_use(file, owner[name], f"calls {word}")
        if not re.search(rf"(?<!\w){re.escape(word)}\b", declarations):
            findings.add(f"{file} calls {word} of {owner[name]}, which no include of it declares")

for path in [*src.rglob("*.cpp"), *src.rglob("*.hpp")]:
    file = str(path.relative_to(src).with_suffix(""))
    for header in included(path):
        if header.is_relative_to(src) and (used := str(header.relative_to(src).with_suffix(""))) != file:
            note_use(file, used, f"includes {header.name}")

done_files = set()
for start in sorted(uses):
    find_circle(start, [], done_files)
print("\n".join(sorted(findings)) or f"{len(objects)} files keep to their floors")
sys.exit(bool(findings))
