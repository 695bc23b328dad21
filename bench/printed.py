# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What bench-logwriter prints, and whether log files hold the end of it."""

from __future__ import annotations

import pathlib
from collections.abc import Iterable
from typing import NamedTuple

LIMIT = 8 * 1024 * 1024  # bytes in the current log file
RECORD_SIZE = 100  # as bench-logwriter prints them
KEPT = "yes"


class Shape(NamedTuple):
    """What the application prints."""
    title: str
    arguments: list[str]  # of bench-logwriter
    size: int  # bytes


def printed(shape: Shape, begin: int, end: int) -> bytes:
    """The bytes from begin to end of what bench-logwriter prints."""
    last = b"." if "-1" in shape.arguments else b"\n"
    rest = b"." * (RECORD_SIZE - 17) + last
    first = begin // RECORD_SIZE
    text = b"".join(b"%016d%b" % (number, rest)
                    for number in range(first, (end + RECORD_SIZE - 1) // RECORD_SIZE))
    if end == shape.size:
        text = text[:-1] + b"\n"
    return text[begin - first * RECORD_SIZE:end - first * RECORD_SIZE]


def compare(shape: Shape, files: Iterable[pathlib.Path]) -> str:
    """KEPT where the files hold the unbroken end of what was printed, or what they hold instead."""
    kept = b"".join(path.read_bytes() for path in files if path.exists())
    if len(kept) < min(LIMIT, shape.size):
        return f"only {len(kept)} bytes"
    expected = printed(shape, max(0, shape.size - len(kept)), shape.size)
    if kept == expected:
        return KEPT
    if expected.replace(b"\n", b"").endswith(kept.replace(b"\n", b"")):
        return "line split"
    return "NOT the last bytes"
