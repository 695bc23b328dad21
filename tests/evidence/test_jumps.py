# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Where the reader finds that the clock was set, and what that does to the order of the events."""

from __future__ import annotations

import io
import json
from pathlib import Path
from typing import Any

import pytest

from pynx_watchdog_evidence import messages
from pynx_watchdog_evidence.events import Clock, Event
from pynx_watchdog_evidence.join import events_of
from pynx_watchdog_evidence.logevents import log_events


def start(time: str) -> str:
    return f"\n\n2026-11-22 {time} Watchdog: Starting app: app \n"


def time_line(time: str) -> str:
    return f"-- Time: Sun Nov 22 {time} 2026 GMT\n"


def memory(time: str) -> str:
    return f"2026-11-22 {time} == MEMORY USAGE == Free: 1 kB, Buffers+Cache: 2 kB\n"


def alarm(*samples: tuple[str, int]) -> str:
    """An alarm with samples at these times, so many milliseconds after the one before."""
    return f"2026-11-22 {samples[-1][0]} Process:p (7) cpu load is : 1 for 2 seconds \n" + "".join(
        f"2026-11-22 {time} Time between two invocations:{interval}ms\n"
        f"2026-11-22 {time} p cpu load:2%\n" for time, interval in samples)


def end(time: str, uptime: int) -> str:
    return (f"2026-11-22T{time} board pynx_watchdog[1]: Restarting process: exit code:1, "
            f"exist status:0, uptime:{uptime} sec\n")


def told(events: Any) -> list[tuple[int, str]]:
    """The lines and texts of the jumps among the events."""
    return [(event.line, event.fields["text"]) for event in events if "clock_set" in event.fields]


def in_log(text: str) -> list[tuple[int, str]]:
    return told(log_events([io.BytesIO(text.encode())], "log", Clock()))


def in_directory(directory: Path, **files: str) -> list[Event]:
    for name, text in files.items():
        (directory / name).write_text(text)
    return list(events_of([directory], lambda path, reason: pytest.fail(f"{path}: {reason}")))


@pytest.mark.parametrize("text, expected", [
    (start("12:00:00.000") + start("10:00:00.000"), [(6, "clock set back by 2 h or more")]),
    (start("12:00:00.000") + start("11:30:00.000"),
     [(6, "clock set back by 30 min or more, or summer time has begun or ended")]),
    (time_line("11:00:00") + start("12:00:00.500") + time_line("10:30:00"),
     [(5, "clock set back by 30 min or more")]),
    (time_line("11:00:00") + time_line("10:30:00"), [(2, "clock set back by 30 min or more")]),
    # The time of the clock and the offset from UTC are two matters.
    (time_line("11:00:00") + start("13:00:00.500") + time_line("11:00:03") + start("12:00:03.5"),
     []),
    (start("12:00:00.000") + start("23:00:00.000"), []),  # no time was told meanwhile
    (start("12:00:04.000") + start("12:00:00.000"), []),
    # An alarm can be written later than its time tells, where the supervisor waits for a tool.
    (start("12:00:30.000") + alarm(("12:00:01.000", 1000)), []),
    (start("12:05:30.000") + alarm(("12:00:01.000", 1000)),
     [(4, "clock set back by 5 min or more, or summer time has begun or ended")]),
    # Such an alarm, and a clock that was set forward before it was written.
    (time_line("12:10:05") + alarm(("12:00:01.000", 1000)) + time_line("12:10:06"), []),
    (start("12:10:05.000") + alarm(("12:00:01.000", 1000)) + alarm(("12:02:01.000", 1000)),
     [(7, "clock set back by 8 min or more, or summer time has begun or ended")]),
    (alarm(("12:00:01.000", 1000), ("12:00:02.000", 1001), ("12:10:03.000", 1000)),
     [(6, "clock set forward by 10 min")]),
    (alarm(("12:00:01.000", 1000), ("11:00:02.000", 1000)) + memory("11:00:09.000"),
     [(4, "clock set back by 60 min, or summer time has begun or ended")]),
    (time_line("12:00:35") + alarm(("12:00:35.301", 1000)) + time_line("12:00:16")
     + alarm(("12:00:16.301", 1000)), [(5, "clock set back by 19 s or more")]),
    # A process that has ended is watched again when it is there again.
    (alarm(("12:00:01.000", 1000), ("12:00:09.000", 1000)).replace("p cpu load:", " cpu load:", 1),
     []),
    # A line without a time of its own has the one of the last time line, which may be old.
    (time_line("10:00:01") + start("10:00:01.000") + memory("10:03:01.000")
     + "Process a with args [] doesn't appear for 30 seconds\n==Report==b\n", []),
    # That board was so busy that the second took long.
    (alarm(("12:00:01.000", 1000), ("12:01:01.000", 60000)), []),
])
def test_jumps_in_a_log(text: str, expected: list[tuple[int, str]]) -> None:
    assert in_log(text) == expected


