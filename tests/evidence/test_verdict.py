# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the verdict says."""

from __future__ import annotations

from datetime import datetime, timedelta, timezone
from typing import Any

import pytest

from pynx_watchdog_evidence.events import Event
from pynx_watchdog_evidence.sentence import CERTAIN, GUESS, LIKELY
from pynx_watchdog_evidence.verdict import verdict

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
    assert sentence.text == ("Application '/opt/app' ended by signal 11 (SIGSEGV) after 60 s at "
                             "2026-11-22 10:01:00+00:00; its archive: report-main-1.tar.gz")
    assert (sentence.certainty, sentence.evidence) == (CERTAIN, [1, 2])


def test_a_crash_without_an_archive_says_so() -> None:
    late = event("archive", 600, name="main", members=[], complete=True)
    other = event("archive", 65, name="other", members=[], complete=True)
    assert said(start(0), end(60), other, late)[0].endswith("; no archive of it is here")


def test_an_exit_is_told_with_its_status() -> None:
    assert said(start(0), end(60, 3, False)) == [
        "Application '/opt/app' ended with status 3 after 60 s at 2026-11-22 10:01:00+00:00"]


def test_equal_ends_in_a_row_are_one_sentence() -> None:
    ends = [piece for n in range(5) for piece in (start(10 * n), end(10 * n + 9, 1, False, 5 + n))]
    assert said(*ends) == ["Application '/opt/app' ended 5 times with status 1 after 5 s to 9 s, "
                           "from 2026-11-22 10:00:09+00:00 to 2026-11-22 10:00:49+00:00"]


def test_the_newest_comes_first() -> None:
    assert [text.split(" after")[0] for text in said(start(0), end(9, 1, False), start(10),
                                                     end(19, 2, False))] \
        == [f"Application '/opt/app' ended with status {code}" for code in (2, 1)]


@pytest.mark.parametrize("before, told", [(29, True), (31, False)])
def test_who_was_busy_shortly_before_an_end_is_told(before: int, told: bool) -> None:
    busy = alarm(60 - before, threads=[{"name": "render", "load": 24}])
    text = said(start(0), busy, end(60, 1, False))[0]
    assert ("; in the 30 s before, thread 'render' used 24 % of 25 % allowed" in text) == told


def test_the_third_end_is_told_with_its_time() -> None:
    events = [start(0), end(60), start(61), end(120), start(121),
              event("reboot", 240, reason="third end")]
    assert said(*events)[0] == (
        "The board was rebooted at the third end of the application in 4 min at 2026-11-22 "
        "10:04:00+00:00; how it ended is not told, and the supervisor made no archive of it, since "
        "the reboot came first")
    assert verdict(events)[0].evidence == [0, 2, 4, 5]


def test_a_read_only_root_is_told() -> None:
    assert said(event("reboot", 0, reason="read-only root")) == [
        "The board was rebooted, because its root file system was read-only at 2026-11-22 "
        "10:00:00+00:00"]


def test_where_no_time_is_told_that_is_said() -> None:
    reboot = Event("reboot", None, "standard-error", 1, {"reason": "third end"})
    assert said(reboot, start(0))[0].startswith("The board was rebooted at the third end of the "
                                                "application at a time that is not told; ")


@pytest.mark.parametrize("reason, begin", [
    ("third end", "The board was rebooted at the third end of the application at 2026-11-22 "
     "10:00:00+00:00; how it ended is not told"),
    ("read-only root", "The board was rebooted, because its root file system was read-only at "
     "2026-11-22 10:00:00+00:00")])
def test_the_archive_that_was_made_before_a_reboot_is_told(reason: str, begin: str) -> None:
    made = [event("archive", 3, name=name, members=[], complete=True)
            for name in ("main", reason.replace(" ", "-"))]
    sentence = verdict([event("reboot", 0, reason=reason), *made])[0]
    assert sentence.text == f"{begin}; its archive: {made[1].source}"
    assert sentence.evidence == [0, 2]


def test_without_messages_an_end_is_concluded_from_the_next_start() -> None:
    [sentence] = verdict([start(0), start(300)])
    assert sentence.text == ("Application '/opt/app' ended after 5 min at 2026-11-22 "
                             "10:05:00+00:00; how, or whether the board was reset, only "
                             "the system log tells")
    assert sentence.certainty == LIKELY


