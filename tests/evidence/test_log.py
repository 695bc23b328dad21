# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the reader finds in the application's log."""

from __future__ import annotations

import io
from pathlib import Path
from typing import Any

import pytest

from pynx_watchdog_evidence.events import Clock
from pynx_watchdog_evidence.logevents import log_events

FIXTURES = Path(__file__).parents[1] / "fixtures/guard"
"""What the guard has written when an application hung and when it crashed."""

ALARM = b"""\
2026-11-22 12:00:01.012 Process:render (77) cpu load is : 25 for 2 seconds \n\
2026-11-22 12:00:00.010 Time between two invocations:1000ms
2026-11-22 12:00:00.010 render cpu load:26.1%
2026-11-22 12:00:00.010 render total thread load:26%
2026-11-22 12:00:00.010  thread name:main load:20.4%
2026-11-22 12:00:00.010  thread name:io load:5.6%
2026-11-22 12:00:01.012 Time between two invocations:1002ms
2026-11-22 12:00:01.012 render cpu load:25%
2026-11-22 12:00:01.012 render total thread load:25%
2026-11-22 12:00:01.012  thread name:main load:25%
"""


def read(*parts: bytes) -> list[dict[str, Any]]:
    """The events in a log of these halves, without their source."""
    events = [event.as_dict() for event in log_events(map(io.BytesIO, parts), "log", Clock())]
    for event in events:
        assert event.pop("source") == "log"
    return events


def test_an_alarm_is_one_event_with_its_samples() -> None:
    assert read(ALARM) == [{
        "kind": "alarm", "time": "2026-11-22T12:00:01.012000", "line": 1, "process": "render",
        "pid": 77, "threshold": 25, "period": 2, "samples": [
            {"interval_ms": 1000, "load": 26.1, "thread_total": 26.0,
             "threads": [{"name": "main", "load": 20.4}, {"name": "io", "load": 5.6}]},
            {"interval_ms": 1002, "load": 25.0, "thread_total": 25.0,
             "threads": [{"name": "main", "load": 25.0}]}]}]


def test_two_alarms_are_two_events() -> None:
    assert [event["line"] for event in read(ALARM + ALARM)] == [1, 11]


def test_a_time_line_within_an_alarm_does_not_end_it() -> None:
    parts = ALARM.split(b"\n")
    parts.insert(6, b"-- Time: Sun Nov 22 10:00:01 2026 GMT")
    assert len(read(b"\n".join(parts))[0]["samples"]) == 2


def test_lines_of_an_alarm_whose_beginning_is_lost_are_no_event() -> None:
    assert read(ALARM.split(b"\n", 1)[1]) == []


def test_output_between_the_lines_ends_an_alarm() -> None:
    parts = ALARM.split(b"\n")
    parts[6:6] = [b"output"] * 3
    assert [len(event["samples"]) for event in read(b"\n".join(parts))] == [1]


@pytest.mark.parametrize("load, percent", [
    (b" cpu load:4.6e+18", 4.6e18), (b"render cpu load:4.6e+18", 4.6e18), (b" cpu load:3", 3)])
def test_the_load_of_a_process_that_ended_is_told_as_its_end(load: bytes, percent: float) -> None:
    sample = read(ALARM.split(b"\n")[0] + b"\n"
                  b"2026-11-22 12:00:01.012 Time between two invocations:1000ms\n"
                  b"2026-11-22 12:00:01.012 %s%%\n" % load)[0]["samples"][0]
    assert sample == {"interval_ms": 1000, "load": percent, "ended": True}


@pytest.mark.parametrize("load", [b"inf", b"nan", b"-nan"])
def test_a_load_that_is_no_number_is_null(load: bytes) -> None:
    sample = read(ALARM.replace(b"cpu load:26.1%", b"cpu load:%s%%" % load))[0]["samples"][0]
    assert sample["load"] is None and "ended" not in sample


def test_the_alarm_of_a_process_that_ended_has_its_name_from_its_earlier_lines() -> None:
    text = ALARM.replace(b"Process:render (77)", b"Process: (0)")
    assert read(text)[0]["process"] == "render"


