# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Finds what went wrong in the events of one device, as it is counted for a fleet."""

from __future__ import annotations

import re
from collections.abc import Callable, Iterator, Sequence
from datetime import datetime
from typing import NamedTuple

from . import texts
from .describe import describe, loads, tells_end
from .ends import ARCHIVE_WITHIN, how_by_guard
from .events import Event, apart, is_after
from .guarded import Guarded, application, guarded_ends
from .lanes import boot_of
from .sentence import CERTAIN, LIKELY, signal_text
from .verdict import verdict

UNKNOWN = "unknown"
LONGEST = 200  # characters of a cause and of an application's name

CRASH = "main"  # the name of the archive that each crash leaves behind
REBOOTS = {"third-end": "third end", "read-only-root": "read-only root"}  # last archives' names
_NO_INCIDENT = ("orderly", UNKNOWN)  # causes of a boot


class Incident(NamedTuple):
    """Something that went wrong, or a report that the application has asked for."""

    cause: str
    application: str  # its program without arguments, or UNKNOWN
    certainty: str
    time: datetime | None
    source: str
    line: int
    text: str  # a sentence
    identity: str  # equal for one incident of a device that is found in two archives


class _Cause(NamedTuple):
    text: str
    certainty: str = CERTAIN
    identity: object = None  # if it is not that of the event


HANG = _Cause("hang")
UNTOLD_CRASH = _Cause("crash, its signal is not told", LIKELY)


def incidents(events: Sequence[Event]) -> Iterator[Incident]:
    """The incidents in the events of one device, which are in order."""
    causes = dict(_causes(events))
    sentences: dict[int, str] = {}
    for sentence in verdict(events):
        for at in sentence.evidence:
            sentences.setdefault(at, sentence.text)
    name = application(events)
    program = next((_program(event, name) for event in events if event.kind == "start"), UNKNOWN)
    time = None
    for at, event in enumerate(events):
        time = _time(event, time)
        if at in causes:
            cause = causes[at]
            identity = cause.identity or event.identity or (event.source, event.line)
            text = cause.text if event.kind == "archive" else describe(event)
            yield Incident(cause.text[:LONGEST], program, cause.certainty, time, event.source,
                           event.line, sentences.get(at, text), repr(identity))
        if event.kind == "start":  # after it, because a start can tell of the end before it
            program = _program(event, name)


def _time(event: Event, before: datetime | None) -> datetime | None:
    """When the event happened. Some are only known to come after what precedes them."""
    if event.time is None or before and is_after(event) \
            and (before.tzinfo is None) == (event.time.tzinfo is None) and before > event.time:
        return before
    return event.time


def _program(start: Event, name: Callable[[str], str]) -> str:
    """The application's name. Where it ends and its arguments begin, only blanks tell."""
    return name(str(start.fields["program"]).split(" ")[0])[:LONGEST] or UNKNOWN


def _causes(events: Sequence[Event]) -> Iterator[tuple[int, _Cause]]:
    """The events that are incidents, as their numbers, each with its cause."""
    has_ends = any(event.kind == "end" for event in events)
    requested = {_in_a_file_name(event.fields["name"]) for event in events
                 if event.kind == "request"}
    boots = {event.source: boot_of(event.fields.get("manifest")) for event in events
             if event.kind == "archive"}
    restarts = _restarts(events)
    guarded = {run.at: run for run in guarded_ends(events)}
    running = False
    crashes: list[int] = []
    for at, event in enumerate(events):
        cause = None
        run = guarded.get(at)
        if event.kind == "start":
            if run and (run.went_wrong or not has_ends):
                cause = _by_guard(events, run)
            elif running and not has_ends:
                cause = UNTOLD_CRASH if at in restarts else _Cause("ended, it is not told how",
                                                                   LIKELY)
            running = True
        elif event.kind == "reboot":
            running = False
            boot = boot_of(event.fields) or boots.get(event.source.split("!")[0])
            cause = _reboot(event.fields["reason"], boot)
        elif event.kind == "archive":
            cause = _of_archive(events, at, requested, crashes)
        elif event.kind == "end" and run and run.hung:
            cause = HANG
        else:
            cause = _of_event(event)
        if cause:
            yield at, cause
        if event.fields.get("crash") or cause is UNTOLD_CRASH \
                or event.kind == "start" and run and run.went_wrong:
            crashes.append(at)


