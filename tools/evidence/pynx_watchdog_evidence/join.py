# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Joins the events of many sources: each once, in the order of their times."""

from __future__ import annotations

import itertools
import os
from collections import deque
from collections.abc import Callable, Iterable, Iterator, Sequence
from datetime import datetime, timedelta, timezone
from pathlib import Path

from . import sources
from .archives import Room
from .copies import mark_old_copies
from .events import Event, apart
from .jumps import Jumps, with_jumps_by_uptime

# Some system logs tell no parts of a second, nor do the guard's stacks. The next start comes a
# second after an end.
LATEST_IN_SECOND = timedelta(milliseconds=999)

# The cause of a boot is also logged, after it was concluded, for which a slow board takes its time.
LOGGED_WITHIN = timedelta(seconds=60)

MOST_HELD = 200_000  # events and parts of events, where all have to be in memory

Complain = Callable[[Path, str], None]


def events_of(paths: Iterable[Path], complain: Complain) -> Iterator[Event]:
    """The events in the files at `paths`. A file that cannot be read is left out and told."""
    files = sorted({os.path.realpath(file): file
                    for path in paths for file in sources.find(path)}.values())
    halves = {sources.older_half(file) for file in files}
    logs = [file for file in files if file not in halves or not os.path.isfile(_log_of(file))]
    # A single source is in order as it is, so that a huge log takes no memory. An archive is many.
    if len(logs) == 1 and not sources.is_archive(logs[0]):
        yield from _readable(logs[0], complain)
        return
    room = MOST_HELD
    found: dict[Path, list[Event]] = {}
    # Each file has a share, so that none costs the others. What small ones leave, large ones have.
    for file in sorted(logs, key=_size):
        share = Room(room // (len(logs) - len(found)))
        room -= share.left
        found[file] = list(held(_readable(file, complain), share, file, complain))
        room += share.left
    yield from _in_order([found[file] for file in logs])


def held(events: Iterable[Event], room: Room, file: Path, complain: Complain) -> Iterator[Event]:
    """The last events of a file, as many as there is memory for. If that is not all, it is told.

    An archive comes first among its events. It is kept, because it tells which device it is of.
    """
    kept: deque[Event] = deque()
    archive, lost = None, 0
    for event in events:
        room.left -= _parts(event)
        kept.append(event)
        while room.left < 0 and kept:
            oldest = kept.popleft()
            if archive is None and oldest.kind == "archive":
                archive = oldest
            else:
                room.left += _parts(oldest)
                lost += 1
    if lost:
        complain(file, f"it has too many events: the first {lost} are not told")
    if archive:
        yield archive
    yield from kept


def _parts(event: Event) -> int:
    return 1 + sum(len(value) for value in event.fields.values() if isinstance(value, (list, dict)))


def _size(file: Path) -> int:
    try:
        return file.stat().st_size
    except OSError:
        return 0  # reading it tells why


def _log_of(half: Path) -> Path:
    return half.with_name(half.name.removesuffix(".0"))


def _readable(file: Path, complain: Complain) -> Iterator[Event]:
    try:
        yield from sources.read(file)
    except sources.Unreadable as error:
        complain(file, str(error))
    except sources.SURPRISES as error:
        # What a file holds may surprise the reader. The other files are read all the same.
        complain(file, f"it cannot be read to its end: {error or type(error).__name__}")


def _in_order(found: list[list[Event]]) -> Iterator[Event]:
    offset = most_frequent_offset(found)
    jumps = Jumps(itertools.chain.from_iterable(found), lambda time: _utc(time, offset))
    placed = []
    latest: dict[str, datetime] = {}
    for event in itertools.chain.from_iterable(found):
        # In a source the order is that of the lines.
        before = latest.get(event.source, datetime.min.replace(tzinfo=timezone.utc))
        place = jumps.place(event) or before
        if (event.kind == "end" or "stacks" in event.fields) \
                and event.time and not event.time.microsecond:
            place += LATEST_IN_SECOND
        latest[event.source] = max(before, place)
        placed.append((latest[event.source], event))
    placed.sort(key=lambda place: place[0])
    events = list(with_jumps_by_uptime(_once((event for _, event in placed), jumps), jumps))
    mark_old_copies(events)
    yield from events


def _once(events: Iterable[Event], jumps: Jumps) -> Iterator[Event]:
    seen: set[object] = set()
    concluded: Event | None = None  # the cause of a boot, which has not been found in a log yet
    for event in events:
        if event.identity is not None:
            if event.identity in seen:
                continue
            seen.add(event.identity)
        if "concluded_from" in event.fields:
            concluded = event
        elif concluded and _is_logged(concluded, event):
            concluded = None
            continue
        if jumps.is_first(event):
            yield event


def _is_logged(concluded: Event, event: Event) -> bool:
    """Whether a message tells the cause of a boot that its own file has told already."""
    later = apart(concluded, event)
    return event.fields.get("cause") == concluded.fields["cause"] \
        and later is not None and timedelta() <= later <= LOGGED_WITHIN


def _utc(time: datetime, offset: timedelta) -> datetime:
    if time.tzinfo is None:
        time = time.replace(tzinfo=timezone(offset))
    return time.astimezone(timezone.utc)


def most_frequent_offset(found: Sequence[Sequence[Event]]) -> timedelta:
    """What a local time without an offset is taken for."""
    counts: dict[timedelta, int] = {}
    for events in found:
        for event in events:
            known = event.time.utcoffset() if event.time else None
            if known is not None:
                counts[known] = counts.get(known, 0) + 1
    # A source in UTC, such as the journal, tells nothing about the local time.
    local = {known: count for known, count in counts.items() if known} or counts
    return max(local, key=lambda known: local[known], default=timedelta())
