# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What is an incident in the evidence of one device, where messages and manifests are missing."""

from __future__ import annotations

import json
from pathlib import Path

import pytest

from fleets import pack
from test_command_line import end, start
from pynx_watchdog_evidence.reports import Report, Rows, read_report

MADE = 1795341640000  # 2026-11-22 10:00:40 UTC


def report(place: Path, name: str, **members: str) -> Report:
    """The report of an archive with this name."""
    path = pack(place / f"report-{name}-{MADE}.tar.gz", {
        name.replace("_json", ".json").replace("_log", ".log"): text
        for name, text in members.items()})
    return read_report(str(path), [str(path)], Rows.NONE)


def causes(found: Report) -> list[tuple[str, str, str]]:
    return [(incident.cause, incident.application, incident.certainty)
            for incident in found.incidents]


def manifest(*journal: str, **facts: object) -> str:
    return json.dumps({"time": "2026-11-22T10:00:40+0000", "journal": [
        line.strip() for line in journal], **facts})


def test_the_archive_of_a_crash_tells_it_without_a_journal(tmp_path: Path) -> None:
    log = (start("09:00:00.000", "/bin/a -x") + start("09:30:00.000", "/bin/a -x")
           + start("10:00:34.000", "/bin/a -x"))
    assert causes(report(tmp_path, "main", application_log=log)) == [
        ("ended, it is not told how", "/bin/a", "likely"),
        ("crash, its signal is not told", "/bin/a", "likely")]
    # The log may have been rotated at the restart, or be missing.
    for members in {"application_log": start("10:00:34.000")}, {"other": "text"}:
        found = causes(report(tmp_path, "main", **members))
        assert [cause for cause, *_ in found] == ["crash, its signal is not told"]


def test_the_archive_of_a_crash_adds_nothing_to_its_message(tmp_path: Path) -> None:
    crash = end("10:00:34").replace("code:1, exist status:0", "code:6, exist status:1")
    log = start("09:00:00.000", "/bin/a") + start("10:00:35.000", "/bin/a")
    found = report(tmp_path, "main", manifest_json=manifest(crash), application_log=log)
    assert causes(found) == [("crash by signal 6 (SIGABRT)", "/bin/a", "certain")]
    # An older message tells of another end.
    found = report(tmp_path, "main", manifest_json=manifest(end("09:00:00")))
    assert [cause for cause, *_ in causes(found)] == [
        "ended with status 1", "crash, its signal is not told"]


def test_a_reboot_counts_once_though_three_sources_tell_it(tmp_path: Path) -> None:
    message = end("10:00:38").split("Restarting")[0] + "Critical FW error, rebooting.\n"
    first = report(tmp_path, "third-end", manifest_json=manifest(message, boot_id="a-1"))
    cause = json.dumps({"cause": "third end", "boot_id": "a-2", "last_boot_id": "a-1"})
    later = report(tmp_path, "x", manifest_json=manifest(boot_id="a-2"),
                   boot=f"Cause of this boot: third end\n{cause}\n")
    told = [incident for found in (first, later) for incident in found.incidents
            if incident.cause == "reboot: third end"]
    assert len(told) == 3 and len({incident.identity for incident in told}) == 1
    assert causes(report(tmp_path, "read-only-root")) == [
        ("reboot: read-only root", "unknown", "certain")]


def test_an_end_by_a_reboot_is_no_end_of_its_own(tmp_path: Path) -> None:
    message = end("09:30:00").split("Restarting")[0] + "Critical FW error, rebooting.\n"
    found = report(tmp_path, "x", manifest_json=manifest(message),
                   application_log=start("09:00:00.000") + start("09:31:00.000"))
    assert [cause for cause, *_ in causes(found)] == ["reboot: third end", "report requested: x"]


def test_a_request_is_known_by_its_archive_where_the_log_is_missing(tmp_path: Path) -> None:
    assert [cause for cause, *_ in causes(report(tmp_path, "on_request"))] == [
        "report requested: on_request"]
    found = report(tmp_path, "on_request", application_log=start("10:00:00.000")
                   + "==Report==on request\n")
    assert [cause for cause, *_ in causes(found)] == ["report requested: on_request"]


@pytest.mark.parametrize("cause, found", [
    ("power loss", ["boot after power loss"]), ("orderly", []), ("unknown", []),
    ("reset by the watchdog device", ["boot after reset by the watchdog device"])])
def test_the_cause_of_a_boot_is_an_incident_if_it_went_wrong(
        tmp_path: Path, cause: str, found: list[str]) -> None:
    text = f"Cause of this boot: {cause}\n" + json.dumps({"cause": cause, "boot_id": "b"}) + "\n"
    told = report(tmp_path, "x", boot=text)
    assert [cause for cause, *_ in causes(told)] == [*found, "report requested: x"]


def test_a_reboot_counts_once_though_the_system_log_tells_its_cause_later(tmp_path: Path) -> None:
    (tmp_path / "messages").write_text("".join(
        f"2026-11-22T10:00:{second}+0000 board pynx_watchdog: {text}\n" for second, text in (
            ("10", "Critical FW error, rebooting."), ("40", "Cause of this boot: third end"),
            ("50", "Cause of this boot: power loss"))))
    found = read_report(str(tmp_path), [str(tmp_path / "messages")], Rows.NONE)
    assert [cause for cause, *_ in causes(found)] == ["reboot: third end", "boot after power loss"]