def test_alarms_of_a_process_are_one_sentence() -> None:
    assert said(alarm(0), alarm(10, load=80.25), alarm(20, load=None)) == [
        "Process 'app' was too busy 3 times, with up to 80.25 % of all processors, from 2026-11-22 "
        "10:00:00+00:00 to 2026-11-22 10:00:20+00:00"]


def test_the_end_of_a_watched_process_is_no_load() -> None:
    both = alarm(10)
    gone = alarm(20, load=4.6e18, ended=True)
    both.fields["samples"] += gone.fields["samples"]
    assert said(gone) == ["A watched process, 'app', ended at 2026-11-22 10:00:20+00:00"]
    assert said(alarm(0), both, gone) == [
        "Process 'app' was too busy 2 times, with up to 26.5 % of all processors, from 2026-11-22 "
        "10:00:00+00:00 to 2026-11-22 10:00:10+00:00",
        "A watched process, 'app', ended 2 times, from 2026-11-22 10:00:10+00:00 to 2026-11-22 "
        "10:00:20+00:00"][::-1]
    gone.fields["process"] = ""
    assert said(gone) == ["A watched process ended at 2026-11-22 10:00:20+00:00"]


def test_a_load_that_is_not_known_is_no_load_and_no_end() -> None:
    unknown = alarm(40, load=None)
    assert said(start(0), unknown, end(60, 1, False)) == [
        "Application '/opt/app' ended with status 1 after 60 s at 2026-11-22 10:01:00+00:00; "
        "in the 30 s before, 'app' was too busy",
        "Process 'app' was too busy at 2026-11-22 10:00:40+00:00"]


def test_an_archive_that_is_not_whole_is_told() -> None:
    assert said(event("archive", 0, name="x", members=[], complete=False)) == [
        "An archive is not whole: log"]


@pytest.mark.parametrize("code, text", [(0, "could not be started"), (5, "another status than 0"),
                                        (9, "code 9")])
def test_a_start_that_failed_is_told(code: int, text: str) -> None:
    assert text in said(event("start_failed", 0, code=code))[0]


def test_where_nothing_went_wrong_that_is_said() -> None:
    assert said(start(0), event("memory", 180, free_kib=1, cache_kib=2)) \
        == ["Nothing is found that went wrong."]


@pytest.mark.parametrize("between", [
    event("reboot", 25, reason="third end"),
    event("message", 25, text="x", boot_id="two"),
    event("message", 25, text="x", cause="power loss", concluded_from=[]),
])
def test_ends_before_and_after_a_reboot_are_no_series(between: Event) -> None:
    texts = said(event("message", 0, text="x", boot_id="one"), start(1), end(9), start(10), end(19),
                 start(20), between, start(30), end(39))
    assert [text.split(" by ")[0] for text in texts if "by signal" in text] \
        == ["Application '/opt/app' ended", "Application '/opt/app' ended 2 times"]


def message(after: float, boot: str, **fields: Any) -> Event:
    return event("message", after, text="x", boot_id=boot, **fields)


def test_a_boot_that_only_its_id_tells_is_told() -> None:
    [sentence] = verdict([message(0, "a-b"), start(1), message(20, "cd"), message(30, "ab")])
    assert sentence.text == "The board has booted at 2026-11-22 10:00:20+00:00; why is not told"
    assert (sentence.certainty, sentence.evidence) == (CERTAIN, [0, 2])
    assert said(message(0, "ab"), message(20, "cd"), message(30, "ef")) == [
        "The board has booted 2 times, from 2026-11-22 10:00:20+00:00 to 2026-11-22 "
        "10:00:30+00:00; why is not told"]


@pytest.mark.parametrize("told", [
    event("reboot", 10, reason="third end"), event("message", 10, text="x", cause="panic"),
    message(15, "c-d", cause="panic", concluded_from=[]), message(30, "cd", cause="panic")])
def test_a_boot_whose_cause_is_known_is_told_once(told: Event) -> None:
    events = sorted([message(0, "ab"), told, message(12, "ab"), message(20, "cd")],
                    key=lambda event: event.line)
    assert not [text for text in said(*events) if "why is not told" in text]
    assert said(*events, message(40, "ef"))[0].endswith("00:40+00:00; why is not told")


def test_the_third_end_counts_no_starts_of_an_earlier_boot() -> None:
    third = event("reboot", 40, reason="third end")
    sentence = verdict([start(0), start(10), event("reboot", 20, reason="read-only root"),
                        start(30), third])[0]
    assert sentence.evidence == [3, 4] and " in " not in sentence.text.split(" at ")[1]


