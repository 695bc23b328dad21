# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Finds the lines of the supervisor and of the guard in the application's log.

A log is gone through in blocks, and in a block only what has one of their texts in it is looked at
as a line. So the application's own output costs next to nothing, whatever it is.
"""

from __future__ import annotations

import re
from collections.abc import Iterable, Iterator
from typing import BinaryIO, NamedTuple

from . import texts

BLOCK = 1 << 22
LONGEST_LINE = 1 << 16  # what is longer is no line of the supervisor's

REQUEST = "request"
_REQUEST_NEEDLE = b"==Report"


class Line(NamedTuple):
    """A line of the supervisor's or of the guard's, or a request of the application's."""

    kind: str  # as in texts.LOG_TEXTS, or REQUEST
    number: int  # of the line in its log, from 1
    fields: dict[str, str]
    is_whole: bool = True  # nothing that the application printed stands before it in its line


def blocks(streams: Iterable[BinaryIO]) -> Iterator[bytes]:
    """The texts of `streams`, joined, in blocks that end with a line.

    A line that is split between two streams, as by a rotation, is joined again. A line that is
    longer than a block is split.
    """
    rest = b""
    for stream in streams:
        while block := stream.read(BLOCK):
            end = block.rfind(b"\n") + 1
            if end == 0 and len(rest) + len(block) < 2 * BLOCK:
                rest += block
                continue
            end = end or len(block)
            yield rest + block[:end]
            rest = block[end:]
    if rest:
        yield rest


def lines(streams: Iterable[BinaryIO]) -> Iterator[Line]:
    """The lines of supervisor and guard, and the requests in a log, in their order."""
    number = 1
    for block in blocks(streams):
        counted = 0
        for start, kinds in sorted(_places(block).items()):
            number += block.count(b"\n", counted, start)
            counted = start
            end = block.find(b"\n", start, start + LONGEST_LINE)
            text = block[start:end if end >= 0 else start + LONGEST_LINE]
            for kind in kinds:
                yield from _read(kind, number, text)
        number += block.count(b"\n", counted)


def _places(block: bytes) -> dict[int, list[texts.LogText | None]]:
    """Where lines begin that may be the supervisor's or the guard's, each with what it may be.

    None stands for a request.
    """
    places: dict[int, list[texts.LogText | None]] = {}
    for text in (None, *texts.LOG_TEXTS):  # a time line can follow a request in its line
        needle = text.needle if text else _REQUEST_NEEDLE
        found = block.find(needle)
        while found >= 0:
            start = max(block.rfind(b"\n", 0, found) + 1, found - LONGEST_LINE // 2)
            places.setdefault(start, []).append(text)
            end = block.find(b"\n", found)
            found = block.find(needle, end) if end >= 0 else -1
    return places


def _read(kind: texts.LogText | None, number: int, text: bytes) -> Iterator[Line]:
    if kind is None:
        yield from _requests(number, text)
    elif found := kind.pattern.search(text):
        yield Line(kind.kind, number, {name: value.decode(errors="replace")
                                       for name, value in found.groupdict().items()
                                       if value is not None},
                   found.start() == 0)


def _requests(number: int, text: bytes) -> Iterator[Line]:
    """What a line asks for. The supervisor reads it so, before it writes more there."""
    for own in texts.AFTER_REQUEST:
        if found := own.search(text):
            text = text[:found.start()]
    file_start = text.find(texts.FILE_MARKER)
    text_start = text.find(texts.TEXT_MARKER)
    name, file = "", None
    if file_start >= 0:
        parts = _after(text[file_start:], texts.FILE_MARKER).split("==")
        file = parts[0]
        name = parts[1] if len(parts) > 1 else ""
    if text_start >= 0:
        name = _after(text[text_start:], texts.TEXT_MARKER)
    if name:
        yield Line(REQUEST, number, {"name": name} | ({"file": file} if file else {}))


def _after(text: bytes, marker: bytes) -> str:
    before_nul = re.split(rb"\0", text, maxsplit=1)[0]
    return before_nul.decode(errors="replace").replace(marker.decode(), "")