def _by_guard(events: Sequence[Event], run: Guarded) -> _Cause:
    how = how_by_guard(events, run)
    return HANG if run.hung else _Cause(f"{'crash' if run.went_wrong else 'ended'} {how}")


def _of_event(event: Event) -> _Cause | None:
    known = event.fields
    if event.kind == "end":
        return _Cause(f"crash by {signal_text(known['exit_code'])}" if known["crash"]
                      else f"ended with status {known['exit_code']}")
    if event.kind == "start_failed":
        return _Cause(f"start failed with code {known['code']}")
    if event.kind == "alarm":
        is_load = loads(event) or not tells_end(event)
        return _Cause(f"{'too much load' if is_load else 'watched process ended'}: "
                      f"{known['process'] or UNKNOWN}")
    if event.kind == "not_found":
        return _Cause(f"missing process: {known['process']}")
    if event.kind == "request":
        # What the guard has asked for belongs to an end, which is an incident itself.
        return None if texts.GUARD_FILE.fullmatch(known["file"] or "") \
            else _request(_in_a_file_name(known["name"]))
    if event.kind == "message" and known.get("cause") not in (None, *_NO_INCIDENT):
        if known["cause"] in REBOOTS.values():
            # A line of the system log does not say which reboot it was. It has a line of its own.
            return _reboot(known["cause"], boot_of(known, "last_boot_id")) \
                if "concluded_from" in known else None
        return _Cause(f"boot after {known['cause']}")
    return None


# -- archives ------------------------------------------------------------------------------------


def _restarts(events: Sequence[Event]) -> set[int]:
    """The last start in the log of each archive of a crash: the one after the crash."""
    logs = tuple(f"{event.source}!" for event in events
                 if event.kind == "archive" and event.fields["name"] == CRASH)
    last = {event.source.split("!")[0]: at for at, event in enumerate(events)
            if logs and event.kind == "start" and event.source.startswith(logs)}
    return set(last.values())


def _of_archive(events: Sequence[Event], at: int, requested: set[str],
                crashes: list[int]) -> _Cause | None:
    """What an archive tells by its name, where no other event tells it."""
    archive = events[at]
    name = archive.fields["name"]
    if name in REBOOTS:
        boot = boot_of(archive.fields.get("manifest"))
        told = any(event.kind == "reboot" for event in events)
        return None if told and not boot else _reboot(REBOOTS[name], boot)
    if name == CRASH:
        # A crash that is concluded from a start is this archive's, whatever the clock told.
        is_told = any(events[crash].kind == "start" or _is_soon(events[crash], archive)
                      for crash in crashes)
        return None if is_told else UNTOLD_CRASH
    return None if name is None or name in requested else _request(name)


def _is_soon(earlier: Event, later: Event) -> bool:
    within = apart(earlier, later)
    return within is not None and within <= ARCHIVE_WITHIN


def _request(name: str) -> _Cause:
    return _Cause(f"report requested: {name}")


def _in_a_file_name(name: str) -> str:
    """The name of a report as the supervisor writes it into the name of the archive."""
    return re.sub(r"[^\w-]", "_", name)


# -- the board -----------------------------------------------------------------------------------


def _reboot(reason: str, boot: str | None) -> _Cause:
    # The same reboot is told by the last archive before it and by the cause of the next boot.
    return _Cause(f"reboot: {reason}", identity=("reboot", boot) if boot else None)