def test_a_program_with_other_arguments_is_the_same() -> None:
    starts = [event("start", after, program=f"/opt/app --run {after}") for after in (0, 10)]
    assert said(starts[0], end(5), starts[1], end(15))[0].startswith(
        "Application '/opt/app' ended 2 times")


def test_absences_of_a_process_are_one_sentence() -> None:
    absences = [event("not_found", after, process="gui", arguments=arguments, seconds=30)
                for after, arguments in ((0, "-a"), (60, "-b"))]
    assert said(*absences) == ["Process 'gui' was missing 2 times for 30 s or more, from "
                               "2026-11-22 10:00:00+00:00 to 2026-11-22 10:01:00+00:00"]


def snapshot(after: float, **fields: Any) -> Event:
    row = {"pid": 7, "cpu": 31.6, "command": "render"}
    return event("snapshot", after, load_average=[3.1, 1, 1], processes=[row], **fields)


@pytest.mark.parametrize("found, told", [
    (snapshot(56), "; a snapshot 4 s before has a load average of 3.1, and 'render' with 31.6 %;"),
    (snapshot(-5), None), (event("snapshot", 56, load_average=None, processes=[]),
                           "; a snapshot 4 s before;"),
])
def test_the_snapshot_of_a_crash_is_found_by_its_time(found: Event, told: str | None) -> None:
    text = said(start(-60), found, end(60))[0]
    assert told in text if told else "snapshot" not in text


def test_an_old_copy_of_the_snapshots_is_told_with_its_archive() -> None:
    archive = event("archive", 66, name="main", members=[], complete=True, old_copies=["x.load"])
    assert said(start(0), end(60), archive)[0].endswith(
        "; the snapshots beside it there are of an earlier crash")


@pytest.mark.parametrize("other, certainty", [
    ("", CERTAIN), (", or summer time has begun or ended", LIKELY),
    (", or the log of a start is missing", LIKELY)])
def test_a_clock_that_was_set_is_told(other: str, certainty: str) -> None:
    jump = event("message", 0, text=f"clock set back by 59 min{other}", clock_set=-3540.0,
                 clock_before="2026-11-22T12:00:00", clock_after="2026-11-22T11:01:00")
    [sentence] = verdict([jump])
    assert (sentence.text, sentence.certainty) == (
        f"Clock set back by 59 min{other}, between 2026-11-22T12:00:00 and 2026-11-22T11:01:00",
        certainty)


def test_a_guessed_offset_is_told() -> None:
    local = Event("start", datetime(2026, 11, 22, 12), "log", 1, {"program": "a"})
    there = event("memory", 0, free_kib=1, cache_kib=2)
    there.time = datetime(2026, 11, 22, 12, 3, tzinfo=timezone(timedelta(hours=2)))
    assert [(sentence.text, sentence.certainty) for sentence in verdict([local, there])][1:] == [(
        "Times without an offset from UTC are taken for UTC+02:00, in 1 of 2 events", GUESS)]
    assert len(verdict([local])) == len(verdict([there])) == 1


def test_sentences_begin_with_a_capital_letter() -> None:
    events = [start(0), end(1), alarm(2), event("start_failed", 3, code=0),
              event("start_failed", 4, code=9), event("reboot", 5, reason="read-only root"),
              event("not_found", 6, process="p", arguments="", seconds=30),
              event("message", 7, text="x", cause="panic", concluded_from=["A record."]),
              event("archive", 8, name="x", members=[], complete=False), end(9, 1, False)]
    found = said(*events)
    assert len(found) == 9
    assert all(text[0].isupper() for text in found)


# -- with the guard -------------------------------------------------------------------------------


def hang(after: float, seconds: int = 31) -> Event:
    return event("message", after, guard="hang", seconds=seconds, text="guard: hang: …")


def ended(after: float, how: dict[str, Any], **more: Any) -> Event:
    return event("message", after, guard="ended", text="guard: ended: …",
                 **{"seconds": 60, "peak_kb": 9, **how, **more})


def stacks(after: float, kind: str = "hang", **more: Any) -> Event:
    text = "hang: no beat for 31 s" if kind == "hang" else "crash: signal 11 (SIGSEGV), address 0x8"
    return event("message", after, **{
        "stacks": kind, "text": text, "program": "/opt/app", "process": 7, "seconds": 50,
        "threads": 2, "thread": "render", "functions": ["wait", "lock"], **more})


