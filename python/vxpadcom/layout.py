"""Where the numbers are in a pad's reports."""

from __future__ import annotations

import os
import re
from typing import Dict, Iterator, NamedTuple, Tuple, Union

_LAST_OFFSET = 4095
_FIELD = re.compile(r"([a-z][a-z0-9_-]{0,39})=([0-9]+):([ui](?:8|(?:16|32)(?:le|be)))")


class Field(NamedTuple):
    name: str
    offset: int  # in bytes
    type: str  # u8, i8, u16le, u16be, i16le, i16be, u32le, u32be, i32le or i32be

    def read(self, report: bytes) -> int | None:
        """The number, or None where the report is too short for it."""
        size = int(re.findall("[0-9]+", self.type)[0]) // 8
        part = report[self.offset : self.offset + size]
        if len(part) < size:
            return None
        order = "big" if self.type.endswith("be") else "little"
        return int.from_bytes(part, order, signed=self.type.startswith("i"))  # type: ignore[arg-type]


class Layout:
    """Fields of a report: Layout("x=2:u16le,y=4:u16le,pressure=6:u16le")."""

    def __init__(self, text: str) -> None:
        fields: Dict[str, Field] = {}
        for part in re.split(r"[,\s]+", text.strip(", \t\n")):
            match = _FIELD.fullmatch(part)
            if match is None:
                raise ValueError(f"'{part}': a field is given as NAME=OFFSET:TYPE")
            field = Field(match[1], int(match[2]), match[3])
            if field.offset > _LAST_OFFSET or field.name in fields:
                raise ValueError(f"'{part}': the offset is too large, or the name given twice")
            fields[field.name] = field
        self.fields: Tuple[Field, ...] = tuple(fields.values())

    @classmethod
    def load(cls, file: Union[str, os.PathLike[str]]) -> Layout:
        """From a file, in which lines that begin with # are comments."""
        with open(file, encoding="utf-8") as lines:
            return cls("\n".join(line for line in lines if not line.lstrip().startswith("#")))

    def decode(self, report: bytes) -> Dict[str, int]:
        """The numbers by name, without those for which the report is too short."""
        return {field.name: value for field in self for value in [field.read(report)] if value is not None}

    def __iter__(self) -> Iterator[Field]:
        return iter(self.fields)