def test_the_end_of_a_watched_process_is_no_load(tmp_path: Path) -> None:
    log = "".join(
        f"{moment} Process:{name} ({pid}) cpu load is : 25 for 1 seconds \n"
        f"{moment} Time between two invocations:1000ms\n{moment} {name} cpu load:{load}%\n"
        for moment, name, pid, load in (
            ("2026-11-22 10:00:00.000", "a", 7, "26"),
            ("2026-11-22 10:00:01.000", "a", 7, "4.6e+18"),
            ("2026-11-22 10:00:02.000", "", 0, "4.6e+18")))
    assert [cause for cause, *_ in causes(report(tmp_path, "x", application_log=log))] == [
        "too much load: a", "watched process ended: a", "watched process ended: unknown",
        "report requested: x"]


def test_of_very_many_incidents_the_first_are_taken(tmp_path: Path) -> None:
    log = start("10:00:00.000") + "".join(f"==Report=={number}\n" for number in range(10_005))
    found = report(tmp_path, "0", application_log=log)
    assert len(found.incidents) == 10_000
    assert [reason for _, reason in found.complaints] == [
        "only its first 10000 incidents and 100000 events are taken"]


def test_what_has_no_time_of_its_own_comes_after_what_precedes_it(tmp_path: Path) -> None:
    log = ("-- Time: Sun Nov 22 08:00:00 2026 GMT\n" + start("08:00:00.000")
           + "2026-11-22 09:45:00.000 == MEMORY USAGE == Free: 1 kB, Buffers+Cache: 1 kB\n"
           "Process helper with args [] doesn't appear for 30 seconds\n")
    found = report(tmp_path, "x", manifest_json=manifest(), application_log=log)
    assert [(incident.cause, incident.time and incident.time.strftime("%H:%M")) for incident
            in found.incidents] == [("missing process: helper", "09:45"),
                                    ("report requested: x", "10:00")]


# -- with the guard -------------------------------------------------------------------------------

HANG = ("guard: hang: no beat for 31 s\n==Report file:/tmp/log/guard-a-7.txt==hang\n"
        "guard: ended: signal 6 (SIGABRT) after 33 s, peak 2444 kB\n")


def test_a_hang_is_a_cause_of_its_own(tmp_path: Path) -> None:
    crash = end("10:00:34").replace("code:1, exist status:0", "code:6, exist status:1")
    log = start("09:00:00.000", "/bin/a") + HANG + start("10:00:35.000", "/bin/a")
    for name in ("main", "hang"):
        found = report(tmp_path, name, manifest_json=manifest(crash), application_log=log)
        assert causes(found) == [("hang", "/bin/a", "certain")]
        assert "hung: no beat for 31 s" in found.incidents[0].text
        # Without the system log, the next start tells when.
        found = report(tmp_path, name, application_log=log)
        assert causes(found) == [("hang", "/bin/a", "certain")]


@pytest.mark.parametrize("how, cause", [
    ("signal 11 (SIGSEGV)", "crash by signal 11 (SIGSEGV)"),
    ("status 3", "ended with status 3"), ("signal 15 (SIGTERM)", "ended by signal 15 (SIGTERM)")])
def test_the_guard_tells_an_end_that_no_message_tells(
        tmp_path: Path, how: str, cause: str) -> None:
    log = (start("09:00:00.000", "/bin/a") + f"guard: ended: {how} after 33 s, peak 2 kB\n"
           + start("10:00:35.000", "/bin/a") + "==Report==x\n")
    assert [found for found, *_ in causes(report(tmp_path, "x", application_log=log))] == [
        cause, "report requested: x"]


def test_an_orderly_end_is_no_incident_where_the_supervisor_tells_ends(tmp_path: Path) -> None:
    log = (start("09:59:00.000") + start("10:00:11.000")
           + "guard: ended: signal 15 (SIGTERM) after 9 s, peak 2 kB\n" + start("10:00:35.000"))
    found = report(tmp_path, "x", manifest_json=manifest(end("10:00:10")), application_log=log)
    assert [cause for cause, *_ in causes(found)] == ["ended with status 1", "report requested: x"]


def test_three_hangs_and_a_reboot_are_two_hangs_and_the_reboot(tmp_path: Path) -> None:
    log = "".join(start(f"10:00:{second}.000", "/bin/a") + HANG for second in ("00", "11", "22"))
    crashes = [end(f"10:00:{second}").replace("code:1, exist status:0", "code:6, exist status:1")
               for second in (10, 21)]
    reboot = end("10:00:38").split("Restarting")[0] + "Critical FW error, rebooting.\n"
    found = report(tmp_path, "third-end", manifest_json=manifest(*crashes, reboot),
                   application_log=log)
    assert [cause for cause, *_ in causes(found)] == ["hang", "hang", "reboot: third end"]
    assert "; each was a hang; its archive: " in found.incidents[2].text


def test_the_application_of_an_incident_is_not_the_guard(tmp_path: Path) -> None:
    log = start("17:38:49.000", "/usr/bin/pynx-watchdog-guard") + HANG + start("17:38:55.000", "x")
    stacks = Path(__file__).parents[1] / "fixtures/guard/hang.txt"
    found = report(tmp_path, "hang", application_log=log, stacks=stacks.read_text("utf-8"))
    assert causes(found) == [("hang", "/opt/panel", "certain")]