ABORT, SEGV = {"signal": 6}, {"signal": 11}
AT = "at 2026-11-22 10:01:00+00:00"
PLACE = "its main thread stood in wait ← lock"


def test_an_end_that_a_hang_led_to_is_told_as_a_hang() -> None:
    sentence = verdict([start(0), hang(50), stacks(55), ended(56, ABORT, last_status="page 1"),
                        end(60, 6), start(61)])[0]
    assert sentence.text == (
        f"Application '/opt/app' hung: no beat for 31 s, and was ended after 60 s {AT}; {PLACE}; "
        "its last status was 'page 1'; no archive of it is here")
    assert (sentence.certainty, sentence.evidence) == (CERTAIN, [4, 1, 3, 2])


@pytest.mark.parametrize("facts, told", [
    ([hang(50)], ": no beat for 31 s, and was ended"),
    ([stacks(55)], ", and was ended"),
    ([hang(50), stacks(55)], ": no beat for 31 s, and was ended"),
])
def test_the_line_or_the_stacks_tell_a_hang(facts: list[Event], told: str) -> None:
    assert said(start(0), *facts, end(60, 6))[0].startswith(
        f"Application '/opt/app' hung{told} after 60 s {AT}; ")


def test_a_hang_that_abort_does_not_end_is_told_with_its_signal() -> None:
    assert "and was ended by signal 9 (SIGKILL) after" in said(
        start(0), hang(50), ended(59, {"signal": 9}), end(60, 9))[0]


def test_an_abort_without_a_hang_is_a_crash() -> None:
    assert said(start(0), ended(59, ABORT), end(60, 6))[0].startswith(
        "Application '/opt/app' ended by signal 6 (SIGABRT) after 60 s")


def test_a_crash_is_told_with_its_place() -> None:
    text = said(start(0), stacks(60, "crash"), ended(59, SEGV, last_status="x"), end(60))[0]
    assert f"{AT}; thread 'render' crashed in wait ← lock; its last status was 'x'; " in text


def test_hangs_in_a_row_are_one_sentence_with_the_last_place() -> None:
    runs = [(start(100 * n), hang(100 * n + 50, 30 + n), stacks(100 * n + 55),
             ended(100 * n + 56, ABORT), end(100 * n + 60, 6)) for n in range(2)]
    assert said(*runs[0], *runs[1])[0].startswith(
        "Application '/opt/app' hung 2 times: no beat for 30 s to 31 s, and was ended after 60 s, "
        "from 2026-11-22 10:01:00+00:00 to 2026-11-22 10:02:40+00:00; the last time, " + PLACE)


def test_the_guard_tells_an_end_that_no_message_tells() -> None:
    [sentence] = verdict([start(0), ended(59, {"status": 3}), start(60)])
    assert sentence.text == f"Application '/opt/app' ended with status 3 after 60 s {AT}"
    assert sentence.certainty == CERTAIN
    assert said(start(0), hang(50), ended(59, ABORT), start(60))[0].startswith(
        f"Application '/opt/app' hung: no beat for 31 s, and was ended after 60 s {AT}")


def test_a_hang_at_the_end_of_the_log_is_told() -> None:
    assert said(start(0), hang(60)) == [
        f"Application '/opt/app' hung: no beat for 31 s, and was ended {AT}"]


def test_an_orderly_end_is_not_told_where_the_supervisor_tells_ends() -> None:
    stop = [ended(30, {"signal": 15}), start(40)]
    assert said(start(0), end(9, 1, False), start(10), *stop) == said(
        start(0), end(9, 1, False), start(10), start(40))


def test_what_the_guard_has_started_again_is_no_end() -> None:
    texts = said(start(0), ended(30, {"status": 7}), ended(59, SEGV), end(60))
    assert len(texts) == 1 and "by signal 11" in texts[0]
    # The hang was of the run that the guard has started again.
    texts = said(start(0), hang(20), ended(30, {"status": 7}), ended(59, SEGV), end(60))
    assert ["hung" in text for text in texts] == [False, True]


@pytest.mark.parametrize("fact", [
    stacks(59), stacks(-400), stacks(62.5), ended(55, SEGV, last_status="other"),
    ended(55, ABORT, last_status="other", seconds=99)])
