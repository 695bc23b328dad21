# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Documents whose places of findings are marked in them."""

from __future__ import annotations

MARK = "¶"


def without_marks(text: str) -> tuple[str, list[tuple[int, int]]]:
    """The text without its marks, and the line and column of each mark."""
    places = []
    pieces = text.split(MARK)
    for number in range(1, len(pieces)):
        before = "".join(pieces[:number])
        places.append((before.count("\n") + 1, len(before) - (before.rfind("\n") + 1) + 1))
    return "".join(pieces), places


def enveloped(content: str) -> str:
    """A document with this content."""
    return '{"value": {"type": "it", "it": ' + content + '}}'
