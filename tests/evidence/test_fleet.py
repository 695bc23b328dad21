# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The archives of many devices: what is counted, and how often."""

from __future__ import annotations

import json
import os
import pty
import random
import re
import shutil
import sqlite3
import subprocess
from collections import Counter
from contextlib import suppress
from pathlib import Path

import pytest

from fleets import Facts, make_fleet, pack
from test_command_line import PROGRAM, run, start
from pynx_watchdog_evidence.store import DIMENSIONS, Count
from pynx_watchdog_evidence.table import trend


@pytest.fixture(name="fleet", scope="module")
def fixture_fleet(tmp_path_factory: pytest.TempPathFactory) -> tuple[Path, Counter[Facts]]:
    """The archives of some devices, and what happened to them."""
    directory = tmp_path_factory.mktemp("fleet")
    return directory, make_fleet(directory, 200)


def database(file: Path, *paths: str | Path) -> sqlite3.Connection:
    """The database of what is at these paths."""
    result = run("--database", file, *paths)
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
    return sqlite3.connect(file)


def incidents(opened: sqlite3.Connection) -> Counter[Facts]:
    """How often each incident is in a database."""
    return Counter(opened.execute(f"SELECT {', '.join(DIMENSIONS)} FROM incidents").fetchall())


def report(path: Path, machine: str = "device", log: str = "", **manifest: str) -> Path:
    """An archive of this device."""
    facts = {"machine": machine, "archive": path.name, "time": "2026-11-22T10:00:40+0000"}
    return pack(path, {"manifest.json": json.dumps(facts | manifest),
                       "tmp/log/application.log": log})


# -- what is counted ------------------------------------------------------------------------------


def test_each_incident_is_found_once(fleet: tuple[Path, Counter[Facts]], tmp_path: Path) -> None:
    directory, happened = fleet
    assert happened.total() > 300
    assert incidents(database(tmp_path / "db", directory)) == happened


def test_copies_of_archives_count_once(fleet: tuple[Path, Counter[Facts]], tmp_path: Path) -> None:
    directory, happened = fleet
    archives = sorted(directory.glob("*/*.tar.gz"))
    luck = random.Random(2)
    for number, archive in enumerate(luck.sample(archives, 50)):
        (tmp_path / "copies" / str(number)).mkdir(parents=True)
        shutil.copy(archive, tmp_path / "copies" / str(number))
    opened = database(tmp_path / "db", directory, tmp_path / "copies")
    assert incidents(opened) == happened
    assert opened.execute("SELECT count(*) FROM reports").fetchone() == (len(archives),)
    assert opened.execute("SELECT count(*) FROM copies").fetchone() == (50,)
    assert "50 copies not counted" in run(directory, tmp_path / "copies").stdout.splitlines()[0]


def test_the_tables_are_printed(fleet: tuple[Path, Counter[Facts]]) -> None:
    directory, happened = fleet
    result = run(directory)
    assert (result.returncode, result.stderr) == (0, "")
    head, *tables = result.stdout.split("\n\n")
    assert head.startswith(f"{happened.total()} incidents on ")
    assert [table.split()[0] for table in tables] == [*DIMENSIONS, "newest"]
    for dimension, table in zip(DIMENSIONS[:2], tables):
        expected = Counter[str]()
        for facts, number in happened.items():
            expected[facts[DIMENSIONS.index(dimension)]] += number
        for value, number in expected.items():
            line = next(line for line in table.splitlines() if line.startswith(f"{value}  "))
            assert int(line[len(value):].split()[0]) == number


@pytest.mark.parametrize("total, newest, before, told", [
    (9, 0, 0, ""), (9, 3, 3, "same"), (9, 6, 3, "+100%"), (9, 1, 3, "-67%"), (9, 0, 3, "gone"),
    (9, 3, 0, "back"), (9, 9, 0, "new")])
def test_a_trend_compares_the_newest_weeks_with_those_before(
        total: int, newest: int, before: int, told: str) -> None:
    assert trend(Count("cause", total, 1, "", "", newest, before)) == told


