# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Reads report archives. Nothing of them is ever written under a name of theirs."""

from __future__ import annotations

import gzip
import io
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

MEMORY = 1 << 25  # bytes of an archive's content that are kept in memory
LARGEST = 1 << 29  # bytes of an archive that are read, unpacked
LARGEST_HEADERS = 1 << 22  # bytes of long names and extended headers in an archive
MOST_MEMBERS = 10_000

_NAME = re.compile(r"(?:tmp_)?(?P<prefix>.*?)-(?P<name>.*)-(?P<ms>\d{12,14})(?:\.tar\.gz)?$")


@dataclass
class Room:
    """How many bytes may still be read of an archive and of those within it."""

    left: int


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
def open_archive(file: BinaryIO, file_name: str, room: Room | None = None) -> Iterator[Archive]:
    """The archive in `file`. What of it can be read is there, also when it is cut or damaged."""
    named = _NAME.fullmatch(file_name)
    archive = Archive(named["name"] if named else None,
                      _time(int(named["ms"]) / 1000) if named else None)
    try:
        _read(file, archive, room or Room(LARGEST))
        yield archive
    finally:
        for member in archive.files.values():
            member.close()


def _time(seconds: float) -> datetime | None:
    try:
        return possible(datetime.fromtimestamp(seconds, timezone.utc))
    except (ValueError, OverflowError, OSError):
        return None


class Member(tarfile.TarInfo):
    """A member of an archive. What tarfile would read into memory at any size is refused."""

    def _proc_member(self, tar: tarfile.TarFile) -> tarfile.TarInfo:
        # There is no public way to look at a header before tarfile follows it.
        if self.type == tarfile.GNUTYPE_SPARSE:
            raise tarfile.ReadError("it has a sparse file")
        if self.type in (tarfile.GNUTYPE_LONGNAME, tarfile.GNUTYPE_LONGLINK, tarfile.XHDTYPE,
                         tarfile.XGLTYPE, tarfile.SOLARIS_XHDTYPE):
            taken = getattr(tar, "taken_by_headers", 0) + self.size
            if self.size < 0 or taken > LARGEST_HEADERS:
                raise tarfile.ReadError(f"its headers are larger than {LARGEST_HEADERS} bytes")
            setattr(tar, "taken_by_headers", taken)
        found: tarfile.TarInfo = super()._proc_member(tar)  # type: ignore[misc]
        found.pax_headers = {}  # each member would have a copy of all global headers
        return found

    def _proc_gnusparse_10(self, *_: object) -> None:
        raise tarfile.ReadError("it has a sparse file")


class _Store:
    """One temporary file for all members, so that their number takes no file descriptors."""

    def __init__(self) -> None:
        self.file = tempfile.SpooledTemporaryFile(MEMORY)
        self.size = 0
        self.users = 0

    def release(self) -> None:
        """Close the file after its last user."""
        self.users -= 1
        if not self.users:
            self.file.close()


class _Part(io.RawIOBase):
    """A member in the store."""

    def __init__(self, store: _Store) -> None:
        self._store = store
        self._begin, self._size, self._at = store.size, 0, 0
        store.users += 1

    def append(self, data: bytes) -> None:
        """Add to the member, which is the last one in the store."""
        self._store.file.seek(self._store.size)
        self._store.file.write(data)
        self._store.size += len(data)
        self._size += len(data)

    def readable(self) -> bool:
        return True

    def seekable(self) -> bool:
        return True

    def seek(self, offset: int, whence: int = io.SEEK_SET) -> int:
        self._at = offset + {io.SEEK_SET: 0, io.SEEK_CUR: self._at, io.SEEK_END: self._size}[whence]
        return self._at

    def read(self, size: int = -1) -> bytes:
        self._store.file.seek(self._begin + self._at)
        left = max(self._size - self._at, 0)
        data = self._store.file.read(left if size < 0 else min(size, left))
        self._at += len(data)
        return data

    def close(self) -> None:
        if not self.closed:
            self._store.release()
        super().close()


class _Unpacked:
    """What can be unpacked of a file. An error ends it, after all that came before the error."""

    def __init__(self, file: BinaryIO) -> None:
        self._file = gzip.GzipFile(fileobj=file)
        self.problem: str | None = None

    def read(self, size: int) -> bytes:
        """So many bytes; fewer only at the end."""
        data = b""
        try:
            while not self.problem and len(data) < size \
                    and (block := self._file.read1(size - len(data))):
                data += block
        except (EOFError, OSError, zlib.error) as error:
            self.problem = str(error) or type(error).__name__
        return data


def _read(file: BinaryIO, archive: Archive, room: Room) -> None:
    store = _Store()
    unpacked = _Unpacked(file)
    try:
        with tarfile.open(fileobj=cast(BinaryIO, unpacked), mode="r|", tarinfo=Member) as tar:
            for member in tar:
                if len(archive.members) >= MOST_MEMBERS:
                    archive.problem = f"it has more than {MOST_MEMBERS} members"
                    return
                archive.members.append(member.name)
                if not member.isreg() or member.issparse():
                    continue
                part = _Part(store)
                if member.name in archive.files:
                    archive.files[member.name].close()
                archive.files[member.name] = cast(BinaryIO, part)
                if member.mtime and (changed := _time(member.mtime)):
                    archive.changed[member.name] = changed
                # extractfile() would give nothing of a piece that the cut has shortened.
                content = cast(BinaryIO, tar.fileobj)
                content.seek(member.offset_data)
                left = member.size
                while (most := min(left, room.left, 1 << 20)) > 0 and (block := content.read(most)):
                    part.append(block)
                    room.left -= len(block)
                    left -= len(block)
                if room.left <= 0:
                    archive.problem = f"it is larger than {LARGEST} bytes"
                    return
            while room.left > 0 and (block := unpacked.read(min(room.left, 1 << 20))):
                room.left -= len(block)  # an archive that is cut is noticed at its very end
        archive.complete = not unpacked.problem
        archive.problem = unpacked.problem
    except (tarfile.TarError, EOFError, OSError, ArithmeticError, RecursionError,
            ValueError) as error:
        archive.problem = unpacked.problem or str(error) or type(error).__name__
