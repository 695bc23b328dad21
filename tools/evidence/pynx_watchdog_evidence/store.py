# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Keeps the reports of a fleet in SQLite, and counts in them what the tables show.

All of a fleet is counted in the database, also where none is asked for: then it is a temporary
file. So the memory that a fleet takes does not grow with it.
"""

from __future__ import annotations

import hashlib
import os
import sqlite3
from collections.abc import Iterator
from datetime import datetime, timedelta
from pathlib import Path
from typing import Any, NamedTuple

from .incidents import UNKNOWN, Incident
from .reports import Report, Row, unix_time
from .sentence import CERTAIN

APPLICATION_ID = 0x70777465  # says of a file that it is such a database
FORMAT = 1  # of the tables; a later one can't be read by this program
EARLIEST = datetime(2010, 1, 1)  # a clock that tells an earlier time is wrong
LONGEST_TREND = 4  # weeks that are compared with as many before them

DIMENSIONS = ("cause", "application", "firmware", "version", "device", "week")

_TABLES = """
CREATE TABLE reports (          -- an archive, or files that lie together in a directory
    id INTEGER PRIMARY KEY,
    path TEXT NOT NULL,         -- of the archive, or of the directory
    name TEXT,                  -- of the report; null where it is no archive
    made TEXT,                  -- when the archive was begun: ISO 8601
    device TEXT NOT NULL,       -- "machine" of the manifest, or 'unknown'
    firmware TEXT NOT NULL,     -- "os" of the manifest, or 'unknown'
    version TEXT NOT NULL,      -- "package_version" of the manifest, or 'unknown'
    boot_id TEXT,
    uptime_s REAL,              -- of the board, when the archive was made
    problem TEXT,               -- why the archive is not whole; null where it is
    digest BLOB NOT NULL UNIQUE -- SHA-256 over the contents
);
CREATE TABLE copies (           -- further files with the contents of a report
    path TEXT PRIMARY KEY,
    report INTEGER NOT NULL REFERENCES reports (id)
);
CREATE TABLE incidents (        -- what went wrong; once, also if several reports tell it
    id INTEGER PRIMARY KEY,
    report INTEGER NOT NULL REFERENCES reports (id), -- the first that tells it
    cause TEXT NOT NULL,
    application TEXT NOT NULL,  -- without arguments, or 'unknown'
    device TEXT NOT NULL,       -- this and the next two are those of the report
    firmware TEXT NOT NULL,
    version TEXT NOT NULL,
    certainty TEXT NOT NULL,    -- 'certain', or 'likely'
    time TEXT,                  -- ISO 8601, with the offset from UTC where it is known
    unix_time REAL,             -- the same in seconds since 1970, to compare and to sort
    week TEXT NOT NULL,         -- such as '2026-W47', or 'unknown' where the clock was wrong
    source TEXT NOT NULL,       -- the file, and "!" and the member of an archive
    line INTEGER NOT NULL,
    text TEXT NOT NULL,         -- a sentence about it
    key BLOB NOT NULL UNIQUE    -- a check sum of the device and of what the incident is known by
);
CREATE TABLE events (           -- all events, as --jsonl prints them; once, too
    report INTEGER NOT NULL REFERENCES reports (id),
    device TEXT NOT NULL,
    kind TEXT NOT NULL,
    time TEXT,
    unix_time REAL,
    source TEXT NOT NULL,
    line INTEGER NOT NULL,
    fields TEXT NOT NULL,       -- JSON; of a snapshot the ten busiest processes
    key BLOB NOT NULL UNIQUE
);
CREATE INDEX events_by_kind ON events (kind);
"""


class Count(NamedTuple):
    """How often a value of a dimension, such as a cause, is found among the incidents."""

    value: str
    incidents: int
    devices: int
    first: str  # week, or ""
    last: str
    newest: int  # incidents in the newest weeks
    before: int  # incidents in as many weeks before


class Unusable(Exception):
    """A file that cannot be used as a database; the text says why."""


class Store:
    """The reports of a fleet. What is added is written by commit() only."""

    def __init__(self, path: Path | None, latest: datetime) -> None:
        """Open the database at `path`, or a temporary one. A later time than `latest` is wrong.

        Raises Unusable.
        """
        self._latest = latest
        self._is_kept = path is not None
        try:
            # An empty name is a temporary file that SQLite removes itself.
            self._database = sqlite3.connect(path or "", isolation_level=None)
            self._database.execute("BEGIN IMMEDIATE")
            self._prepare()
        except sqlite3.Error as error:
            raise Unusable(f"{path}: {error}") from error

    def _prepare(self) -> None:
        number, = self._database.execute("PRAGMA application_id").fetchone()
        version, = self._database.execute("PRAGMA user_version").fetchone()
        tables, = self._database.execute("SELECT count(*) FROM sqlite_schema").fetchone()
        if not tables:
            self._database.execute(f"PRAGMA application_id = {APPLICATION_ID}")
            self._database.execute(f"PRAGMA user_version = {FORMAT}")
            for statement in _TABLES.split(";\n"):
                self._database.execute(statement)
        elif (number, version) != (APPLICATION_ID, FORMAT):
            raise sqlite3.DatabaseError("it is a database of something else, or of another version")

    def commit(self) -> None:
        """Write what was added."""
        self._database.commit()

    def close(self) -> None:
        """Forget what was not written."""
        self._database.close()

    # -- adding -----------------------------------------------------------------------------------

    def add(self, report: Report) -> list[Row]:
        """Add a report. What is there already, or told by an earlier report, is not added again.

        Returns the events that are new.
        """
        number = self._add_report(report)
        if number is None:
            return []
        # Files of an unknown device are taken for those of one device where they lie together.
        device = report.device if report.device != UNKNOWN else os.path.dirname(report.path)
        for incident in report.incidents:
            self._add_incident(number, report, incident, _key(device, incident.identity))
        return [row for row in report.rows
                if self._add_event(number, report, row, _key(device, row.identity))]

    def _add_report(self, report: Report) -> int | None:
        """The report's number; None if its contents are there already."""
        path = _text(report.path)
        same = self._row("SELECT id, path FROM reports WHERE digest = ?", report.digest)
        if same:
            if same[1] != path:
                self._database.execute("INSERT OR IGNORE INTO copies VALUES (?, ?)",
                                       (path, same[0]))
            return None
        # A log that has grown since it was read takes the place of what it was.
        older = self._row("SELECT id FROM reports WHERE path = ?", path)
        values = (older[0] if older else None, path, report.name and _text(report.name),
                  report.made and report.made.isoformat(), _text(report.device),
                  _text(report.firmware), _text(report.version), report.boot_id, report.uptime,
                  report.problem and _text(report.problem), report.digest)
        return self._database.execute(
            "INSERT OR REPLACE INTO reports VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
            values).lastrowid

    def _add_incident(self, number: int, report: Report, incident: Incident, key: bytes) -> None:
        older = self._row("SELECT incidents.id, certainty, made, path FROM incidents"
                          " JOIN reports ON reports.id = report WHERE key = ?", key)
        # What is certain counts more than a conclusion, then what was told first.
        made = report.made.isoformat() if report.made else "~"
        if older and (older[1] != CERTAIN, older[2] or "~", older[3]) <= (
                incident.certainty != CERTAIN, made, _text(report.path)):
            return
        time = incident.time or report.made
        self._database.execute(
            "INSERT OR REPLACE INTO incidents"
            " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
            (older[0] if older else None, number, _text(incident.cause),
             _text(incident.application), _text(report.device), _text(report.firmware),
             _text(report.version), incident.certainty, time and time.isoformat(),
             time and unix_time(time), self._week(time), _text(incident.source), incident.line,
             _text(incident.text), key))

    def _add_event(self, number: int, report: Report, row: Row, key: bytes) -> bool:
        """Whether the event is new."""
        # A temporary database has to know only which events there are.
        fields = row.fields if self._is_kept else "{}"
        return self._database.execute(
            "INSERT OR IGNORE INTO events VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)",
            (number, report.device, row.kind, row.time and row.time.isoformat(),
             row.time and unix_time(row.time), _text(row.source), row.line, fields, key)
        ).rowcount > 0

    def _week(self, time: datetime | None) -> str:
        if time is None or not EARLIEST <= time.replace(tzinfo=None) <= self._latest:
            return UNKNOWN
        year, week, _ = time.isocalendar()
        return f"{year}-W{week:02}"

    def device_below(self, directory: str) -> str | None:
        """The device whose archives lie below a directory, where they are of a single one."""
        found = self._database.execute(
            "SELECT DISTINCT device FROM reports WHERE path >= ? AND path < ? AND device <> ?"
            " LIMIT 2", (_text(directory) + "/", _text(directory) + "0", UNKNOWN)).fetchall()
        return str(found[0][0]) if len(found) == 1 else None

    # -- counting ---------------------------------------------------------------------------------

    def _row(self, query: str, *values: object) -> Any:
        return self._database.execute(query, values).fetchone()

    def totals(self) -> dict[str, int]:
        """How many reports, copies, incidents, devices and broken archives there are."""
        return {name: self._row(query)[0] for name, query in (
            ("reports", "SELECT count(*) FROM reports"),
            ("copies", "SELECT count(*) FROM copies"),
            ("incidents", "SELECT count(*) FROM incidents"),
            ("devices", "SELECT count(DISTINCT device) FROM reports"),
            ("broken", "SELECT count(*) FROM reports WHERE problem IS NOT NULL"))}

    def weeks(self) -> list[str]:
        """The weeks from the first to the last incident, also those without any."""
        first, last = self._row("SELECT min(week), max(week) FROM incidents WHERE week <> ?",
                                UNKNOWN)
        if first is None:
            return []
        day, end = _monday(first), _monday(last)
        return ["{}-W{:02}".format(*(day + timedelta(weeks=number)).isocalendar())
                for number in range((end - day).days // 7 + 1)]

    def trend_weeks(self) -> int:
        """How many of the newest weeks are compared with as many before them; 0 for a week."""
        return min(LONGEST_TREND, len(self.weeks()) // 2)

    def counts(self, dimension: str) -> list[Count]:
        """The values of a dimension, the most frequent first; the weeks in their order."""
        assert dimension in DIMENSIONS
        weeks, trend = self.weeks(), self.trend_weeks()
        newest = weeks[-trend:] if trend else [""]
        before = weeks[-2 * trend:-trend] if trend else [""]
        order = "1" if dimension == "week" else "2 DESC, 1"
        known = "nullif(week, 'unknown')"
        return [Count(*row) for row in self._database.execute(
            f"SELECT {dimension}, count(*), count(DISTINCT device),"
            f" coalesce(min({known}), ''), coalesce(max({known}), ''),"
            " coalesce(sum(week BETWEEN ? AND ?), 0), coalesce(sum(week BETWEEN ? AND ?), 0)"
            f" FROM incidents GROUP BY 1 ORDER BY {order}",
            (newest[0], newest[-1], before[0], before[-1]))]

    def by_week(self, dimension: str, value: str) -> list[int]:
        """The incidents with this value, in each of the weeks."""
        assert dimension in DIMENSIONS
        found = dict(self._database.execute(
            f"SELECT week, count(*) FROM incidents WHERE {dimension} = ? GROUP BY 1", (value,)))
        return [found.get(week, 0) for week in self.weeks()]

    def newest(self, columns: str, most: int) -> Iterator[Any]:
        """The newest incidents, newest first."""
        return self._database.execute(
            f"SELECT {columns} FROM incidents"
            " ORDER BY unix_time IS NULL, unix_time DESC, key LIMIT ?", (most,))


def _monday(week: str) -> datetime:
    return datetime.fromisocalendar(int(week[:4]), int(week[6:]), 1)


def _key(device: str, identity: str) -> bytes:
    text = f"{device}\0{identity}"
    return hashlib.blake2b(text.encode(errors="replace"), digest_size=16).digest()


def _text(text: str) -> str:
    """The text as SQLite takes it. A path can have bytes that are no UTF-8."""
    return text.encode(errors="replace").decode()
