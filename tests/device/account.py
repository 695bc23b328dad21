# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Compares what pynx-watchdog-evidence tells of an emulated board with what happened on it.

What happened is known from the kernel's trace, from the emulator's events, and from what the test
did. Only what is left in the evidence can be told: a reset takes what was in memory.
"""

from __future__ import annotations

import re
import shutil
import signal
from collections.abc import Iterator
from dataclasses import dataclass
from datetime import datetime, timezone
from pathlib import Path
from typing import Any

from emulated_board import EmulatedBoard
from evidence.facts import Compared, Fact, archives, compare, contents, told_of
from feeds import BootTrace
from qmp import RESET, WATCHDOG

KINDS = ("start", "end", "reboot", "cause", "archive", "alarm", "hang", "not_found", "clock")

# What an engineer would get from a board, in one command, because each costs the board much time.
_COLLECT = r"""
set --
for file in /tmp/log/* /var/log/*/application.log* /tmp/upload/report-*.gz \
    /var/lib/archives/report-*.gz; do
    [ ! -f "$file" ] || set -- "$@" "$file"
done
mkdir -p /host/evidence
cp -p "$@" /host/evidence || exit
[ ! -d /var/log/journal ] ||
    journalctl -t pynx_watchdog -o short-iso-precise >/host/evidence/messages
