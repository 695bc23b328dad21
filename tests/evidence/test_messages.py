# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the reader finds in the supervisor's messages."""

from __future__ import annotations

import json
from collections.abc import Iterable
from typing import Any

import pytest

from pynx_watchdog_evidence import messages
from pynx_watchdog_evidence.messages import Message

END = "Restarting process: exit code:11, exist status:1, uptime:2 min 5 sec"


def read(found: Iterable[Message]) -> list[dict[str, Any]]:
    """The events that the messages tell of, without their source."""
    events = [event.as_dict() for event in messages.message_events(found, "source")]
    for event in events:
        assert event.pop("source") == "source"
    return events


@pytest.mark.parametrize("uptime, seconds", [
    ("0 sec", 0), ("59 sec", 59), ("1 min 0 sec", 60), ("1 hours 0 min 5 sec", 3605),
    ("2 days 3 hours 4 min 5 sec", 183845), ("2 days 5 sec", 172805), ("-3 sec", -3),
])
def test_an_end_is_read(uptime: str, seconds: int) -> None:
    text = f"Restarting process: exit code:11, exist status:1, uptime:{uptime}"
    assert read([Message(None, 4, text)]) == [
        {"kind": "end", "time": None, "line": 4, "exit_code": 11, "crash": True,
         "uptime": seconds}]


@pytest.mark.parametrize("text, event", [
    ("Error occured during process startup, code: 5", {"kind": "start_failed", "code": 5}),
    ("Critical FW error, rebooting.", {"kind": "reboot", "reason": "third end"}),
    ("Detected filesystem in read-only mode. Rebooting",
     {"kind": "reboot", "reason": "read-only root"}),
    ("Cause of this boot: panic",
     {"kind": "message", "text": "Cause of this boot: panic", "cause": "panic"}),
    ("anything else", {"kind": "message", "text": "anything else"}),
])
def test_a_message_is_an_event(text: str, event: dict[str, Any]) -> None:
    assert read([Message(None, 1, text)]) == [event | {"time": None, "line": 1}]


@pytest.mark.parametrize("prefix, time", [
    ("2026-11-22T10:00:00.123456+0200 host pynx_watchdog[12]: ",
     "2026-11-22T10:00:00.123456+02:00"),
    ("2026-11-22T10:00:00+00:00 host pynx_watchdog: ", "2026-11-22T10:00:00+00:00"),
    ("Nov  2 10:00:00 host pynx_watchdog[12]: ", "2026-11-02T10:00:00"),
    ("<13>Nov 22 10:00:00 pynx_watchdog: ", "2026-11-22T10:00:00"),
    ("Nov 22 10:00:00 host user.notice pynx_watchdog: ", "2026-11-22T10:00:00"),
])
def test_a_line_of_the_system_log_has_a_time(prefix: str, time: str) -> None:
    lines = ["Nov 22 10:00:00 host other[1]: " + END, prefix + END]
    assert [(event["line"], event["time"]) for event in read(messages.system_log(lines, 2026))] \
        == [(2, time)]


def test_a_system_log_without_years_may_go_over_the_turn_of_the_year() -> None:
    lines = [f"{day} 10:00:00 host pynx_watchdog: x" for day in ("Dec 30", "Dec 31", "Jan  1")]
    times = [event["time"] for event in read(messages.system_log(lines, 2026))]
    assert times == ["2025-12-30T10:00:00", "2025-12-31T10:00:00", "2026-01-01T10:00:00"]


def entry(**fields: object) -> dict[str, object]:
    return {"__REALTIME_TIMESTAMP": "1795341600123456", "_BOOT_ID": "b1",
            "SYSLOG_IDENTIFIER": "pynx_watchdog", "MESSAGE": END} | fields


TOLD = {"kind": "end", "time": "2026-11-22T10:00:00.123456+00:00", "exit_code": 11, "crash": True,
        "uptime": 125, "boot_id": "b1"}


def test_a_journal_in_json_is_read() -> None:
    lines = [json.dumps(entry(SYSLOG_IDENTIFIER="other")), json.dumps(entry()), "{", "[1]",
             "[" * 100_000, json.dumps(entry(MESSAGE=list(END.encode()))),
             json.dumps(entry(MESSAGE=None)), ""]
    assert read(messages.journal_json(lines)) == [TOLD | {"line": 2}, TOLD | {"line": 6}]


@pytest.mark.parametrize("time", [None, "x", "9" * 30, [1]])
def test_a_journal_may_lie_about_its_times(time: object) -> None:
    lines = [json.dumps(entry(__REALTIME_TIMESTAMP=time))]
    assert read(messages.journal_json(lines)) == [TOLD | {"line": 1, "time": None}]


def test_an_exported_journal_is_read() -> None:
    def export(message: bytes) -> bytes:
        fields = {key: str(value).encode() for key, value in entry().items() if key != "MESSAGE"}
        return b"".join(key.encode() + b"=" + value + b"\n" for key, value in fields.items()) \
            + message + b"\n\n"

    binary = b"MESSAGE\n" + len(END).to_bytes(8, "little") + END.encode()
    data = export(b"MESSAGE=" + END.encode()) + export(binary)
    assert read(messages.journal_export(data)) == [TOLD | {"line": 1}, TOLD | {"line": 6}]
    for length in range(len(data)):
        list(messages.journal_export(data[:length]))


def test_standard_error_has_no_times() -> None:
    assert read(messages.standard_error(["Cannot set priority", "", "x"])) == [
        {"kind": "message", "time": None, "line": 1, "text": "Cannot set priority"},
        {"kind": "message", "time": None, "line": 3, "text": "x"}]


def test_a_day_that_only_leap_years_have_is_of_one() -> None:
    lines = ["Feb 29 10:00:00 host pynx_watchdog: x", "Mar  1 10:00:00 host pynx_watchdog: x"]
    assert [event["time"] for event in read(messages.system_log(lines, 2026))] \
        == ["2024-02-29T10:00:00", "2026-03-01T10:00:00"]
