# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Writes the archive that the kernel unpacks as its initial RAM file system (format "newc")."""

from __future__ import annotations

import stat
from pathlib import Path


def archive(directory: Path) -> bytes:
    """All below `directory`, owned by root."""
    entries = []
    for number, path in enumerate(sorted(directory.rglob("*")), start=1):
        mode = path.lstat().st_mode
        if stat.S_ISLNK(mode):
            data = path.readlink().as_posix().encode()
        else:
            data = path.read_bytes() if stat.S_ISREG(mode) else b""
        entries.append(_entry(str(path.relative_to(directory)), number, mode, data))
    return b"".join([*entries, _entry("TRAILER!!!", 0, 0, b"")])


def _entry(name: str, number: int, mode: int, data: bytes) -> bytes:
    encoded = name.encode() + b"\0"
    # inode, mode, uid, gid, links, mtime, size, four device numbers, length of the name, checksum
    fields = (number, mode, 0, 0, 1, 0, len(data), 0, 0, 0, 0, len(encoded), 0)
    return (_padded(b"070701" + b"".join(b"%08x" % field for field in fields) + encoded)
            + _padded(data))


def _padded(data: bytes) -> bytes:
    return data + bytes(-len(data) % 4)
