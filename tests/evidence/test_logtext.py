# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What is kept of a log that is too large for a page."""

from __future__ import annotations

import io
from datetime import datetime, timedelta, timezone

import pytest

from pynx_watchdog_evidence import logtext
from pynx_watchdog_evidence.events import Clock
from pynx_watchdog_evidence.logtext import Kept, keep, marks


def kept_lines(kept: Kept) -> dict[int, bytes]:
    """The kept lines by their numbers."""
    numbers = [number for first, count in kept.pieces for number in range(first, first + count)]
    texts = kept.text.split(b"\n")[:-1]
    assert len(numbers) == len(texts) == len(set(numbers))
    return dict(zip(numbers, texts))


@pytest.mark.parametrize(("halves", "lines"), [
    ([b""], 0), ([b"a"], 1), ([b"a\n"], 1), ([b"a\nb"], 2), ([b"a\n", b"b\n"], 2),
    ([b"a", b"b\n"], 1),  # a line that begins in the older half
])
def test_a_log_that_fits_is_kept_whole(halves: list[bytes], lines: int) -> None:
    kept = keep([io.BytesIO(half) for half in halves], [], 1000)
    assert kept == Kept([(1, lines)] if lines else [], b"".join(halves), lines,
                        sum(map(len, halves)))


@pytest.mark.parametrize("block", [100, 10_000, 1 << 22])
def test_lines_around_events_and_samples_are_kept(
        monkeypatch: pytest.MonkeyPatch, block: int) -> None:
    monkeypatch.setattr("pynx_watchdog_evidence.log.BLOCK", block)
    monkeypatch.setattr(logtext, "BLOCK", block)
    text = b"".join(b"line %06d\n" % number for number in range(1, 10_001))
    kept = keep([io.BytesIO(text[:50_003]), io.BytesIO(text[50_003:])], {5000, 10_000}, 22_000)
    found = kept_lines(kept)
    assert all(line == b"line %06d" % number for number, line in found.items())
    assert {4800, 5000, 5200, 10_000} <= set(found)
    assert len(kept.text) <= 22_000 and (kept.lines, kept.size) == (10_000, len(text))
    assert len(found) > 2 * 200, "there is no sample"


def test_more_events_have_fewer_lines_around_each() -> None:
    text = b"".join(b"line %06d\n" % number for number in range(1, 10_001))
    events = range(100, 10_001, 100)
    kept = keep([io.BytesIO(text)], events, 60_000)
    assert set(events) <= set(kept_lines(kept)) and len(kept.text) <= 60_000


def test_long_lines_are_cut_where_not_all_is_kept() -> None:
    text = b"short\n" + b"x" * 100_000 + b"\n" + b"short\n" * 10_000
    kept = keep([io.BytesIO(text)], {2}, 20_000)
    assert kept_lines(kept)[2] == b"x" * logtext.LONGEST


def test_a_line_larger_than_the_room_is_left_out() -> None:
    kept = keep([io.BytesIO(b"x" * 100_000)], {1}, 1000)
    assert (kept.text, kept.lines) == (b"", 1)


def test_marks_are_the_lines_whose_time_is_known() -> None:
    text = (b"-- Time: Sun Nov 22 09:00:00 2026 GMT\n"
            b"printed by the application\n"
            b"2026-11-22 10:00:02.000 Process:a (7) cpu load is : 40 for 2 seconds \n"
            b"2026-11-22 10:00:01.000 Time between two invocations:1000ms\n"
            b"2026-11-22 10:00:01.000 a cpu load:50%\n"
            b"2026-11-22 10:00:03.000 == MEMORY USAGE == Free: 1 kB, Buffers+Cache: 1 kB\n")
    hour = timedelta(hours=1)
    assert list(marks([io.BytesIO(text)], Clock(hour))) == [
        (line, datetime(2026, 11, 22, 10, 0, second, tzinfo=timezone(hour)))
        for line, second in ((1, 0), (3, 2), (6, 3))]
