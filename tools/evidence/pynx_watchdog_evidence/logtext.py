# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Keeps as much of a log's text as a page can hold: all of it, or the lines around its events."""

from __future__ import annotations

import bisect
import os
from collections.abc import Iterable, Iterator
from dataclasses import dataclass, field
from datetime import datetime
from typing import BinaryIO

from .events import Clock
from .log import BLOCK, blocks, lines

AROUND = (200, 50, 10, 2, 0)  # lines kept on both sides of an event: as many as there is room for
LONGEST = 4096  # bytes kept of a line, where not all of a log is kept
_UNKNOWN_LINE = 100  # bytes; how long a line is on average, where none is there

Mark = tuple[int, datetime]


@dataclass
class Kept:
    """What is kept of a log: pieces, each of the number of its first line and how many it has."""

    pieces: list[tuple[int, int]] = field(default_factory=list)
    text: bytes = b""  # of all pieces
    lines: int = 0  # in the log
    size: int = 0  # of the log


def keep(streams: list[BinaryIO], event_lines: Iterable[int], room: int) -> Kept:
    """What of a log fits into `room` bytes: the lines around `event_lines`, and samples between."""
    size = sum(stream.seek(0, os.SEEK_END) for stream in streams)
    for stream in streams:
        stream.seek(0)
    if size <= room:
        text = b"".join(stream.read() for stream in streams)
        count = text.count(b"\n") + (not text.endswith(b"\n"))
        return Kept([(1, count)], text, count, size) if text else Kept()
    beginning = streams[0].read(BLOCK)
    streams[0].seek(0)
    average = len(beginning) / (beginning.count(b"\n") or 1) if beginning else _UNKNOWN_LINE
    wanted = _ranges(sorted(event_lines), int(room / 2 / average))
    kept = Kept(size=size)
    texts: list[bytes] = []
    left = room
    for first, block in _numbered(blocks(streams)):
        found = block.split(b"\n")
        if not found[-1]:
            found.pop()
        kept.lines = first + len(found) - 1
        sample = block.count(b"\n", 0, int(room / 2 * len(block) / size))
        for begin, end in _within(wanted, first, first + len(found), first + sample):
            piece = b"".join(line[:LONGEST] + b"\n" for line in found[begin - first:end - first])
            if len(piece) > left:
                continue
            left -= len(piece)
            texts.append(piece)
            _append(kept.pieces, begin, end - begin)
    kept.text = b"".join(texts)
    return kept


def marks(streams: list[BinaryIO], clock: Clock) -> Iterator[Mark]:
    """Lines of a log whose time is known, as pairs of the line's number and its time."""
    for line in lines(streams):
        time = None
        if line.kind == "time line":
            clock.note_time_line(line.fields["gmt"])
            time = clock.last_time_line()
        elif line.kind not in ("interval", "load", "thread total", "thread"):
            # The lines of an alarm have earlier times than its first line.
            time = clock.local(line.fields.get("time", ""), line.is_whole,
                               may_be_late=line.kind == "alarm")
        if time:
            yield line.number, time


def _ranges(event_lines: list[int], room: int) -> list[tuple[int, int]]:
    """The lines around the events, from and to before. They have at most `room` lines, if any."""
    found: list[tuple[int, int]] = []
    for around in AROUND:
        found = []
        for number in event_lines:
            begin, end = max(number - around, 1), number + around + 1
            if found and begin <= found[-1][1]:
                found[-1] = found[-1][0], end
            else:
                found.append((begin, end))
        if sum(end - begin for begin, end in found) <= room:
            break
    return found


def _numbered(texts: Iterable[bytes]) -> Iterator[tuple[int, bytes]]:
    first = 1
    for text in texts:
        yield first, text
        first += text.count(b"\n")


def _within(ranges: list[tuple[int, int]], first: int, last: int,
            sampled: int) -> Iterator[tuple[int, int]]:
    """What to keep of the lines from `first` to before `last`: those to `sampled`, and `ranges`."""
    yield first, sampled
    at = max(bisect.bisect(ranges, (first, 0)) - 1, 0)
    while at < len(ranges) and ranges[at][0] < last:
        begin, end = max(ranges[at][0], sampled), min(ranges[at][1], last)
        if begin < end:
            yield begin, end
        at += 1


def _append(pieces: list[tuple[int, int]], first: int, count: int) -> None:
    if count and pieces and sum(pieces[-1]) == first:
        pieces[-1] = pieces[-1][0], pieces[-1][1] + count
    elif count:
        pieces.append((first, count))