def test_weeks_without_incidents_and_wrong_clocks(tmp_path: Path) -> None:
    for number, time in enumerate((1750000000000, 1752000000000, 1262000000000, 99000000000000)):
        report(tmp_path / f"report-a-{time}.tar.gz", str(number))
    tables = run(tmp_path).stdout.split("\n\n")
    assert tables[0] == ("4 incidents on 4 devices, told by 4 reports, 2025-W24 to 2025-W28")
    cause = tables[1].splitlines()
    assert "newest 2 weeks  2 before" in cause[0]
    assert cause[1].split()[3:] == ["4", "4", "2025-W24", "2025-W28", "1", "0", "back", "█", "█"]
    assert [line.split()[:2] for line in tables[6].splitlines()[1:]] == [
        ["2025-W24", "1"], ["2025-W28", "1"], ["unknown", "2"]]


# -- what is a fleet ------------------------------------------------------------------------------


def test_archives_of_one_device_are_one_story(tmp_path: Path) -> None:
    for second in range(3):
        report(tmp_path / f"report-a-179534164{second}000.tar.gz")
    assert run(tmp_path).stdout.count("  archive  ") == 3
    report(tmp_path / "report-a-1795341643000.tar.gz", "another")
    assert run(tmp_path).stdout.startswith("4 incidents on 2 devices, told by 4 reports")


def test_very_many_archives_are_a_fleet(tmp_path: Path) -> None:
    for number in range(101):
        report(tmp_path / f"report-a-1795341{number:06}.tar.gz")
    assert run(tmp_path).stdout.startswith("101 incidents on 1 device, told by 101 reports")


def test_files_beside_the_archives_of_a_device_are_of_it(tmp_path: Path) -> None:
    for device in "one", "two":
        log = start("10:00:00.000", device) + "==Report==a\n"
        (tmp_path / device).mkdir()
        report(tmp_path / device / "report-a-1795341605000.tar.gz", device, log)
        (tmp_path / device / "application.log").write_text(log + "==Report==b\n")
    found = incidents(database(tmp_path / "db", tmp_path / "one", tmp_path / "two"))
    assert {(facts[0], facts[4]): number for facts, number in found.items()} == {
        (f"report requested: {name}", device): 1 for name in "ab" for device in ("one", "two")}


def test_archives_of_unknown_devices_are_told_apart_by_their_directories(tmp_path: Path) -> None:
    for directory in "a", "a", "b":
        place = tmp_path / directory
        place.mkdir(exist_ok=True)
        pack(place / f"report-x-179534164{len(list(place.iterdir()))}000.tar.gz", {
            "application.log": start("10:00:00.000") + "==Report==x\n"
            + f"line of {directory} {len(list(place.iterdir()))}\n"})
    opened = database(tmp_path / "db", tmp_path / "a", tmp_path / "b")
    assert opened.execute("SELECT count(*), count(DISTINCT device) FROM incidents"
                          ).fetchone() == (2, 1)


def test_a_simulated_device_is_one_report(tmp_path: Path) -> None:
    (tmp_path / "device/tmp/log").mkdir(parents=True)
    log = start("10:00:00.000", "/bin/app")
    (tmp_path / "device/tmp/log/application.log").write_text(log)
    ended = "Restarting process: exit code:11, exist status:1, uptime:9 sec"
    (tmp_path / "device/account.jsonl").write_text(json.dumps(
        {"source": "system log", "text": ended, "wall": 1795341610, "boot": 1}) + "\n")
    found = incidents(database(tmp_path / "db", tmp_path))
    assert [facts[:2] for facts in found] == [("crash by signal 11 (SIGSEGV)", "/bin/app")]


def test_files_that_are_no_evidence_are_no_reports(tmp_path: Path) -> None:
    (tmp_path / "README").write_text("nothing of the supervisor's\n")
    for device in "one", "two":
        report(tmp_path / f"report-{device}-1795341605000.tar.gz", device)
    assert ", told by 2 reports" in run(tmp_path).stdout.splitlines()[0]


