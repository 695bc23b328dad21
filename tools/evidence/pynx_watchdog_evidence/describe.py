# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Tells an event in words."""

from __future__ import annotations

from .events import Event
from .lanes import how_ended
from .snapshots import busiest
from .stacks import where


def describe(event: Event) -> str:
    """The event in one line of text."""
    known = event.fields
    if event.kind == "start":
        return f"application started: {known['program']}"
    if event.kind == "end":
        return f"application {how_ended(event)} after {known['uptime']} s"
    if event.kind == "start_failed":
        return f"start failed with code {known['code']}"
    if event.kind == "alarm":
        process = known["process"] or "a process that has ended"
        return (f"{process} ({known['pid']}): load of {known['threshold']} % or more "
                f"for {known['period']} s" + _measured(event))
    if event.kind == "not_found":
        return f"{known['process']} [{known['arguments']}] was missing for {known['seconds']} s"
    if event.kind == "memory":
        return (f"memory: {known['free_kib'] // 1024} MiB unused, "
                f"{known['cache_kib'] // 1024} MiB buffers and cache")
    if event.kind == "request":
        return f"report requested: {known['name']}" \
            + (f", with {known['file']}" if known["file"] else "")
    if event.kind == "archive":
        whole = "" if known["complete"] else f", not whole: {known.get('problem')}"
        old = "".join(f", {copy} is of an earlier crash" for copy in known.get("old_copies", []))
        return f"archive {known['name'] or ''}: {len(known['members'])} files{whole}{old}"
    if event.kind == "snapshot":
        return _snapshot(event)
    if event.kind == "reboot":
        return f"reboot: {known['reason']}"
    if "cause" in known:
        return f"the board has booted: {known['cause']}"
    if "stacks" in known:
        return f"stacks of a {known['text']}; {where(event)}"
    return str(known.get("text", event.kind))


def tone(event: Event) -> str:
    """How bad the event is: bad, warn or plain."""
    known = event.fields
    if event.kind in ("reboot", "start_failed") or known.get("crash") or "stacks" in known \
            or known.get("guard") == "hang":
        return "bad"
    if event.kind in ("alarm", "not_found") or known.get("exit_code") \
            or known.get("complete") is False or "clock_set" in known:
        return "warn"
    return "plain"


def loads(alarm: Event) -> list[float]:
    """The loads that were measured. That of a process that has ended is none."""
    return [sample["load"] for sample in alarm.fields["samples"]
            if sample.get("load") is not None and "ended" not in sample]


def tells_end(alarm: Event) -> bool:
    """Whether the process ended. The line of an alarm has no name then."""
    return not alarm.fields["process"] or any("ended" in it for it in alarm.fields["samples"])


def _measured(event: Event) -> str:
    measured = loads(event)
    return (f", up to {max(measured):g} %" if measured else "") \
        + (", the process ended" if tells_end(event) else "")


def _snapshot(event: Event) -> str:
    average, busy = event.fields["load_average"], busiest(event.fields["processes"])
    return "snapshot" \
        + (" of an earlier crash" if "older_than_crash" in event.fields else "") \
        + (": load average " + " ".join(f"{load:g}" for load in average) if average else "") \
        + (f", busiest {busy['command']} with {busy['cpu']:g} %" if busy else "")
