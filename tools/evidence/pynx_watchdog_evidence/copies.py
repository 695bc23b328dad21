# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Marks the copies of the snapshots that are older than the crash they lie beside.

The supervisor makes the copy at the first crash and never replaces it.
"""

from __future__ import annotations

from collections.abc import Sequence
from datetime import timedelta

from .events import Event, apart

COPY = ".load"  # at the end of its name
OLD = timedelta(seconds=90)  # ten between two snapshots, and at most 60 that one can take


def mark_old_copies(events: Sequence[Event]) -> None:
    """Mark the snapshots of such a copy with `older_than_crash`, its archive with `old_copies`."""
    newest: dict[str, Event] = {}
    for event in events:
        if event.kind == "snapshot" and event.source.endswith(COPY) and event.time:
            newest[event.source] = event
    archives = {event.source: event for event in events if event.kind == "archive"}
    crash = next((event for event in reversed(events) if event.fields.get("crash")), None)
    old = set()
    for source, snapshot in newest.items():
        archive, member = _split(source, archives)
        beside = archives[archive] if archive else crash
        age = apart(snapshot, beside) if beside else None
        if age is not None and age > OLD:
            old.add(source)
            if archive:
                archives[archive].fields.setdefault("old_copies", []).append(member)
    for event in events:
        if event.kind == "snapshot" and event.source in old:
            event.fields["older_than_crash"] = True


def _split(source: str, archives: dict[str, Event]) -> tuple[str, str]:
    """The archive and the member of a source; no archive if it is a file of its own."""
    for at, letter in enumerate(source):
        if letter == "!" and source[:at] in archives:
            return source[:at], source[at + 1:]
    return "", source