def test_files_without_any_evidence_are_an_empty_fleet(tmp_path: Path) -> None:
    (tmp_path / "README").write_text("nothing of the supervisor's\n")
    result = run("--database", tmp_path / "db", "--html", tmp_path / "page.html", tmp_path)
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
    assert (tmp_path / "page.html").is_file() and not incidents(sqlite3.connect(tmp_path / "db"))


# -- how it is told -------------------------------------------------------------------------------


def test_a_broken_archive_costs_only_itself_and_is_named(tmp_path: Path) -> None:
    for device in "one", "two":
        report(tmp_path / f"report-{device}-1795341605000.tar.gz", device)
    broken = tmp_path / "report-x-1795341605000.tar.gz"
    broken.write_bytes(b"\x1f\x8b broken")
    result = run(tmp_path, tmp_path / "missing")
    assert result.returncode == 0
    assert "; 1 archive is not whole" in result.stdout.splitlines()[0]
    assert f"pynx-watchdog-evidence: {broken}: not whole: " in result.stderr
    assert f"pynx-watchdog-evidence: {tmp_path}/missing: it is no file\n" in result.stderr


def test_a_terminal_gets_no_commands_from_a_log(tmp_path: Path) -> None:
    for device in "one", "two\x1b]0;x\x07":
        report(tmp_path / f"report-{len(device)}-1795341605000.tar.gz", device,
               "Process \x1b[2J with args [] doesn't appear for 30 seconds\n")
    result = run(tmp_path)
    assert "missing process: \ufffd[2J" in result.stdout and "\x1b" not in result.stdout


@pytest.mark.parametrize("is_terminal", [True, False])
def test_a_terminal_shows_how_much_is_read(
        fleet: tuple[Path, Counter[Facts]], is_terminal: bool) -> None:
    archives = len(list(fleet[0].glob("*/*")))
    primary, secondary = pty.openpty()
    with subprocess.Popen([PROGRAM, fleet[0]], stdout=secondary if not is_terminal else
                          subprocess.DEVNULL, stderr=secondary if is_terminal else
                          subprocess.PIPE) as process:
        os.close(secondary)
        told = b""
        with suppress(OSError):  # the other side is closed
            while text := os.read(primary, 65536):
                told += text
        rest = process.stderr.read() if process.stderr else b""
    os.close(primary)
    if is_terminal:
        assert re.search(rb"\r\x1b\[K\d+ of %d read" % archives, told)
        assert told.endswith(b"\r\x1b[K")
    else:
        assert rest == b"" and b" read" not in told


def test_a_file_that_cannot_be_written_is_an_error(tmp_path: Path) -> None:
    for device in "one", "two":
        report(tmp_path / f"report-{device}-1795341605000.tar.gz", device)
    result = run("--html", tmp_path / "none" / "page.html", tmp_path)
    assert (result.returncode, result.stdout) == (1, "")
    assert "No such file or directory" in result.stderr and "Traceback" not in result.stderr


def test_the_events_of_a_fleet_are_those_of_its_devices(
        fleet: tuple[Path, Counter[Facts]], tmp_path: Path) -> None:
    shutil.copytree(fleet[0], tmp_path / "copy")
    result = run("--jsonl", fleet[0], tmp_path / "copy")
    assert (result.returncode, result.stderr) == (0, "")

    def of_devices(text: str) -> Counter[str]:
        """The events without what depends on which of two archives has told them."""
        found = [json.loads(line) for line in text.splitlines()]
        return Counter(f"{event['kind']} {event['time']} {event.get('program')}"
                       for event in found if event["kind"] in ("start", "end", "archive"))

    each = Counter[str]()
    for device in fleet[0].iterdir():
        each += of_devices(run("--jsonl", device).stdout)
    assert each.total() > 500 and of_devices(result.stdout) == each
    snapshot = next(json.loads(line) for line in result.stdout.splitlines()
                    if '"kind": "snapshot"' in line)
    assert list(snapshot)[:4] == ["kind", "time", "source", "line"]
    assert len(snapshot["processes"]) == 59
