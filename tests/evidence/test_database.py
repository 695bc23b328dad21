# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The database of a fleet: its tables, the queries of the README, and what can go wrong."""

from __future__ import annotations

import json
import re
import sqlite3
from pathlib import Path
from typing import Any

import pytest

from fleets import SNAPSHOT, pack
from test_command_line import run
from test_page import alarm

README = (Path(__file__).parents[2] / "tools/evidence/README.md").read_text(encoding="utf-8")
QUERIES: dict[str, str] = dict(
    re.findall(r"^(\S[^\n]*\?)\n\n```sql\n(.*?)```", README, re.MULTILINE | re.DOTALL))
FIXTURES = Path(__file__).parents[1] / "fixtures/guard"
DEVICE = "c46c8ef50a83c753"


def message(second: int, text: str) -> str:
    return f"2026-11-22T10:00:{second:02}.000000+0100 board pynx_watchdog[7]: {text}"


def end(second: int, code: int, crash: int) -> str:
    return message(second, f"Restarting process: exit code:{code}, exist status:{crash}, "
                           "uptime:9 sec")


def boot(cause: str, number: int) -> str:
    concluded = {"cause": cause, "boot_id": f"b{number}", "last_boot_id": f"b{number - 1}",
                 "time": "2026-11-22T09:59:00+0100", "concluded_from": ["No trace."],
                 "fail": "1", "boot_count": str(number)}
    return f"Cause of this boot: {cause}\n- No trace.\n{json.dumps(concluded)}\n"


def write_archives(place: Path) -> Path:
    """Archives of two devices that have something for each question."""
    place.mkdir()
    manifest: dict[str, Any] = {
        "machine": DEVICE, "time": "2026-11-22T10:00:40+0100", "package_version": "1",
        "boot_id": "b1", "os": {"pretty_name": "New 2"},
        "watchdog": {"identity": "iTCO_wdt", "timeout_s": 60, "bootstatus": 32},
        "missing": ["/tmp/log/none"],
        "refused": [{"file": "/etc/shadow", "reason": "it is not below /tmp"}],
        "journal": [end(10, 11, 1), end(20, 1, 0), message(21, "Cannot set priority"),
                    message(22, "Error occured during process startup, code: 5"),
                    message(38, "Critical FW error, rebooting.")]}
    log = ("-- Time: Sun Nov 22 09:00:01 2026 GMT\n"
           "2026-11-22 10:00:01.000 Watchdog: Starting app: /usr/bin/render -v \n"
           "Process helper with args [] doesn't appear for 30 seconds\n"
           + alarm(8, "render", "61.5", "4.6e+18").replace("1000ms", "1700ms", 1)
           + "2026-11-22 10:00:09.000 == MEMORY USAGE == Free: 2048 kB, Buffers+Cache: 1024 kB\n")
    log += ("guard: no stacks: no room\n"
            "guard: ended: signal 11 (SIGSEGV) after 9 s, peak 2588 kB, last status: busy\n")
    stacks = (FIXTURES / "crash.txt").read_text(encoding="utf-8").replace("17:38:52", "10:00:10")
    top = SNAPSHOT.replace("{time:%H:%M:%S}", "10:00:05").format(
        processes="   77 root      20   0    2592   1696   1588 S  80.5   0.0   0:00.10 render")
    pack(place / "report-third-end-1795338040000.tar.gz", {
        "manifest.json": json.dumps(manifest), "tmp/log/boot": boot("power loss", 1),
        "tmp/log/system": top, "tmp/log/application.log": log, "tmp/log/guard-a-1.txt": stacks})
    other = {"machine": "other", "time": "1970-01-01T00:00:40+0000", "boot_id": "b2",
             "os": {"id": "old", "version_id": "1"}, "journal": []}
    pack(place / "report-hang-100000000000.tar.gz", {
        "manifest.json": json.dumps(other), "tmp/log/boot": boot("panic", 2)})
    cut = pack(place / "tmp_report-main-1795338040000", {"manifest.json": json.dumps(other)})
    cut.write_bytes(cut.read_bytes()[:100])
    return place


@pytest.fixture(name="opened", scope="module")
def fixture_opened(tmp_path_factory: pytest.TempPathFactory) -> sqlite3.Connection:
    """The database of these archives."""
    place = tmp_path_factory.mktemp("database")
    archives = write_archives(place / "archives")
    result = run("--database", place / "db", archives)
    assert (result.returncode, result.stdout) == (0, "")
    assert "tmp_report-main-1795338040000: not whole: " in result.stderr
    return sqlite3.connect(place / "db")


