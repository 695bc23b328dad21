# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What has a beginning and an end: the boots of the board and the runs of the application."""

from __future__ import annotations

import bisect
import math
from collections.abc import Iterator, Sequence
from typing import Any, NamedTuple

from .events import Event
from .sentence import signal_text


LONGEST = 10 * 366 * 86400  # seconds; a text that tells more is wrong


class Bar(NamedTuple):
    """A stretch of time, in milliseconds."""

    begin: int
    end: int
    text: str
    tone: str  # good, bad, warn, plain or unknown
    guess: bool  # whether its ends are concluded from other events
    event: int  # what it is known from, as a number


def runs(events: Sequence[Event], times: Sequence[int | None]) -> Iterator[Bar]:
    """The runs of the application. `times` are those of the events."""
    start: int | None = None  # the number of the event

    def since(time: int) -> int:
        return min(time, times[start] or 0) if start is not None else time

    last = max((time for time in times if time is not None), default=0)
    for at, event in enumerate(events):
        time = times[at]
        if time is None:
            continue
        if event.kind == "end":
            begin = since(time) if start is not None else _ago(time, event.fields["uptime"])
            yield Bar(begin, time, how_ended(event), _tone(event), start is None, at)
            start = None
        elif event.kind == "reboot" and start is not None:
            yield Bar(since(time), time, f"until the reboot: {event.fields['reason']}", "bad",
                      event.fields["reason"] != "third end", start)
            start = None
        elif event.kind == "start":
            if start is not None:
                yield Bar(since(time), time, "ended before the next start, it is not known how",
                          "unknown", True, start)
            start = at
    if start is not None:
        yield Bar(since(last), last, "no end of it is known", "good", True, start)


def how_ended(event: Event) -> str:
    """How the application ended, by an event of kind `end`."""
    code = event.fields["exit_code"]
    if event.fields["crash"]:
        return f"crashed by {signal_text(code)}"
    return f"ended with status {code}"


def _tone(event: Event) -> str:
    if event.fields["crash"]:
        return "bad"
    return "warn" if event.fields["exit_code"] else "good"


def _ago(time: int, seconds: float) -> int:
    return time - int(seconds * 1000) if 0 <= seconds <= LONGEST else time


def boot_of(facts: Any, name: str = "boot_id") -> str | None:
    """The id of a boot, which is written with dashes or without."""
    boot = facts.get(name) if isinstance(facts, dict) else None
    return boot.replace("-", "") if isinstance(boot, str) and boot else None


def boots(events: Sequence[Event], times: Sequence[int | None]) -> Iterator[Bar]:
    """The boots of the board: by their ids where these are known, else from reboot to reboot."""
    found: dict[str, tuple[int, int, int]] = {}
    causes = {boot_of(event.fields): _cause(event) for event in events if "cause" in event.fields}

    def note(boot: str, begin: int, end: int, at: int) -> None:
        earlier = found.get(boot, (begin, end, at))
        found[boot] = min(begin, earlier[0]), max(end, earlier[1]), earlier[2]

    for at, (event, time) in enumerate(zip(events, times)):
        if time is not None and (boot := boot_of(event.fields)):
            note(boot, time, time, at)
    from_messages = set(found)
    for at, (event, time) in enumerate(zip(events, times)):
        manifest = event.fields.get("manifest") or {}
        boot, uptime = boot_of(manifest), manifest.get("uptime_s")
        if time is None or not boot or not isinstance(uptime, (int, float)):
            continue
        # The archives of a simulated device tell the boot of this machine.
        if boot in from_messages or not from_messages:
            note(boot, _ago(time, uptime), time, at)
    ordered = sorted(time for time in times if time is not None)
    before = -math.inf
    for number, (boot, (begin, end, at)) in enumerate(
            sorted(found.items(), key=lambda item: item[1]), 1):
        # What is after the end of one boot and tells none is of the next.
        first = bisect.bisect(ordered, before)
        begin = min([begin, *ordered[first:first + 1]])
        if number == len(found):
            end = max(end, ordered[-1])
        yield Bar(begin, end, f"boot {number} of {len(found)}, {causes.get(boot, '')}{boot}",
                  "plain", False, at)
        before = end
    if not found:
        yield from _between_reboots(events, times)


def _cause(event: Event) -> str:
    return f"cause: {event.fields['cause']}, " if "cause" in event.fields else ""


def _between_reboots(events: Sequence[Event], times: Sequence[int | None]) -> Iterator[Bar]:
    begin: int | None = None
    end, first, cause = 0, 0, ""
    rebooted = False
    for at, (event, time) in enumerate(zip(events, times)):
        if time is None:
            continue
        found = _cause(event)
        if begin is not None and found and not rebooted:
            yield Bar(begin, end, f"{cause}until the next boot", "plain", True, first)
            begin = None
        if begin is None:
            begin, first, cause = time, at, ""
        if found:  # a start can come before it
            cause, rebooted = found, False
        end = max(time, begin)
        if event.kind == "reboot":
            yield Bar(begin, end, f"{cause}until a reboot", "plain", True, first)
            begin, rebooted = None, True
    if begin is not None:
        yield Bar(begin, end, f"{cause}to the end of what is known", "plain", True, first)