"""
_LATE = 20.0
"""Seconds that a busy board may take between an event and its line."""

_TIME = rb"(\d{4}-\d\d-\d\d[T ]\d\d:\d\d:\d\d|[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d)"
_START = _TIME + rb"\.\d{3} Watchdog: Starting app: "
_LINES = (
    ("start", _START),
    # The line of a hang has no time, so the time is that of the start before it.
    ("hang", _START + rb"(?:(?!Starting app: ).)*?guard: hang: "),
    ("end", _TIME + rb'[^\n"]* Restarting process: '),
    ("reboot", _TIME + rb'[^\n"]* (?:Critical FW error|Detected filesystem in read-only)'),
    ("cause", _TIME + rb'[^\n"]* Cause of this boot: '),
    ("cause", rb'"cause": [^\n]*"time": "' + _TIME),
)
_ALARM = re.compile(rb"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}) Process:.* \((\d+)\) cpu load is")


def compare_with_evidence(name: str, board: EmulatedBoard) -> Compared:
    """Collect what is left on a board that is up, have it read, and compare."""
    board.check(_COLLECT)
    evidence = board.host / "evidence"
    if not board.systemd:
        shutil.copy(board.journal.path, evidence / "messages")
    told = [event for event in map(_with_kind, told_of(evidence)) if event["kind"] in KINDS]
    return compare(name, [*_facts(board, evidence), *archives(evidence)], told, _fits)


# -- what happened --------------------------------------------------------------------------------


@dataclass
class _Run:
    """A run of a program that the supervisor has started; `status` is as wait() gives it."""

    program: str
    supervisor: int
    begin: float
    end: float | None = None
    status: int = 0


def _runs(trace: BootTrace) -> list[_Run]:
    """The runs of the application in a boot, and those of `reboot`."""
    supervisors: dict[int, int] = {}  # by their children that have started no program yet
    running: dict[int, _Run] = {}
    runs = []
    for event in trace.processes:
        if event.name == "sched_process_fork":
            supervisors[int(event.text.rsplit("child_pid=", 1)[1])] = event.pid
        elif event.name == "sched_process_exec" and event.pid in supervisors:
            program = event.text.removeprefix("filename=").split(" pid=")[0]
            running[event.pid] = _Run(program, supervisors.pop(event.pid), event.time)
            runs.append(running[event.pid])
        elif event.name == "end" and event.pid in running:
            run = running.pop(event.pid)
            run.end, run.status = event.time, int(event.text.rsplit("status=", 1)[1])
    return runs


def _facts(board: EmulatedBoard, evidence: Path) -> Iterator[Fact]:
    boots = board.boots
    nexts = [*(boot.booted for boot in boots[1:]), datetime.now(timezone.utc)]
    lines = _lines(evidence, boots[0].booted.year)
    cause = "unknown"
    for boot, following, ended_by in zip(boots, nexts, _ends_of_boots(board), strict=True):
        half = (following - boot.booted) / 2
        yield Fact("cause", boot.booted + half, {"cause": cause},
                   any(boot.booted <= line < following for line in lines["cause"]),
                   slack=half.total_seconds())
        found = list(_of_supervisor(boot, lines))
        yield from found
        cause = _cause(ended_by, [fact.fields["reason"] for fact in found
                                  if fact.kind == "reboot"])
    if (board.host / "files/etc/pynx-watchdog/WatchdogWatchProcessList.json").exists():
        yield from _alarms(evidence)


def _of_supervisor(boot: BootTrace, lines: dict[str, list[datetime]]) -> Iterator[Fact]:
    """What the supervisor and its application did in a boot."""
    ends: dict[int, int] = {}  # of the application, by the supervisor
    for run in _runs(boot):
        begin = boot.at(run.begin)
        if run.program.endswith("/reboot"):
            reason = "third end" if ends.get(run.supervisor) == 3 else "read-only root"
            yield Fact("reboot", begin, {"reason": reason}, _take(lines["reboot"], begin), _LATE)
            continue
        yield Fact("start", begin, {"program": run.program}, _take(lines["start"], begin), _LATE)
        if run.end is None:
            continue
        ends[run.supervisor] = ends.get(run.supervisor, 0) + 1
        number = run.status & 0x7f
        end = boot.at(run.end)
        yield Fact("end", end, {"exit_code": number or run.status >> 8, "crash": number > 0},
                   _take(lines["end"], end), _LATE)
        if run.program.endswith("-guard") and number == signal.SIGABRT:
            yield Fact("hang", None, {}, _take(lines["hang"], begin))


def _ends_of_boots(board: EmulatedBoard) -> Iterator[list[str]]:
    """How each boot of the system ended, as the emulator and the test say. The last still runs."""
    starts = iter(re.findall(r"(starts the system|the fallback system starts now)$",
                             board.console.text(), re.MULTILINE))
    texts: list[str] = []
    for event in [*board.monitor.events, None]:
        if event is None or event.name in (RESET, "power cut"):
            if next(starts) == "starts the system":
                yield texts
            texts = []
        else:
            texts.append(event.data.get("script", event.name))


def _cause(ended_by: list[str], reboots: list[str]) -> str:
    """What the next boot is to tell of a boot, the strongest cause first."""
    if any("sysrq" in text for text in ended_by):
        return "panic"
    if reboots:
        return reboots[0]
    if WATCHDOG in ended_by:
        return "reset by the watchdog device"
    return "orderly" if any("systemctl" in text for text in ended_by) else "power loss"


# -- what is left of it ---------------------------------------------------------------------------


def _lines(evidence: Path, year: int) -> dict[str, list[datetime]]:
    """The times of the lines in the evidence, by what they are of."""
    found: dict[str, set[datetime]] = {kind: set() for kind, _ in _LINES}
    for files in contents(evidence):
        text = b"\n".join(files.get(name, b"") for name in ("messages", "manifest.json", "boot")) \
            + b"\n" + files.get("application.log.0", b"") + files.get("application.log", b"")
        for kind, pattern in _LINES:
            for stamp in re.findall(pattern, text, re.DOTALL):
                found[kind].add(_time(stamp.decode(), year))
    return {kind: sorted(times) for kind, times in found.items()}


def _time(stamp: str, year: int) -> datetime:
    """The time of a line; the boards have no other than UTC."""
    if stamp[0].isalpha():
        return datetime.strptime(f"{year} {stamp} +0000", "%Y %b %d %H:%M:%S %z")
    return datetime.fromisoformat(stamp).replace(tzinfo=timezone.utc)


def _take(lines: list[datetime], time: datetime) -> bool:
    """Whether there is a line of about this time that is of no other event."""
    near = [line for line in lines if abs((line - time).total_seconds()) <= _LATE]
    if near:
        lines.remove(near[0])
    return bool(near)


def _alarms(evidence: Path) -> Iterator[Fact]:
    """The alarms, which only the supervisor has measured, line by line."""
    for stamp, pid in {found for files in contents(evidence)
                       for name in ("application.log.0", "application.log")
                       for found in _ALARM.findall(files.get(name, b""))}:
        yield Fact("alarm", _time(stamp.decode(), 0), {"pid": int(pid)}, slack=0.01)


# -- the comparison -------------------------------------------------------------------------------


def _with_kind(event: dict[str, Any]) -> dict[str, Any]:
    """The event, with kinds of their own for some messages."""
    if "clock_set" in event:
        return event | {"kind": "clock"}
    if event.get("guard") == "hang":
        return event | {"kind": "hang"}
    return event | {"kind": "cause"} if "cause" in event else event


def _fits(fact: Fact, event: dict[str, Any]) -> bool:
    if event["kind"] != fact.kind or fact.fields != {name: event[name] for name in fact.fields}:
        return False
    if fact.time is None or event["time"] is None:
        return True
    told = datetime.fromisoformat(event["time"])
    told = told if told.tzinfo else told.replace(tzinfo=timezone.utc)
    return abs((told - fact.time).total_seconds()) <= fact.slack