ANSWERS: dict[str, list[tuple[object, ...]]] = {
    "What goes wrong most, and since when?": [
        *((cause, 1, 1, "2026-W47", "2026-W47") for cause in (
            "boot after panic", "boot after power loss", "crash by signal 11 (SIGSEGV)",
            "crash, its signal is not told", "ended with status 1", "missing process: helper",
            "reboot: third end")),
        ("report requested: hang", 1, 1, "unknown", "unknown"),
        ("start failed with code 5", 1, 1, "2026-W47", "2026-W47"),
        ("too much load: render", 1, 1, "2026-W47", "2026-W47")],
    "Which firmware is worst, by incidents for each of its devices?": [
        ("New 2", 7.0), ("unknown", 1.0), ("old 1", 1.0)],
    "Which causes has a firmware brought with it?": [
        *(("New 2", cause, 1) for cause in (
            "boot after power loss", "crash by signal 11 (SIGSEGV)", "ended with status 1",
            "missing process: helper", "reboot: third end", "start failed with code 5",
            "too much load: render")),
        ("old 1", "boot after panic", 1), ("old 1", "report requested: hang", 1),
        ("unknown", "crash, its signal is not told", 1)],
    "How has the application ended, and how soon?": [("signal 11", 1, 9), ("status 1", 1, 9)],
    "How much memory has it taken under the guard, and what had it last said of itself?": [
        (DEVICE, "2026-11-22T10:00:01+01:00", 2588, "busy")],
    "Where has it hung or crashed?": [
        ("crash", '["Decoder::decode","operator()","operator()"]', 1)],
    "Why could it not be started?": [(DEVICE, "2026-11-22T10:00:22+01:00", 5)],
    "Which boards were rebooted at the third end, and how had the application ended before?": [
        (DEVICE, "2026-11-22T10:00:38+01:00", "ended with status 1")],
    "Which threads kept a process too busy?": [
        ("render", "decode", 31.0, 2), ("render", "draw", 29.0, 2)],
    "Where was the system so busy that even the measurement came late?": [
        (DEVICE, "2026-11-22T10:00:08+01:00", 1700)],
    "Which watched processes have ended or were missing?": [
        ("helper", "not_found", 1), ("render", "alarm", 1)],
    "Is a board losing memory?": [(DEVICE, "2026-11-22", 2048)],
    "What was busiest in the minute before a crash?": [
        (DEVICE, "2026-11-22T10:00:10+01:00", "render", 80.5)],
    "What else do the supervisors complain about?": [
        ("Cannot set priority", 1), ("guard: no stacks: no room", 1)],
    "Why have the boards booted?": [("panic", 1), ("power loss", 1)],
    "Which boards were reset by their watchdog device, by what the device says itself?": [
        (DEVICE, "iTCO_wdt")],
    "Which boots followed one in which the application was not up for 10 s, by the boot flags?": [
        ("other", "2026-11-22T09:59:00+01:00", "2")],
    "Which files are missing in the archives, or were refused?": [
        ("/tmp/log/none", None, 1), ("/etc/shadow", "it is not below /tmp", 1)],
    "Which boards have a clock that is wrong?": [("other", 1, "1973-03-03T09:46:40+00:00")],
}


@pytest.mark.parametrize("question", ANSWERS)
def test_a_query_answers_its_question(opened: sqlite3.Connection, question: str) -> None:
    assert opened.execute(QUERIES[question]).fetchall() == ANSWERS[question]


def test_queries_that_answer_with_texts(opened: sqlite3.Connection) -> None:
    moment, = (question for question in QUERIES if "five minutes of a moment" in question)
    assert [row[1] for row in opened.execute(QUERIES[moment])] == [
        "message", "start", "not_found", "message", "message", "snapshot", "alarm", "memory",
        "end", "message", "end", "message", "start_failed", "reboot", "archive"]
    lost, = opened.execute(QUERIES["Which boots have left nothing else?"])
    assert lost[:2] == (DEVICE, "2026-11-22T09:59:00+01:00") and "power loss" in lost[2]
    broken, = opened.execute(QUERIES["Which archives are not whole?"])
    assert broken[0].endswith("/tmp_report-main-1795338040000") and broken[1]
    assert len(QUERIES) == len(ANSWERS) + 3, "a query is not tried"


def test_the_tables_are_those_of_the_readme(opened: sqlite3.Connection) -> None:
    told = {name: re.findall(r"`(\w+)`", columns) for name, columns in
            re.findall(r"^\| `(\w+)` \|[^|]*\|([^|]*)\|$", README, re.MULTILINE)}
    assert told == {name: [column for _, column, *_ in
                           opened.execute(f"PRAGMA table_info({name})")]
                    for name, in opened.execute("SELECT name FROM sqlite_schema"
                                                " WHERE type = 'table'")}


# -- what is added --------------------------------------------------------------------------------


def dump(database: Path) -> list[str]:
    """All that is in a database."""
    return list(sqlite3.connect(database).iterdump())


