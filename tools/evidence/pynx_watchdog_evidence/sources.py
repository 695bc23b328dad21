# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Finds out what each file is, and reads its events."""

from __future__ import annotations

import json
import os
import re
import stat
from collections.abc import Callable, Iterable, Iterator
from contextlib import ExitStack, suppress
from dataclasses import dataclass, field
from datetime import datetime, timedelta, timezone
from pathlib import Path
from typing import Any, BinaryIO

from . import messages, texts
from .archives import LARGEST, Archive, Room, open_archive
from .events import Clock, Event, possible
from .jumps import Readings
from .log import blocks
from .logevents import log_events
from .snapshots import looks_like_snapshots, snapshots
from .stacks import stack_fields

BEGINNING = 1 << 16  # bytes of a file that tell what it is
LARGEST_EXPORT = 1 << 26  # bytes of an exported journal, and of stacks
LARGEST_SMALL = 1 << 20  # bytes of a manifest, of snapshots and of the cause of a boot
DEEPEST = 2  # archives in archives
SURPRISES = (ArithmeticError, LookupError, RecursionError, TypeError, ValueError)
ACCOUNT = "account.jsonl"  # of a simulated device
GZIP = b"\x1f\x8b"  # the first bytes of an archive


class Unreadable(Exception):
    """A file that cannot be read; the text says why."""


def find(path: Path) -> Iterator[Path]:
    """The files at `path`, which is one itself or a directory. Links are not followed there.

    Of a simulated device, these are its account and what the board has written below tmp/. A
    directory that cannot be listed is among them, so that reading it tells why.
    """
    if not os.path.isdir(path):
        yield path
        return
    closed: list[OSError] = []
    for directory, directories, names in os.walk(path, onerror=closed.append):
        directories.sort()
        if ACCOUNT in names:
            directories[:] = {"tmp"}.intersection(directories)
            names = [ACCOUNT]
        for name in sorted(names):
            file = Path(directory, name)
            with suppress(OSError):  # what cannot be looked at is told when it is read
                if not stat.S_ISREG(file.lstat().st_mode):
                    continue
            yield file
    yield from (Path(error.filename) for error in closed)


def is_archive(path: Path) -> bool:
    """Whether the file at `path` is an archive, whose members are sources of their own."""
    try:
        if not path.is_file():  # a pipe would be waited for
            return False
        with path.open("rb") as file:
            return file.read(len(GZIP)) == GZIP
    except OSError:
        return False


def older_half(path: Path) -> Path:
    """Where the older half of the log at `path` is."""
    return path.with_name(path.name + ".0")


def read(path: Path) -> Iterator[Event]:
    """The events in the file at `path`; those of a log's older half come first.

    Raises Unreadable.
    """
    try:
        if not path.is_file() and not path.is_dir():
            raise Unreadable("it is no file")
        with ExitStack() as files:
            older = older_half(path)
            streams: list[BinaryIO] = [
                files.enter_context(file.open("rb"))
                for file in ((older, path) if older.is_file() else (path,))]
            yield from _read(str(path), path.name, streams, _Context(_changed(path)))
    except OSError as error:
        raise Unreadable(error.strerror or str(error)) from error


def _changed(path: Path) -> datetime:
    return datetime.fromtimestamp(path.stat().st_mtime)


@dataclass(frozen=True)
class Log:
    """A text that events are from, most of all the application's log."""

    name: str  # as in Event.source

    def open(self, archives: Archives) -> list[BinaryIO]:
        """Its halves, the older one first, or the one file that it is. The caller closes them.

        Raises OSError, which can also say that it is no longer there.
        """
        if not os.path.exists(self.name):
            return self._open_member(archives)
        path = Path(self.name)
        with path.open("rb") as file:
            has_halves = _reader(path.name, file.read(BEGINNING)) in _OF_HALVES
        older = older_half(path)
        halves = [older, path] if has_halves and older.is_file() else [path]
        return [half.open("rb") for half in halves]

    def _open_member(self, archives: Archives) -> list[BinaryIO]:
        parts = self.name.split("!")
        for count in range(1, len(parts)):
            path, member = Path("!".join(parts[:count])), "!".join(parts[count:])
            if path.is_file():
                break
        else:
            raise FileNotFoundError(f"{self.name}: it is not there")
        files = archives.open(path).files
        if member not in files:
            raise FileNotFoundError(f"{self.name}: it is not in the archive")
        newer = files.pop(member)
        reader = _reader(os.path.basename(member), newer.read(BEGINNING))
        newer.seek(0)
        older = files.pop(member + ".0", None) if reader in _OF_HALVES else None
        return [older, newer] if older else [newer]


