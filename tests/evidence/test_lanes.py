# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The boots and runs that are concluded from the events."""

from __future__ import annotations

from typing import Any

import pytest

from pynx_watchdog_evidence.events import Event
from pynx_watchdog_evidence.lanes import Bar, boots, runs

START = ("start", {"program": "a"})
CRASH = ("end", {"exit_code": 11, "crash": True, "uptime": 2})
EXIT = ("end", {"exit_code": 3, "crash": False, "uptime": 2})
THIRD = ("reboot", {"reason": "third end"})
ENDED_SOMEHOW = "ended before the next start, it is not known how"


def bars(make: Any, *known: tuple[int, tuple[str, dict[str, Any]]]) -> list[Bar]:
    """The bars of events, each with its time in milliseconds."""
    events = [Event(kind, None, "log", 1, fields) for _, (kind, fields) in known]
    return list(make(events, [time for time, _ in known]))


@pytest.mark.parametrize(("known", "expected"), [
    ([(1000, START), (5000, CRASH)],
     [(1000, 5000, "crashed by signal 11 (SIGSEGV)", "bad", False)]),
    ([(1000, START), (5000, EXIT)], [(1000, 5000, "ended with status 3", "warn", False)]),
    ([(5000, CRASH)], [(3000, 5000, "crashed by signal 11 (SIGSEGV)", "bad", True)]),
    ([(1000, START), (4000, START)], [(1000, 4000, ENDED_SOMEHOW, "unknown", True),
                                      (4000, 4000, "no end of it is known", "good", True)]),
    ([(1000, START), (5000, THIRD)],
     [(1000, 5000, "until the reboot: third end", "bad", False)]),
    # The clock was set back while the application ran.
    ([(5000, START), (1000, EXIT)], [(1000, 1000, "ended with status 3", "warn", False)]),
])
def test_runs(known: Any, expected: list[tuple[int, int, str, str, bool]]) -> None:
    assert [bar[:5] for bar in bars(runs, *known)] == expected


@pytest.mark.parametrize("uptime", [10 ** 30, -5])
def test_an_uptime_that_cannot_be_is_not_believed(uptime: int) -> None:
    end = ("end", {"exit_code": 0, "crash": False, "uptime": uptime})
    assert [bar[:2] for bar in bars(runs, (5000, end))] == [(5000, 5000)]


def message(boot: str) -> tuple[str, dict[str, Any]]:
    """A message with the id of its boot."""
    return "message", {"text": "x", "boot_id": boot}


def cause(text: str, **fields: str) -> tuple[str, dict[str, Any]]:
    """A message with the cause of a boot."""
    return "message", {"text": "x", "cause": text, **fields}


def archive(boot: object, uptime: object) -> tuple[str, dict[str, Any]]:
    """An archive with a manifest."""
    return "archive", {"manifest": {"boot_id": boot, "uptime_s": uptime}}


@pytest.mark.parametrize(("known", "expected"), [
    ([(1000, message("one")), (2000, START), (3000, message("one")), (4000, START),
      (5000, message("two"))], [(1000, 3000, False), (4000, 5000, False)]),
    ([(9000, archive("one", 8.0))], [(1000, 9000, False)]),
    # A manifest writes the id with dashes.
    ([(8000, message("aabb")), (9000, archive("aa-bb", 8.0))], [(1000, 9000, False)]),
    # That is of the machine that the simulated device runs on.
    ([(8000, message("1")), (9000, archive("machine", 8.0))], [(8000, 9000, False)]),
    # What comes after the last message is of the last boot.
    ([(1000, message("one")), (2000, message("two")), (5000, START)],
     [(1000, 1000, False), (2000, 5000, False)]),
    ([(1000, START), (2000, THIRD), (3000, START)], [(1000, 2000, True), (3000, 3000, True)]),
    ([(9000, archive("one", float("nan")))], [(9000, 9000, False)]),
    ([(9000, archive(["one"], "eight"))], [(9000, 9000, True)]),
    ([], []),
])
def test_boots(known: Any, expected: list[tuple[int, int, bool]]) -> None:
    assert [(bar.begin, bar.end, bar.guess) for bar in bars(boots, *known)] == expected


@pytest.mark.parametrize(("known", "expected"), [
    ([(1000, message("aabb")), (2000, message("cd")), (3000, cause("panic", boot_id="c-d"))],
     [(1000, 1000, "boot 1 of 2, aabb"), (2000, 3000, "boot 2 of 2, cause: panic, cd")]),
    ([(1000, START), (2000, cause("power loss")), (3000, START), (4000, THIRD), (5000, START),
      (6000, cause("third end")), (7000, START)],
     [(1000, 1000, "until the next boot"), (2000, 4000, "cause: power loss, until a reboot"),
      (5000, 7000, "cause: third end, to the end of what is known")]),
    ([(1000, cause("panic")), (2000, START), (3000, cause("power loss"))],
     [(1000, 2000, "cause: panic, until the next boot"),
      (3000, 3000, "cause: power loss, to the end of what is known")]),
])
def test_boots_have_their_causes(known: Any, expected: list[tuple[int, int, str]]) -> None:
    assert [bar[:3] for bar in bars(boots, *known)] == expected
