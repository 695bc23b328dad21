# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the verdict says."""

from __future__ import annotations

from datetime import datetime, timedelta, timezone
from typing import Any

import pytest

from pynx_watchdog_evidence.events import Event
from pynx_watchdog_evidence.verdict import CERTAIN, LIKELY, verdict

BEGIN = datetime(2026, 11, 22, 10, 0, tzinfo=timezone.utc)


def event(kind: str, after: float, **fields: Any) -> Event:
    """An event so many seconds after the beginning."""
    return Event(kind, BEGIN + timedelta(seconds=after), "log", int(after), fields)


def start(after: float) -> Event:
    return event("start", after, program="/opt/app")


def end(after: float, code: int = 11, crash: bool = True, uptime: int = 60) -> Event:
    return event("end", after, exit_code=code, crash=crash, uptime=uptime)


def alarm(after: float, **sample: Any) -> Event:
    return event("alarm", after, process="app", pid=7, threshold=25, period=5,
                 samples=[{"interval_ms": 1000, "load": 26.5} | sample])


def said(*events: Event) -> list[str]:
    return [sentence.text for sentence in verdict(events)]


def test_a_crash_is_told_with_its_archive() -> None:
    archive = event("archive", 66, name="main", members=[], complete=True)
    archive.source = "report-main-1.tar.gz"
    [sentence] = verdict([start(0), end(60), archive])
    assert sentence.text == ("'/opt/app' ended by signal 11 (SIGSEGV) after 60 s at 2026-11-22 "
                             "10:01:00+00:00; its archive: report-main-1.tar.gz")
    assert (sentence.certainty, sentence.evidence) == (CERTAIN, [1, 2])


def test_a_crash_without_an_archive_says_so() -> None:
    late = event("archive", 600, name="main", members=[], complete=True)
    other = event("archive", 65, name="other", members=[], complete=True)
    assert said(start(0), end(60), other, late)[0].endswith("; no archive of it is here")


def test_an_exit_is_told_with_its_status() -> None:
    assert said(start(0), end(60, 3, False)) == [
        "'/opt/app' ended with status 3 after 60 s at 2026-11-22 10:01:00+00:00"]


def test_equal_ends_in_a_row_are_one_sentence() -> None:
    ends = [piece for n in range(5) for piece in (start(10 * n), end(10 * n + 9, 1, False, 5 + n))]
    assert said(*ends) == ["'/opt/app' ended 5 times with status 1 after 5 s to 9 s, from "
                           "2026-11-22 10:00:09+00:00 to 2026-11-22 10:00:49+00:00"]


def test_the_newest_comes_first() -> None:
    assert [text.split(" after")[0] for text in said(start(0), end(9, 1, False), start(10),
                                                     end(19, 2, False))] \
        == ["'/opt/app' ended with status 2", "'/opt/app' ended with status 1"]


@pytest.mark.parametrize("before, told", [(29, True), (31, False)])
def test_who_was_busy_shortly_before_an_end_is_told(before: int, told: bool) -> None:
    busy = alarm(60 - before, threads=[{"name": "render", "load": 24}])
    text = said(start(0), busy, end(60, 1, False))[0]
    assert ("; in the 30 s before, thread 'render' used 24 % of 25 % allowed" in text) == told


def test_the_third_end_is_told_with_its_time() -> None:
    events = [start(0), end(60), start(61), end(120), start(121),
              event("reboot", 240, reason="third end")]
    assert said(*events)[0] == (
        "the board was rebooted at the third end of the application in 4 min at 2026-11-22 "
        "10:04:00+00:00; how it ended is not told, and no archive of it was made by itself, since "
        "the reboot came first")
    assert verdict(events)[0].evidence == [0, 2, 4, 5]


def test_a_read_only_root_is_told() -> None:
    assert said(event("reboot", 0, reason="read-only root")) == [
        "the board was rebooted, because its root file system was read-only at 2026-11-22 "
        "10:00:00+00:00"]


def test_without_messages_an_end_is_concluded_from_the_next_start() -> None:
    [sentence] = verdict([start(0), start(300)])
    assert sentence.text == ("'/opt/app' ended after 5 min at 2026-11-22 10:05:00+00:00; how, only "
                             "the system log tells")
    assert sentence.certainty == LIKELY


def test_alarms_of_a_process_are_one_sentence() -> None:
    gone = alarm(20, load=4.6e18, ended=True)
    assert said(alarm(0), alarm(10, load=80.25), gone) == [
        "'app' was too busy 3 times, with up to 80.25 % of all processors, from 2026-11-22 "
        "10:00:00+00:00 to 2026-11-22 10:00:20+00:00"]


def test_an_archive_that_is_not_whole_is_told() -> None:
    assert said(event("archive", 0, name="x", members=[], complete=False)) == [
        "an archive is not whole: log"]


@pytest.mark.parametrize("code, text", [(0, "could not be started"), (5, "another status than 0"),
                                        (9, "code 9")])
def test_a_start_that_failed_is_told(code: int, text: str) -> None:
    assert text in said(event("start_failed", 0, code=code))[0]


def test_where_nothing_went_wrong_that_is_said() -> None:
    assert said(start(0), event("memory", 180, free_kib=1, cache_kib=2)) \
        == ["Nothing is found that went wrong."]
