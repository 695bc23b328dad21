# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Makes one report of an archive, or of files that lie together: what a fleet counts.

A report is made in a process of its own, or on another machine, and has all that is kept of it.
"""

from __future__ import annotations

import hashlib
import json
from collections.abc import Sequence
from contextlib import suppress
from dataclasses import dataclass, field
from datetime import datetime, timezone
from enum import Enum, auto
from itertools import islice
from pathlib import Path
from typing import Any, NamedTuple

from .archives import Room
from .events import Event
from .incidents import UNKNOWN, Incident, incidents
from .join import MOST_HELD, events_of, held
from .sources import SURPRISES

MOST_INCIDENTS = 10_000  # of a report
MOST_EVENTS = 100_000  # of a report
MOST_PROCESSES = 10  # of a snapshot, for the database
LONGEST_UPTIME = 1e10  # seconds; a manifest that tells more is wrong
LONGEST = 200  # characters of what a manifest tells


class Rows(Enum):
    """What is wanted of the events themselves."""

    NONE = auto()
    SHORT = auto()  # for the database
    WHOLE = auto()


class Row(NamedTuple):
    """An event with its fields as JSON."""

    kind: str
    time: datetime | None
    source: str
    line: int
    fields: str
    identity: str

    def as_json(self) -> str:
        """All of it, as Event.as_dict() has it."""
        head = json.dumps({"kind": self.kind, "time": self.time and self.time.isoformat(),
                           "source": self.source, "line": self.line})
        return head if self.fields == "{}" else f"{head[:-1]}, {self.fields[1:]}"


@dataclass
class Report:
    """What is kept of an archive, or of files that lie together."""

    path: str
    name: str | None = None  # of the report, where it is an archive
    made: datetime | None = None
    device: str = UNKNOWN
    version: str = UNKNOWN  # of the supervisor's package
    firmware: str = UNKNOWN
    boot_id: str | None = None
    uptime: float | None = None  # in seconds, when it was made
    problem: str | None = None  # why it is not whole
    digest: bytes = b""  # of the contents
    found: int = 0  # events
    incidents: list[Incident] = field(default_factory=list)
    rows: list[Row] = field(default_factory=list)
    complaints: list[tuple[str, str]] = field(default_factory=list)  # paths, and what is wrong


def read_report(path: str, names: Sequence[str], rows: Rows) -> Report:
    """The report that the files are; `path` is the archive, or the directory of the files."""
    files = [Path(name) for name in names]
    report = Report(path, digest=_digest(files))
    try:
        _read(report, files, rows)
    except SURPRISES as error:
        # What a file holds may surprise the reader. The other reports are made all the same.
        report.complaints.append((report.path, f"it cannot be read to its end: "
                                               f"{error or type(error).__name__}"))
    return report


def _read(report: Report, files: Sequence[Path], rows: Rows) -> None:
    def complain(file: Path, reason: str) -> None:
        report.complaints.append((str(file), reason))

    events = list(held(events_of(files, complain), Room(MOST_HELD), Path(report.path), complain))
    report.found = len(events)
    for event in events:
        if event.kind == "archive" and event.source == report.path:
            _take_archive(report, event)
    report.incidents = list(islice(incidents(events), MOST_INCIDENTS + 1))
    if rows != Rows.NONE:
        report.rows = [_row(event, rows == Rows.SHORT) for event in events[:MOST_EVENTS]]
    if len(report.incidents) > MOST_INCIDENTS or rows != Rows.NONE and len(events) > MOST_EVENTS:
        complain(Path(report.path), f"only its first {MOST_INCIDENTS} incidents and {MOST_EVENTS} "
                                    "events are taken")
        del report.incidents[MOST_INCIDENTS:]


def _digest(files: Sequence[Path]) -> bytes:
    found = hashlib.sha256()
    for path in files:
        with suppress(OSError):  # it has been complained about
            if path.is_file():  # a pipe would be waited for
                with path.open("rb") as file:
                    found.update(hashlib.file_digest(file, "sha256").digest())
    return found.digest()


def _take_archive(report: Report, archive: Event) -> None:
    report.name = archive.fields["name"]
    report.made = archive.time
    report.problem = archive.fields.get("problem")
    manifest = archive.fields.get("manifest") or {}
    report.device = _told(manifest, "machine") or UNKNOWN
    report.version = _told(manifest, "package_version") or UNKNOWN
    system = manifest.get("os")
    if isinstance(system, dict):
        report.firmware = _told(system, "pretty_name") or " ".join(
            filter(None, (_told(system, "id"), _told(system, "version_id")))) or UNKNOWN
    report.boot_id = _told(manifest, "boot_id")
    uptime = manifest.get("uptime_s")
    if isinstance(uptime, (int, float)) and 0 <= uptime <= LONGEST_UPTIME:
        report.uptime = float(uptime)


def _told(facts: dict[str, Any], name: str) -> str | None:
    value = facts.get(name)
    return value[:LONGEST].encode(errors="replace").decode() \
        if isinstance(value, str) and value else None


def _row(event: Event, is_short: bool) -> Row:
    fields = dict(event.fields)
    if is_short and event.kind == "snapshot":
        fields["processes"] = sorted(
            fields["processes"], key=lambda row: -(row["cpu"] or 0))[:MOST_PROCESSES]
    elif is_short and "manifest" in fields:  # the lines of its journal are events themselves
        fields["manifest"] = {name: value for name, value in fields["manifest"].items()
                              if name != "journal"}
    return Row(event.kind, event.time, event.source, event.line, _json(fields),
               repr(event.identity or (event.source, event.line)))


def _json(fields: dict[str, Any]) -> str:
    """The fields as JSON that SQLite reads: it knows no NaN and no infinity."""
    try:
        text = json.dumps(fields)
        return json.dumps(json.loads(text, parse_constant=lambda _: None))
    except RecursionError:
        return "{}"


def unix_time(time: datetime) -> float:
    """Seconds since 1970. Where the offset from UTC is not known, local time is taken for UTC."""
    return (time if time.tzinfo else time.replace(tzinfo=timezone.utc)).timestamp()