def test_what_is_there_is_not_added_again(tmp_path: Path) -> None:
    archives = write_archives(tmp_path / "archives")
    first, later = sorted(archives.iterdir())[:2], tmp_path / "later"
    later.mkdir()
    for archive in first:
        archive.rename(later / archive.name)
    for paths in ([archives], [archives], [later, archives]):
        assert run("--database", tmp_path / "db", *paths).returncode == 0
    assert run("--database", tmp_path / "at-once", archives, later).returncode == 0
    counts = [[sqlite3.connect(tmp_path / name).execute(f"SELECT count(*) FROM {table}").fetchone()
               for table in ("reports", "copies", "incidents", "events")]
              for name in ("db", "at-once")]
    assert counts[0] == counts[1] and counts[0][:2] == [(3,), (0,)]


def test_a_log_that_has_grown_takes_the_place_of_what_it_was(tmp_path: Path) -> None:
    log = tmp_path / "logs" / "application.log"
    log.parent.mkdir()
    for end_of_log in "==Report==a\n", "==Report==b\n":
        with log.open("a", encoding="utf-8") as file:
            file.write("2026-11-22 10:00:01.000 Watchdog: Starting app: a \n" + end_of_log)
        assert run("--database", tmp_path / "db", log.parent).returncode == 0
    opened = sqlite3.connect(tmp_path / "db")
    assert opened.execute("SELECT count(*) FROM reports").fetchone() == (1,)
    assert [cause for cause, in opened.execute(
        "SELECT cause FROM incidents WHERE cause LIKE 'report%' ORDER BY 1")] == [
        "report requested: a", "report requested: b"]


@pytest.mark.parametrize("content", [
    {"machine": 1, "os": [], "uptime_s": "x", "journal": {}, "time": 5},
    {"machine": "a" * 10000, "uptime_s": 10 ** 400, "os": {"pretty_name": "b" * 10000}},
    {"machine": "\ud800", "os": {"id": "\udcff"}, "boot_id": "\x00"}])
def test_a_manifest_that_lies_costs_nothing_else(tmp_path: Path, content: dict[str, Any]) -> None:
    text = json.dumps(content).replace('"x"', "NaN")
    pack(tmp_path / "report-a-1795338040000.tar.gz", {"manifest.json": text})
    pack(tmp_path / "report-b-1795338040000.tar.gz", {"manifest.json": '{"machine": "good"}'})
    result = run("--database", tmp_path / "db", *tmp_path.glob("*.gz"))
    assert (result.returncode, result.stderr) == (0, "")
    opened = sqlite3.connect(tmp_path / "db")
    assert [path[-24:] for path, in opened.execute("SELECT path FROM reports ORDER BY 1")] == [
        "report-a-1795338040000.tar.gz"[-24:], "report-b-1795338040000.tar.gz"[-24:]]
    assert opened.execute("SELECT count(*) FROM events WHERE json_valid(fields)").fetchone() == (2,)
    assert all(len(device) <= 200 for device, in opened.execute("SELECT device FROM reports"))


def test_a_path_that_is_no_utf8_is_kept_readable(tmp_path: Path) -> None:
    archive = pack(tmp_path / "report-a-1795338040000.tar.gz", {"manifest.json": "{}"})
    archive.rename(tmp_path / "report-\udcff-1795338040000.tar.gz")
    assert run("--database", tmp_path / "db", *tmp_path.glob("*.gz")).returncode == 0
    opened = sqlite3.connect(tmp_path / "db")
    assert opened.execute("SELECT count(*) FROM reports WHERE path LIKE '%/report-?-%'"
                          ).fetchone() == (1,)


# -- what cannot be used --------------------------------------------------------------------------


def test_a_file_that_is_no_such_database_is_left_alone(tmp_path: Path) -> None:
    archives = write_archives(tmp_path / "archives")
    other = tmp_path / "other"
    opened = sqlite3.connect(other)
    opened.execute("CREATE TABLE treasures (name TEXT)")
    opened.commit()
    text = tmp_path / "text"
    text.write_text("no database\n" * 1000)
    for file, why in (
            (other, "it is a database of something else"), (text, "file is not a database"),
            (tmp_path / "none" / "db", "unable to open"), (tmp_path, "unable to open")):
        before = file.read_bytes() if file.is_file() else None
        result = run("--database", file, archives)
        assert (result.returncode, result.stdout) == (1, "")
        assert result.stderr.startswith(f"pynx-watchdog-evidence: {file}: {why}")
        assert (file.read_bytes() if file.is_file() else None) == before


def test_nothing_readable_leaves_nothing_in_the_database(tmp_path: Path) -> None:
    result = run("--database", tmp_path / "db", tmp_path / "missing")
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == f"pynx-watchdog-evidence: {tmp_path / 'missing'}: it is no file\n"
    assert not any("INSERT INTO" in line for line in dump(tmp_path / "db"))