@pytest.mark.parametrize("text, event", [
    (b"2026-11-22 11:00:00.000 Watchdog: Starting app: /opt/a b \n",
     {"kind": "start", "time": "2026-11-22T11:00:00", "program": "/opt/a b"}),
    (b"2026-11-22 11:00:00.000 == MEMORY USAGE == Free: 1 kB, Buffers+Cache: 20 kB\n",
     {"kind": "memory", "time": "2026-11-22T11:00:00", "free_kib": 1, "cache_kib": 20}),
    (b"Process p with args [-a,b] doesn't appear for 30 seconds\n",
     {"kind": "not_found", "time": None, "process": "p", "arguments": "-a,b", "seconds": 30}),
    (b"==Report==name\n", {"kind": "request", "time": None, "name": "name", "file": None}),
    (b"Cannot change user/group\n",
     {"kind": "message", "time": None, "text": "Cannot change user/group"}),
    (b"x ==Report file:/tmp/a==name\n",
     {"kind": "request", "time": None, "name": "name", "file": "/tmp/a"}),
    (b"==Report==x-- Time: Sun Nov 22 10:00:00 2026 GMT\n",
     {"kind": "request", "time": None, "name": "x", "file": None}),
    (b"==Report==a ==Report file:/tmp/b==c\n",
     {"kind": "request", "time": None, "name": "a ==Report file:/tmp/b==c", "file": "/tmp/b"}),
])
def test_a_line_is_an_event(text: bytes, event: dict[str, Any]) -> None:
    assert read(text) == [event | {"line": 1}]
    assert read(b"one\n\x00\xff two\n" + text + b"three\n") == [event | {"line": 3}]
    assert read(b"unfinished " + text) == [event | {"line": 1}]


def test_a_request_ends_where_the_supervisor_goes_on_in_its_line() -> None:
    text = b"==Report==x2026-11-22 11:00:00.000 == MEMORY USAGE == Free: 1 kB, " \
        b"Buffers+Cache: 2 kB\n"
    assert [(event["kind"], event.get("name")) for event in read(text)] \
        == [("request", "x"), ("memory", None)]


@pytest.mark.parametrize("text", [
    b"==Report file:/tmp/a\n",  # without a name
    b"Watchdog: Starting app: x \n",  # without a time
    b"2026-11-22 11:00:00.000 Watchdog: Starting app: x\n",  # without the blank at its end
    b"2026-11-22 11:00:00.000 cpu load\n",
    b"2026-11-22 11:00:00.000 == MEMORY USAGE == Free: %s kB, Buffers+Cache: 1 kB\n"
    % (b"9" * 5000),
    ALARM.replace(b"(77)", b"(%s)" % (b"7" * 5000)),
])
def test_a_line_that_only_resembles_one_is_none(text: bytes) -> None:
    assert read(text) == []


def test_a_line_that_a_rotation_has_cut_is_made_whole() -> None:
    start = b"2026-11-22 11:00:00.000 Watchdog: Starting app: x \n"
    for at in range(len(start) + 1):
        events = read(b"one\n" + start[:at], start[at:] + b"==Report==after\n")
        assert [event["line"] for event in events] == [2, 3]


# -- the clock ------------------------------------------------------------------------------------


def start(time: str) -> bytes:
    return f"2026-11-22 {time}.500 Watchdog: Starting app: x \n".encode()


def time_line(time: str, day: str = "Sun Nov 22") -> bytes:
    return f"-- Time: {day} {time} 2026 GMT\n".encode()


def times(*parts: bytes) -> list[str | None]:
    return [event["time"] for event in read(*parts)]


@pytest.mark.parametrize("gmt, local, offset", [
    ("10:00:00", "10:00:00", "+00:00"), ("10:00:00", "12:00:00", "+02:00"),
    ("10:00:00", "04:30:00", "-05:30"), ("10:00:00", "15:45:01", "+05:45"),
])
def test_the_offset_is_found_where_a_local_time_follows_a_time_line(
        gmt: str, local: str, offset: str) -> None:
    assert times(time_line(gmt) + start(local)) == [f"2026-11-22T{local}.500000{offset}"]