def test_a_local_time_in_a_line_that_was_begun_long_before_tells_no_offset() -> None:
    text = time_line("10:00:00") + "begun " + memory("12:15:00.000") + "\n" \
        + time_line("10:15:01") + memory("12:15:01.000")
    assert [event.time.isoformat() for event in log_events([io.BytesIO(text.encode())], "log",
                                                           Clock()) if event.time] \
        == ["2026-11-22T12:15:00", "2026-11-22T12:15:01+02:00"]


def test_the_journal_tells_by_how_much() -> None:
    def entry(wall: float, uptime: float, boot: str = "b") -> str:
        return json.dumps({"__REALTIME_TIMESTAMP": str(int(wall * 1e6)), "_BOOT_ID": boot,
                           "__MONOTONIC_TIMESTAMP": str(int(uptime * 1e6)), "MESSAGE": "x",
                           "SYSLOG_IDENTIFIER": "pynx_watchdog"})

    lines = [entry(1000, 10), entry(2010, 20), entry(2020, 30), entry(1020, 31),
             entry(1500, 5, "other")]
    assert told(messages.message_events(messages.journal_json(lines), "j")) \
        == [(2, "clock set forward by 17 min"), (4, "clock set back by 17 min")]


def test_one_jump_in_several_sources_is_told_once_and_the_order_is_kept(tmp_path: Path) -> None:
    events = in_directory(
        tmp_path, log=start("11:30:00.000") + start("12:00:00.000") + start("11:20:00.000"),
        messages=end("11:59:59", 1799) + end("11:19:59", 60))
    assert [(event.kind, event.time and event.time.isoformat()[11:16]) for event in events] == [
        ("start", "11:30"), ("end", "11:59"), ("start", "12:00"), ("message", "11:19"),
        ("end", "11:19"), ("start", "11:20")]
    assert [text for _, text in told(events)] == [
        "clock set back by 40 min or more, or summer time has begun or ended"]


@pytest.mark.parametrize("shown, expected", [
    (("12:00:35", "11:30:36"), ["30 min"]),
    (("11:50:00", "11:40:00"), ["10 min or more", "30 min"]),  # another one, before the alarm's
])
def test_a_jump_that_an_alarm_measures_after_the_log_has_shown_it_is_told_once(
        tmp_path: Path, shown: tuple[str, str], expected: list[str]) -> None:
    measured = alarm(("12:00:35.300", 1000), ("11:30:36.300", 1000)) + memory("11:30:37.000")
    again = time_line("11:30:40") + time_line("11:00:41")
    events = in_directory(tmp_path, log="".join(map(time_line, shown)) + measured + again,
                          messages=end("11:49:59", 1))
    assert [text.removeprefix("clock set back by ").split(",")[0] for _, text in told(events)] \
        == [*expected, "30 min or more"]


def test_a_board_that_always_starts_at_the_same_time_is_set_back_each_time(tmp_path: Path) -> None:
    events = in_directory(
        tmp_path, messages=end("12:00:01", 1800),
        log="".join(map(start, ("11:30:00.000", "12:00:00.000", "11:30:01.000", "12:00:03.000",
                                "11:30:02.000"))))
    assert [line for line, text in told(events) if "set back" in text] == [9, 15]


def test_two_jumps_that_another_source_sees_as_one_are_two(tmp_path: Path) -> None:
    events = in_directory(
        tmp_path, messages=end("14:00:00", 1) + end("11:30:00", 1),
        log="".join(map(start, ("14:00:01.000", "12:00:01.000", "12:00:09.000", "11:30:02.000",
                                "11:30:12.000"))))
    assert sorted(event.fields["clock_set"] for event in events if "clock_set" in event.fields) \
        == [-7200, -1809]
    assert [event.kind for event in events if event.kind in ("start", "end")] \
        == ["end", "start", "start", "start", "end", "start", "start"]


@pytest.mark.parametrize("uptime, expected", [
    (600, []), (560, []), (607, ["clock set back by 7 s"]), (-3, []),
    (60, ["clock set forward by 9 min, or the log of a start is missing"]),
    (4200, ["clock set back by 60 min, or summer time has begun or ended"]),
])
def test_an_end_tells_a_jump_by_how_long_the_application_ran(
        tmp_path: Path, uptime: int, expected: list[str]) -> None:
    events = in_directory(tmp_path, log=start("12:00:00.000"), messages=end("12:10:00", uptime))
    assert [text for _, text in told(events)] == expected
