# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Writes the page of a fleet. All that it counts, it counts itself, so that it can be narrowed."""

from __future__ import annotations

from datetime import datetime, timezone
from pathlib import Path
from typing import Any

from .page import write_file
from .store import DIMENSIONS, Store
from .table import headline

MOST_INCIDENTS = 100_000
LONGEST = 500  # characters of a sentence


def write_fleet_page(target: Path, store: Store) -> None:
    """Write the page to `target`. Raises OSError."""
    # A value stands once; the incidents have its number.
    places: dict[str, dict[str, int]] = {name: {} for name in (*DIMENSIONS, "source")}
    # The weeks stand in their order, also those without an incident.
    places["week"] = {week: number for number, week in enumerate(store.weeks())}
    columns: dict[str, list[Any]] = {name: [] for name in (*places, "time", "line", "text")}
    for row in store.newest(", ".join(columns), MOST_INCIDENTS):
        for (name, column), value in zip(columns.items(), row):
            if name in places:
                value = places[name].setdefault(value, len(places[name]))
            elif name == "text":
                value = value[:LONGEST]
            column.append(value)
    write_file(target, "fleet.html", ("base.js", "fleet.js"), {
        "made": datetime.now(timezone.utc).isoformat(timespec="seconds"),
        "headline": headline(store), "found": store.totals()["incidents"],
        "trend": store.trend_weeks(), "weeks": store.weeks(),
        "values": {name: list(values) for name, values in places.items()},
        "incidents": columns})