class Archives:
    """Opens archives. The last one stays open, because one archive can have very many texts."""

    def __init__(self) -> None:
        self._stack = ExitStack()
        self._path: Path | None = None
        self._archive: Archive | None = None

    def open(self, path: Path) -> Archive:
        """The archive, until another one is opened. Raises OSError."""
        if self._archive is None or path != self._path:
            self.close()
            file = self._stack.enter_context(path.open("rb"))
            self._archive = self._stack.enter_context(open_archive(file, path.name))
            self._path = path
        return self._archive

    def close(self) -> None:
        """Close the one that is open."""
        self._archive = None
        self._stack.close()


def logs_of(events: Iterable[Event]) -> list[Log]:
    """The texts that the events are from, the application's log first."""
    names: dict[str, bool] = {}
    for event in events:
        # The lines of a manifest are not those of its file.
        if event.line and not event.source.endswith("!manifest.json"):
            names[event.source] = names.get(event.source, False) or event.kind == "start"
    return [Log(name) for name in sorted(names, key=lambda name: not names[name])]


@dataclass
class _Context:
    """What is known about a file beforehand."""

    latest: datetime  # when it was changed, in local time of the board where `offset` is known
    offset: timedelta | None = None  # of the board's time from UTC
    room: Room = field(default_factory=lambda: Room(LARGEST))
    depth: int = 0  # in how many archives it is


def _read(source: str, name: str, streams: list[BinaryIO], context: _Context) -> Iterator[Event]:
    """The events of a file. `streams` are its halves, the older one first, or it alone."""
    stream = streams[-1]
    beginning = stream.read(BEGINNING)
    stream.seek(0)
    if beginning.startswith(GZIP):
        yield from _archive(source, name, stream, context)
        return
    reader = _reader(name, beginning)
    yield from reader(source, streams if reader in _OF_HALVES else [stream], context)


Reader = Callable[[str, list[BinaryIO], _Context], Iterator[Event]]


def _reader(name: str, beginning: bytes) -> Reader:
    """What reads a file with this beginning. Most of all that is a log."""
    text = beginning.decode(errors="replace")
    if name == ACCOUNT:
        return _account
    if text.startswith(texts.BOOT_CAUSE):
        return _boot_cause
    if texts.STACKS.match(text):
        return _stacks
    if text.startswith("__CURSOR="):
        return _journal_export
    if text.startswith("{") and "__REALTIME_TIMESTAMP" in text:
        return _journal_json
    if looks_like_snapshots(text):
        return _snapshots
    if messages.is_system_log(text):
        return _system_log
    if messages.is_standard_error(text) and not any(
            line.pattern.search(beginning) for line in texts.LOG_TEXTS):
        return _standard_error
    return _log


def _lines(streams: list[BinaryIO]) -> Iterator[str]:
    for block in blocks(streams):
        yield from block.decode(errors="replace").removesuffix("\n").split("\n")


def _all(stream: BinaryIO, largest: int) -> bytes:
    """The content of a file that is not larger. Raises Unreadable."""
    data = stream.read(largest + 1)
    if len(data) > largest:
        raise Unreadable(f"it is larger than {largest} bytes")
    return data


def _log(source: str, streams: list[BinaryIO], context: _Context) -> Iterator[Event]:
    return log_events(streams, source, Clock(context.offset))


def _account(source: str, streams: list[BinaryIO], _context: _Context) -> Iterator[Event]:
    return messages.message_events(messages.account(_lines(streams)), source)


def _journal_export(source: str, streams: list[BinaryIO], _context: _Context) -> Iterator[Event]:
    data = _all(streams[-1], LARGEST_EXPORT)
    return messages.message_events(messages.journal_export(data), source)


def _journal_json(source: str, streams: list[BinaryIO], _context: _Context) -> Iterator[Event]:
    return messages.message_events(messages.journal_json(_lines(streams)), source)


def _system_log(source: str, streams: list[BinaryIO], context: _Context) -> Iterator[Event]:
    found = messages.system_log(_lines(streams), context.latest.year)
    return messages.message_events(found, source)


def _standard_error(source: str, streams: list[BinaryIO], _context: _Context) -> Iterator[Event]:
    return messages.message_events(messages.standard_error(_lines(streams)), source)


_OF_HALVES = (_log, _system_log, _standard_error, _journal_json, _account)


_BOOT_FIELDS = ("boot_id", "last_boot_id", "last_boot_time", "end_reason", "end_time",
                "panic_record", "bootstatus", "fail", "boot_count")