def test_what_is_of_another_end_is_not_told_with_this_one(fact: Event) -> None:
    is_its_own = fact.fields.get("stacks") and fact.line == 59
    texts = said(*sorted([fact, end(60, 6)], key=lambda one: one.line))
    text = next(text for text in texts if AT in text)
    assert (PLACE in text) == bool(is_its_own) and "other" not in text


def test_stacks_in_the_second_of_an_end_can_stand_after_it() -> None:
    assert PLACE in said(start(0), end(60.5, 6), stacks(60), start(61.6))[0]


THIRD = event("reboot", 240, reason="third end")


def third(*last: Event, first: tuple[Event, ...] = (hang(50), end(60, 6))) -> tuple[str, str]:
    """What is told of three ends and a reboot: of the reboot, and of the last end."""
    texts = said(start(0), *first, start(61), hang(110), end(120, 6), start(121), *last, THIRD)
    return texts[0].split("; ", 1)[1], texts[1]


NO_ARCHIVE = ", and the supervisor made no archive of it, since the reboot came first"


def test_three_hangs_and_a_reboot_are_told_as_such() -> None:
    of_reboot, of_end = third(hang(230, 32), ended(239, ABORT, last_status="last"))
    assert of_reboot == "each was a hang" + NO_ARCHIVE
    assert of_end.startswith("Application '/opt/app' hung 3 times: no beat for 31 s to 32 s, ")
    assert of_end.endswith("; its last status was 'last'")


def test_the_third_end_is_told_as_far_as_it_is_known() -> None:
    assert third(ended(239, SEGV))[0] == "it ended by signal 11 (SIGSEGV)" + NO_ARCHIVE
    of_reboot, of_end = third(ended(239, {"status": 1}))
    assert of_reboot == "it ended with status 1" + NO_ARCHIVE
    assert of_end.startswith("Application '/opt/app' ended with status 1 after 60 s at ")
    assert third()[0] == "how it ended is not told" + NO_ARCHIVE
    assert third(hang(230), first=(end(60),))[0] == "it was a hang" + NO_ARCHIVE
    # The log of the first run is lost.
    assert "; it was a hang, and" in said(start(61), hang(110), end(120, 6), start(121), hang(230),
                                          THIRD)[0]


def test_a_run_that_the_guard_has_started_again_is_one_of_the_three() -> None:
    again = (ended(10, {"status": 7}), hang(50), end(60, 6))
    assert third(hang(230), first=again)[0] == "each was a hang" + NO_ARCHIVE


@pytest.mark.parametrize("second", [hang(110), stacks(115)])
def test_without_a_start_between_two_ends_each_has_its_own(second: Event) -> None:
    texts = said(stacks(55, "crash"), end(60), second, end(120, 6))
    assert texts[0].startswith("The application hung")
    assert texts[1].startswith("The application ended by signal 11")
    assert "thread 'render' crashed in wait" in texts[1] and "crashed in" not in texts[0]
    assert ["hung" in text for text in said(stacks(55), end(60, 6), end(120))] == [False, True]


def test_stacks_are_of_the_run_in_which_their_process_was_started() -> None:
    # A simulated device boots within the second of the stacks.
    texts = said(start(0), hang(59), event("reboot", 59.5, reason="third end"), start(59.8),
                 stacks(60, seconds=58), hang(119), ended(119, ABORT), end(120, 6))
    assert [PLACE in text for text in texts] == [False, True, False]


def test_the_application_is_named_and_not_its_guard() -> None:
    guard = event("start", 0, program="/usr/bin/pynx-watchdog-guard --timeout 9")
    assert said(guard, stacks(55), end(60, 6))[0].startswith("Application '/opt/app' hung")
    assert said(guard, end(60, 6))[0].startswith("Application '/usr/bin/pynx-watchdog-guard -")
    assert said(start(0), stacks(55, program="/opt/other"), end(60, 6))[0].startswith(
        "Application '/opt/app' hung")


def test_a_start_before_the_first_message_of_its_boot_is_of_it() -> None:
    first = [event("message", 0, text="x", boot_id="1"), event("reboot", 50, reason="third end")]
    second = [start(55), event("message", 60, text="x", boot_id="2"), start(70), start(80),
              event("reboot", 90, reason="third end")]
    assert " in 35 s at " in said(*first, *second)[0]
