# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Reads report archives. Nothing of them is ever written under a name of theirs."""

from __future__ import annotations

import re
import tarfile
import tempfile
import zlib
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass, field
from datetime import datetime, timezone
from typing import BinaryIO, cast

from .events import possible

MEMORY = 1 << 23  # bytes of a member that are kept in memory
LARGEST = 1 << 30  # bytes of an archive that are read, unpacked
MOST_MEMBERS = 10_000

_NAME = re.compile(r"(?:tmp_)?(?P<prefix>.*?)-(?P<name>.*)-(?P<ms>\d{12,14})(?:\.tar\.gz)?$")


@dataclass
class Archive:
    """A report archive. The files of its members are open until it is left."""

    name: str | None  # the report's; None where the file has another name
    time: datetime | None  # when it was begun
    members: list[str] = field(default_factory=list)
    complete: bool = False
    problem: str | None = None  # why it is not complete, or not read whole
    files: dict[str, BinaryIO] = field(default_factory=dict)
    changed: dict[str, datetime] = field(default_factory=dict)  # when its files were, if told


@contextmanager
def open_archive(file: BinaryIO, file_name: str) -> Iterator[Archive]:
    """The archive in `file`. What of it can be read is there, also when it is cut or damaged."""
    named = _NAME.fullmatch(file_name)
    archive = Archive(named["name"] if named else None,
                      _time(int(named["ms"]) / 1000) if named else None)
    try:
        _read(file, archive)
        yield archive
    finally:
        for member in archive.files.values():
            member.close()


def _time(seconds: float) -> datetime | None:
    try:
        return possible(datetime.fromtimestamp(seconds, timezone.utc))
    except (ValueError, OverflowError, OSError):
        return None


def _read(file: BinaryIO, archive: Archive) -> None:
    room = LARGEST
    try:
        with tarfile.open(fileobj=file, mode="r|gz") as tar:
            for member in tar:
                if len(archive.members) >= MOST_MEMBERS:
                    archive.problem = f"more than {MOST_MEMBERS} members"
                    return
                archive.members.append(member.name)
                content = tar.extractfile(member) if member.isreg() else None
                if content is None:
                    continue
                copy = cast(BinaryIO, tempfile.SpooledTemporaryFile(MEMORY))
                archive.files[member.name] = copy
                if member.mtime and (changed := _time(member.mtime)):
                    archive.changed[member.name] = changed
                while room > 0 and (block := content.read(min(room, 1 << 20))):
                    copy.write(block)
                    room -= len(block)
                copy.seek(0)
                if room <= 0:
                    archive.problem = f"larger than {LARGEST} bytes"
                    return
        archive.complete = True
    except (tarfile.TarError, EOFError, OSError, zlib.error, ValueError, OverflowError) as error:
        archive.problem = str(error) or type(error).__name__
        for copy in archive.files.values():
            copy.seek(0)