@pytest.mark.parametrize("gmt, local", [
    ("10:00:00", "12:07:00"),  # near no multiple of 15 minutes
    ("01:00:00", "15:15:00"), ("23:00:00", "08:45:00")])  # more than 14 hours
def test_a_local_time_that_can_be_of_no_offset_tells_none(gmt: str, local: str) -> None:
    assert times(time_line(gmt) + start(local)) == [f"2026-11-22T{local}.500000"]


def test_what_has_no_time_of_its_own_has_that_of_the_time_line_before() -> None:
    text = time_line("10:00:00") + start("12:00:00") + time_line("10:00:07") + b"==Report==a\n"
    assert times(text)[1] == "2026-11-22T12:00:07+02:00"


def test_a_late_alarm_and_a_clock_that_was_set_tell_no_offset() -> None:
    text = time_line("10:00:00") + start("12:00:00") + time_line("08:00:04") \
        + ALARM.replace(b"12:00:01", b"12:00:03").replace(b"12:00:00", b"12:00:02")
    assert times(text)[-1] == "2026-11-22T12:00:03.012000+02:00"


def test_the_offset_may_change() -> None:
    text = time_line("10:00:00") + start("12:00:00") + time_line("11:00:00") + start("12:00:00")
    assert times(text) == ["2026-11-22T12:00:00.500000+02:00", "2026-11-22T12:00:00.500000+01:00"]


# -- the guard ------------------------------------------------------------------------------------


def told(line: bytes) -> dict[str, Any]:
    """What the reader tells of a line of the guard."""
    event, = read(line + b"\n")
    assert [event.pop(name) for name in ("kind", "time", "line")] == ["message", None, 1]
    assert event.pop("text") == line.decode()
    return event


def test_what_the_guard_has_said_is_read() -> None:
    ended = {"guard": "ended", "peak_kb": 2444, "last_status": 'picture "Trends"'}
    lines = (FIXTURES / "hang.stderr").read_bytes().splitlines()
    assert [told(line) for line in lines] == [
        {"guard": "hang", "seconds": 2}, ended | {"signal": 6, "seconds": 2}]
    line, = (FIXTURES / "crash.stderr").read_bytes().splitlines()
    assert told(line) == ended | {"signal": 11, "seconds": 1, "peak_kb": 2588}


@pytest.mark.parametrize("line, fields", [
    (b"guard: ended: status 0 after 12 s, peak 20 kB",
     {"guard": "ended", "status": 0, "seconds": 12, "peak_kb": 20}),
    (b"guard: ended: signal 35 (SIGRTMIN+1) after 1 s, peak 2 kB",
     {"guard": "ended", "signal": 35, "seconds": 1, "peak_kb": 2}),
    (b"guard: no stacks: /tmp/log/guard-a-1.txt: No space left on device", {"guard": "note"}),
    (b"guard: the application does not end, not even by SIGKILL", {"guard": "note"}),
])
def test_a_line_of_the_guard_is_a_message(line: bytes, fields: dict[str, Any]) -> None:
    assert told(line) == fields


def test_lines_of_the_guard_stand_in_the_order_of_the_log() -> None:
    hang, ended = (FIXTURES / "hang.stderr").read_bytes().splitlines(keepends=True)
    found = read(time_line("10:00:00") + start("11:00:00") + b"of the application\nunfinished "
                 + hang + b"==Report==x" + ended + start("11:00:31"))
    assert [(event["kind"], event.get("guard"), event["line"], event["time"][11:19])
            for event in found] == [
        ("start", None, 2, "11:00:00"), ("message", "hang", 4, "11:00:00"),
        ("request", None, 5, "11:00:00"), ("message", "ended", 5, "11:00:00"),
        ("start", None, 6, "11:00:31")]
    assert found[2]["name"] == "x"


@pytest.mark.parametrize("line", [
    b"guard: ", b"guard: hello", b"guard: hang: no beat for x s", b"guard: hang: no beat for 2 s.",
    b"guard: ended: status 1 after 2 s, peak", b"guard: ended: 1 after 2 s, peak 1 kB",
])
def test_a_line_that_only_resembles_one_of_the_guard_is_none(line: bytes) -> None:
    assert read(line + b"\n") == []