def _boot_cause(source: str, streams: list[BinaryIO], _context: _Context) -> Iterator[Event]:
    lines = _all(streams[-1], LARGEST_SMALL).decode(errors="replace").rstrip().split("\n")
    try:
        found = json.loads(lines[-1])
    except (ValueError, RecursionError):
        found = None
    if not isinstance(found, dict):
        found = {}
    reasons = found.get("concluded_from")
    fields = {"text": lines[0], "cause": lines[0].removeprefix(texts.BOOT_CAUSE),
              "concluded_from": list(map(str, reasons)) if isinstance(reasons, list) else []}
    fields |= {name: value for name, value in found.items()
               if name in _BOOT_FIELDS and isinstance(value, (str, int))}
    boot = fields.get("boot_id")
    yield Event("message", _noted(found.get("time")), source, 1, fields, boot and ("boot", boot))


def _stacks(source: str, streams: list[BinaryIO], _context: _Context) -> Iterator[Event]:
    text = _all(streams[-1], LARGEST_EXPORT).decode(errors="replace")
    head = texts.STACKS.match(text)
    assert head
    yield Event("message", _noted(f"{head['date']}T{head['clock']}{head['zone']}"), source, 1,
                stack_fields(text), ("stacks", head[0]))


def _snapshots(source: str, streams: list[BinaryIO], context: _Context) -> Iterator[Event]:
    found = list(snapshots(_all(streams[-1], LARGEST_SMALL).decode(errors="replace")))
    # The snapshots have no date. The last was taken shortly before the file was written, and the
    # others shortly before it. The offset of the board's time may not be known, and the clock may
    # have been set, so each is of the day that brings it nearest.
    later = context.latest
    times: list[datetime | None] = []
    for snapshot in reversed(found):
        time = None
        if snapshot.clock:
            day = datetime.combine(later.date(), snapshot.clock)
            time = later = min((day + timedelta(days=days) for days in (-1, 0, 1)),
                               key=lambda candidate: abs(candidate - later))
        times.append(time)
    zone = None if context.offset is None else timezone(context.offset)
    readings = Readings(source)
    for snapshot, local in zip(found, reversed(times)):
        time = local and local.replace(tzinfo=zone)
        yield from readings.note(snapshot.line, time)
        yield Event("snapshot", time, source, snapshot.line,
                    {"load_average": snapshot.load_average, "processes": snapshot.processes},
                    ("snapshot", snapshot.text))


def _archive(source: str, name: str, stream: BinaryIO, context: _Context) -> Iterator[Event]:
    if context.depth == DEEPEST:
        raise Unreadable("it is an archive in an archive in an archive")
    with open_archive(stream, name, context.room) as archive:
        manifest = _manifest(archive)
        made = _made(manifest)
        fields: dict[str, Any] = {"name": archive.name, "members": archive.members,
                                  "complete": archive.complete}
        if archive.problem:
            fields["problem"] = archive.problem
        if manifest:
            fields["manifest"] = manifest
        begun = archive.time.astimezone(made.tzinfo) if archive.time and made else archive.time
        yield Event("archive", begun or made, source, 0, fields,
                    ("archive", name, *archive.members))
        offset = made.utcoffset() if made else None
        latest = made or archive.time or datetime.now(timezone.utc)
        journal = manifest.get("journal") if manifest else None
        if isinstance(journal, list):
            lines = [line for line in journal if isinstance(line, str)]
            yield from messages.message_events(
                messages.system_log(lines, latest.year), f"{source}!manifest.json")
        problems = []
        for member, file in archive.files.items():
            older = archive.files.get(member + ".0")
            if member == "manifest.json" or member.endswith(".0") and member[:-2] in archive.files:
                continue
            changed = archive.changed.get(member, latest)  # in UTC or with its offset
            local = changed.astimezone(timezone(offset or timedelta())).replace(tzinfo=None)
            try:
                yield from _read(f"{source}!{member}", os.path.basename(member),
                                 [older, file] if older else [file],
                                 _Context(local, offset, context.room, context.depth + 1))
            except (Unreadable, *SURPRISES) as error:
                problems.append(f"{member}: {error or type(error).__name__}")
        if problems:
            more = f", and {len(problems) - 3} more" if len(problems) > 3 else ""
            raise Unreadable("; ".join(problems[:3]) + more)


def _manifest(archive: Archive) -> dict[str, Any] | None:
    file = archive.files.get("manifest.json")
    if file is None:
        return None
    try:
        manifest = json.loads(_all(file, LARGEST_SMALL))
    except (Unreadable, ValueError, RecursionError):
        archive.problem = archive.problem or "its manifest cannot be read"
        return None
    return manifest if isinstance(manifest, dict) else None


def _made(manifest: dict[str, Any] | None) -> datetime | None:
    return _noted(manifest.get("time")) if manifest else None


def _noted(text: object) -> datetime | None:
    """The time that a board tool has written."""
    try:
        return possible(datetime.fromisoformat(re.sub(r"([-+]\d\d)(\d\d)$", r"\1:\2", text))) \
            if isinstance(text, str) else None
    except ValueError:
        return None
