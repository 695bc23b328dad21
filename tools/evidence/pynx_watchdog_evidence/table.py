# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Prints the tables of a fleet."""

from __future__ import annotations

from collections.abc import Iterator, Sequence

from .store import DIMENSIONS, Count, Store
from .words import plain

ROWS = {"cause": 30, "week": 1000}  # that are shown of a table
OTHER_ROWS = 10
WEEKS = 26  # that are drawn
NEWEST = 10  # incidents that are told
WIDEST = 48  # characters of a value

_BARS = " ▁▂▃▄▅▆▇█"


def tables(store: Store) -> Iterator[str]:
    """The lines of the tables."""
    yield headline(store)
    for dimension in DIMENSIONS:
        counts = store.counts(dimension)
        if counts:
            yield ""
            yield from _table(store, dimension, counts)
    newest = list(store.newest("time, device, text, source, line", NEWEST))
    if newest:
        yield ""
        yield "newest incidents"
    for time, device, text, source, line in newest:
        place = f"{source}:{line}" if line else source
        yield plain(f"- {time or 'time unknown'}  {device}  {text}  ({place})")


def headline(store: Store) -> str:
    """What the fleet is, in one sentence."""
    totals = store.totals()
    text = (f"{_count(totals['incidents'], 'incident')} on {_count(totals['devices'], 'device')}, "
            f"told by {_count(totals['reports'], 'report')}")
    if weeks := store.weeks():
        text += f", {weeks[0]} to {weeks[-1]}"
    if totals["copies"]:
        text += f"; {_count(totals['copies'], 'copy', 'copies')} not counted"
    if totals["broken"]:
        text += f"; {_count(totals['broken'], 'archive is', 'archives are')} not whole"
    return text


def trend(count: Count) -> str:
    """How the newest weeks compare with as many before them."""
    if count.newest == count.before:
        return "" if not count.newest else "same"
    if not count.before:
        return "new" if count.newest == count.incidents else "back"
    if not count.newest:
        return "gone"
    return f"{(count.newest - count.before) / count.before:+.0%}"


def _table(store: Store, dimension: str, counts: Sequence[Count]) -> Iterator[str]:
    shown = counts[-ROWS[dimension]:] if dimension == "week" \
        else counts[:ROWS.get(dimension, OTHER_ROWS)]
    width = max(len(dimension), *(len(_short(count.value)) for count in shown))
    most = max(count.incidents for count in shown)
    weeks = store.trend_weeks()
    head = f"{dimension:{width}}  incidents  devices"
    yield head if dimension == "week" else (
        f"{head}  first     last      newest {weeks} weeks  {weeks} before  trend  by week")
    for count in shown:
        line = f"{_short(count.value):{width}}  {count.incidents:9,}  {count.devices:7,}"
        if dimension == "week":
            yield f"{line}  {_BARS[-1] * round(40 * count.incidents / most)}"
            continue
        bars = _bars(store.by_week(dimension, count.value))
        yield (f"{line}  {count.first or '-':8}  {count.last or '-':8}  {count.newest:14,}"
               f"  {count.before:8,}  {trend(count):>5}  {bars}").rstrip()
    if len(counts) > len(shown):
        rest = sum(count.incidents for count in counts[len(shown):])
        yield f"and {len(counts) - len(shown):,} more, with {_count(rest, 'incident')}"


def _short(value: str) -> str:
    return plain(value if len(value) <= WIDEST else value[:WIDEST - 1] + "…")


def _bars(counts: Sequence[int]) -> str:
    shown = counts[-WEEKS:]
    most = max(shown, default=0)
    return "".join(_BARS[-(-count * (len(_BARS) - 1) // most)] if count else " " for count in shown)


def _count(number: int, one: str, many: str = "") -> str:
    return f"{number:,} {one if number == 1 else many or one + 's'}"
