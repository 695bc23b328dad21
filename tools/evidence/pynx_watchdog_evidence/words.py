# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Times in words, and texts for a terminal."""

from __future__ import annotations

from datetime import datetime


def duration(seconds: float) -> str:
    """A number of seconds, rounded."""
    if seconds < 120:
        return f"{seconds:.0f} s"
    if seconds < 7200:
        return f"{seconds / 60:.0f} min"
    if seconds < 172800:
        return f"{seconds / 3600:.0f} h"
    return f"{seconds / 86400:.0f} days"


def moment(time: datetime) -> str:
    """A time, to the second."""
    return time.isoformat(sep=" ", timespec="seconds")


def plain(text: str) -> str:
    """The text without what a terminal would take for a command."""
    return "".join(letter if letter.isprintable() else "�" for letter in text)
