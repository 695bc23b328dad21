# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""pynx-watchdog-evidence as a program: what it reads, joins and prints."""

from __future__ import annotations

import io
import json
import os
import signal
import subprocess
import sys
import tarfile
from collections import Counter
from pathlib import Path
from typing import Any

import pytest

from pynx_watchdog_evidence import join, sources
from pynx_watchdog_evidence.archives import Room
from pynx_watchdog_evidence.events import Event
from pynx_watchdog_evidence.join import events_of, held
from pynx_watchdog_evidence.sentence import MOST_SENTENCES

PROGRAM = Path(__file__).parents[2] / "tools/evidence/pynx-watchdog-evidence"

# A program without the rights of root to read everything.
ORDINARY = ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] if not os.geteuid() else []

# The program, interrupted when it has printed the last event and not yet written it.
INTERRUPTED = """
from pynx_watchdog_evidence import cli

def interrupted(paths, complain, events_of=cli.events_of):
    yield from events_of(paths, complain)
    raise KeyboardInterrupt

cli.events_of = interrupted
raise SystemExit(cli.main())
"""


def run(*arguments: str | Path) -> subprocess.CompletedProcess[str]:
    return subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, check=False,
                          timeout=120)


def events(*arguments: str | Path) -> list[dict[str, Any]]:
    result = run("--jsonl", *arguments)
    assert (result.returncode, result.stderr) == (0, "")
    return [json.loads(line) for line in result.stdout.splitlines()]


def start(time: str, program: str = "app") -> str:
    return f"\n\n2026-11-22 {time} Watchdog: Starting app: {program} \n"


def end(time: str) -> str:
    return (f"2026-11-22T{time}+0000 board pynx_watchdog[1]: Restarting process: exit code:1, "
            "exist status:0, uptime:9 sec\n")


def archive(path: Path, **members: str) -> Path:
    with tarfile.open(path, "w:gz") as tar:
        for name, text in members.items():
            member = tarfile.TarInfo(name.replace("__", "/").replace("_log", ".log"))
            member.size = len(text)
            tar.addfile(member, io.BytesIO(text.encode()))
    return path


def test_the_older_half_of_a_log_comes_first(tmp_path: Path) -> None:
    log = tmp_path / "app.log"
    log.write_text(start("10:00:02.000"))
    (tmp_path / "app.log.0").write_text(start("10:00:01.000"))
    for paths in ([log], [tmp_path], [log, tmp_path / "app.log.0"], [tmp_path, log]):
        assert [event["time"] for event in events(*paths)] \
            == ["2026-11-22T10:00:01", "2026-11-22T10:00:02"]


def test_an_older_half_alone_is_read(tmp_path: Path) -> None:
    (tmp_path / "app.log.0").write_text(start("10:00:01.000"))
    assert len(events(tmp_path)) == 1


def test_sources_are_joined_in_the_order_of_their_times(tmp_path: Path) -> None:
    (tmp_path / "log").write_text(start("10:00:00.000") + start("10:00:20.000"))
    (tmp_path / "messages").write_text(end("10:00:10") + end("10:00:30"))
    assert [event["kind"] for event in events(tmp_path)] == ["start", "end", "start", "end"]


def test_an_end_without_parts_of_a_second_is_between_its_start_and_the_next(tmp_path: Path) -> None:
    (tmp_path / "log").write_text(start("10:00:10.022") + start("10:00:11.800"))
    (tmp_path / "messages").write_text(end("10:00:10"))
    assert [event["kind"] for event in events(tmp_path)] == ["start", "end", "start"]


def test_the_log_in_an_archive_and_the_one_beside_it_are_the_same(tmp_path: Path) -> None:
    text = start("10:00:00.000") + "==Report==a\n==Report==a\n"
    (tmp_path / "application.log").write_text(text + start("10:00:20.000") + "==Report==a\n")
    archive(tmp_path / "report-a-1795341605000.tar.gz", tmp__log__application_log=text)
    assert [event["kind"] for event in events(tmp_path)] \
        == ["start", "request", "request", "archive", "start", "request"]


def test_equal_messages_of_a_second_are_two_and_their_copies_are_none(tmp_path: Path) -> None:
    (tmp_path / "a").write_text(end("10:00:10") * 2 + end("10:00:11"))
    (tmp_path / "b").write_text(end("10:00:10.25") + end("10:00:10.75"))
    assert [event["kind"] for event in events(tmp_path)] == ["end"] * 3


def test_the_members_of_an_archive_are_joined(tmp_path: Path) -> None:
    manifest = json.dumps({"time": "2026-11-22T10:00:40+0000", "journal": [
        end("10:00:10").strip(), end("10:00:30").strip()]})
    log = start("10:00:00.000") + start("10:00:20.000")
    report = archive(tmp_path / "report-a-1795341640000.tar.gz",
                     **{"manifest.json": manifest, "tmp__log__application_log": log})
    for paths in ([report], [report, report], [tmp_path]):
        assert [event["kind"] for event in events(*paths)] \
            == ["start", "end", "start", "end", "archive"]


def test_the_cause_of_a_boot_is_told(tmp_path: Path) -> None:
    cause = json.dumps({"cause": "power loss", "concluded_from": ["No trace.", "It was cold."],
                        "time": "2026-11-22T10:00:40+0100", "boot_id": "b"})
    (tmp_path / "boot").write_text(f"Cause of this boot: power loss\n- No trace.\n{cause}\n")
    [event] = events(tmp_path)
    assert (event["kind"], event["time"], event["line"], event["cause"], event["boot_id"]) \
        == ("message", "2026-11-22T10:00:40+01:00", 1, "power loss", "b")
    assert run(tmp_path).stdout.startswith("- The board has booted: power loss at 2026-11-22 "
                                           "10:00:40+01:00 (No trace. It was cold.) "
                                           f"(likely: {tmp_path}/boot:1)\n")


def test_a_broken_file_costs_only_itself(tmp_path: Path) -> None:
    (tmp_path / "log").write_text(start("10:00:00.000"))
    (tmp_path / "report-a-1795341605000.tar.gz").write_bytes(b"\x1f\x8b broken")
    found = events(tmp_path)
    assert [(event["kind"], event.get("complete")) for event in found] \
        == [("start", None), ("archive", False)]


def test_a_file_that_surprises_the_reader_costs_only_itself(
        tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    def surprise(*_: object) -> None:
        raise ValueError("surprise")

    monkeypatch.setattr(sources, "looks_like_snapshots", surprise)
    (tmp_path / "a").write_text("x")
    (tmp_path / f"report-a-{10 ** 12}.tar.gz").write_bytes(b"\x1f\x8b")
    complaints: list[str] = []
    found = list(events_of([tmp_path], lambda path, why: complaints.append(f"{path.name}: {why}")))
    assert [event.kind for event in found] == ["archive"]
    assert complaints == ["a: it cannot be read to its end: surprise"]


def test_links_and_other_files_in_a_directory_are_left_alone(tmp_path: Path) -> None:
    for directory in "one", "other":
        (tmp_path / directory).mkdir()
        (tmp_path / directory / "log").write_text(start("10:00:00.000", directory))
    (tmp_path / "one/link").symlink_to("../other/log")
    (tmp_path / "one/loop").symlink_to("loop")
    (tmp_path / "one/directory").symlink_to("../other")
    os.mkfifo(tmp_path / "one/fifo")
    assert [event["program"] for event in events(tmp_path / "one")] == ["one"]


def test_what_may_not_be_read_is_told_and_the_rest_is_read(tmp_path: Path) -> None:
    for name in "open", "closed", "listed":
        (tmp_path / name).mkdir()
        (tmp_path / name / "log").write_text(start("10:00:00.000", name))
    (tmp_path / "loop").symlink_to("loop")
    (tmp_path / "closed").chmod(0)
    (tmp_path / "listed").chmod(0o400)
    asked = [tmp_path / "closed/log", tmp_path / "loop", tmp_path]
    result = subprocess.run([*ORDINARY, PROGRAM, "--jsonl", *asked], capture_output=True,
                            text=True, check=False, timeout=120)
    assert [json.loads(line)["program"] for line in result.stdout.splitlines()] == ["open"]
    assert set(result.stderr.splitlines()) == {
        f"pynx-watchdog-evidence: {tmp_path / name}: {why}" for name, why in (
            ("closed", "Permission denied"), ("closed/log", "Permission denied"),
            ("listed/log", "Permission denied"), ("loop", "it is no file"))}
    assert result.returncode == 0


@pytest.mark.parametrize("kinds, lines", [(["memory"] * 9, [6, 7, 8]),
                                          (["archive"] + ["memory"] * 8, [0, 7, 8])])
def test_of_very_many_events_the_last_are_told_and_that_is_said(
        kinds: list[str], lines: list[int]) -> None:
    told: list[tuple[Path, str]] = []
    found = held((Event(kind, None, "log", line) for line, kind in enumerate(kinds)), Room(3),
                 Path("log"), lambda file, reason: told.append((file, reason)))
    assert [event.line for event in found] == lines
    assert told == [(Path("log"), "it has too many events: the first 6 are not told")]


def test_a_file_of_very_many_events_costs_only_itself(
        tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(join, "MOST_HELD", 100)
    (tmp_path / "a").write_text("==Report==x\n" * 900)
    (tmp_path / "b").write_text(start("10:00:00.000"))
    complaints: list[str] = []
    found = list(events_of([tmp_path], lambda path, why: complaints.append(f"{path.name}: {why}")))
    assert Counter(event.kind for event in found) == {"request": 99, "start": 1}
    assert complaints == ["a: it has too many events: the first 801 are not told"]


def test_a_reader_that_ends_early_is_no_error(tmp_path: Path) -> None:
    (tmp_path / "log").write_text(start("10:00:00.000") * 5000)  # more than a pipe can hold
    with subprocess.Popen([PROGRAM, tmp_path / "log"], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE) as process:
        assert process.stdout and process.stdout.readline() and process.stderr
        process.stdout.close()
        assert process.stderr.read() == b""
    assert process.returncode == 0


def test_an_interrupt_ends_it_without_a_word(tmp_path: Path) -> None:
    (tmp_path / "log").write_text(start("10:00:00.000") * 10_000)  # more than a pipe holds
    # What a shell starts in the background ignores interrupts, these tests maybe, too.
    with subprocess.Popen(["env", "--default-signal=INT", PROGRAM, "--jsonl", tmp_path],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE) as reader:
        assert reader.stdout and reader.stderr
        reader.stdout.readline()
        reader.send_signal(signal.SIGINT)
        assert (reader.wait(120), reader.stderr.read()) == (130, b"")


def test_an_interrupt_ends_it_although_nobody_reads_what_it_still_holds(tmp_path: Path) -> None:
    (tmp_path / "log").write_text(start("10:00:00.000"))
    reader, writer = os.pipe()
    os.set_blocking(writer, False)
    with pytest.raises(BlockingIOError):
        while True:
            os.write(writer, b"x" * 4096)
    os.set_blocking(writer, True)
    result = subprocess.run(
        [sys.executable, "-c", INTERRUPTED, "--jsonl", tmp_path], stdout=writer,
        stderr=subprocess.PIPE, check=False, timeout=120,
        env=os.environ | {"PYTHONPATH": str(PROGRAM.parent), "PYTHONUNBUFFERED": ""})
    os.close(reader)
    os.close(writer)
    assert (result.returncode, result.stderr) == (130, b"")


def test_the_verdict_and_the_events_are_printed(tmp_path: Path) -> None:
    (tmp_path / "log").write_text(start("10:00:00.000"))
    (tmp_path / "messages").write_text(end("10:00:10"))
    result = run(tmp_path)
    verdict, listed = result.stdout.split("\n\n")
    assert verdict == (
        "- Application 'app' ended with status 1 after 9 s at 2026-11-22 10:00:10+00:00 "
        f"(certain: {tmp_path}/messages:1)\n"
        "- Times without an offset from UTC are taken for UTC+00:00, in 1 of 2 events "
        f"(guess: {tmp_path}/log:3)")
    assert [line.split("  ")[1] for line in listed.splitlines()] == ["start", "end"]


def test_of_a_sentence_the_first_and_the_last_line_are_printed(tmp_path: Path) -> None:
    with (tmp_path / "messages").open("w") as file:
        file.writelines(end("10:00:10").replace("code:1,", f"code:{number % 2},")
                        for number in range(500))
    file_of = f"{tmp_path}/messages"
    lines = run(tmp_path).stdout.split("\n\n")[0].splitlines()
    assert lines[0].endswith(f"(certain: {file_of}:500)")
    assert lines[MOST_SENTENCES:] == ["- 300 older sentences left out"]
    (tmp_path / "messages").write_text(end("10:00:10") * 9)
    assert run(tmp_path).stdout.split("\n\n")[0].endswith(f"(certain: {file_of}:1 to {file_of}:9)")


def test_a_terminal_gets_no_commands(tmp_path: Path) -> None:
    (tmp_path / "log\x1b[1m").write_text(start("10:00:00.000", "app\x1b[2J"))
    archive(tmp_path / "report-a-1795341640001.tar.gz", **{"\x1b[3m": "top - 10:00:00\n" * 99_999})
    (tmp_path / "\x1b[4m").write_bytes(b"\x1f\x8b")
    result = run(tmp_path)
    assert f"not whole: {tmp_path}/\ufffd[4m" in result.stdout.split("\n\n", maxsplit=1)[0]
    assert "program=app\ufffd[2J" in result.stdout and "log\ufffd[1m:3" in result.stdout
    assert "\ufffd[3m: it is larger than" in result.stderr
    assert "\x1b" not in result.stdout + result.stderr


@pytest.mark.parametrize("encoding", ["ascii", "utf-8"])
def test_a_letter_that_a_terminal_has_not_is_replaced(
        tmp_path: Path, monkeypatch: pytest.MonkeyPatch, encoding: str) -> None:
    (tmp_path / os.fsdecode(b"\xff")).write_text(start("10:00:00.000", "\u2190"))
    monkeypatch.setenv("PYTHONIOENCODING", encoding)
    result = run(tmp_path)
    assert (result.returncode, result.stderr) == (0, "")
    assert len(result.stdout.splitlines()) == 3


@pytest.mark.parametrize("arguments", [
    [], ["--unknown", "x"], ["--jsonl"], ["--jsonl", "--database", "x", "x"]])
def test_wrong_usage(arguments: list[str]) -> None:
    result = run(*arguments)
    assert (result.returncode, result.stdout) == (2, "")
    assert "pynx-watchdog-evidence: error:" in result.stderr


def test_nothing_readable_at_all(tmp_path: Path) -> None:
    missing, there = tmp_path / "missing", tmp_path / "log"
    result = run(missing)
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == f"pynx-watchdog-evidence: {missing}: it is no file\n"
    there.write_text(start("10:00:00.000"))
    result = run("--jsonl", missing, there)
    assert (result.returncode, result.stdout.count("\n")) == (0, 1)
    assert str(missing) in result.stderr


def test_a_pipe_is_not_waited_for(tmp_path: Path) -> None:
    os.mkfifo(tmp_path / "pipe")
    result = run("--database", tmp_path / "db", tmp_path / "pipe")
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == f"pynx-watchdog-evidence: {tmp_path / 'pipe'}: it is no file\n"


@pytest.mark.parametrize("option", [[], ["--jsonl"], ["--html", "page"], ["--database", "db"]])
def test_a_directory_without_files(tmp_path: Path, option: list[str]) -> None:
    options: list[str | Path] = [
        text if text.startswith("--") else tmp_path / text for text in option]
    (tmp_path / "empty").mkdir()
    result = run(*options, tmp_path / "empty")
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == f"pynx-watchdog-evidence: {tmp_path}/empty: it has no files\n"
    assert list(tmp_path.iterdir()) == [tmp_path / "empty"]


@pytest.mark.parametrize("option", [[], ["--jsonl"], ["--html", "page"], ["--database", "db"]])
def test_a_log_without_events_is_read(tmp_path: Path, option: list[str]) -> None:
    options: list[str | Path] = [
        text if text.startswith("--") else tmp_path / text for text in option]
    (tmp_path / "log").write_text("output of the application\n")
    result = run(*options, tmp_path / "log", tmp_path / "missing")
    assert (result.returncode, "Nothing is found" in result.stdout) == (0, not option)
    assert result.stderr == f"pynx-watchdog-evidence: {tmp_path}/missing: it is no file\n"


def test_the_cause_of_a_boot_counts_once(tmp_path: Path) -> None:
    concluded = {"cause": "power loss", "concluded_from": ["The last boot left no trace."],
                 "time": "2026-11-22T10:00:00+0100", "boot_id": "b1", "last_boot_id": "b0"}
    text = ("Cause of this boot: power loss\n- The last boot left no trace.\n"
            + json.dumps(concluded) + "\n")
    for number in (1, 2):
        archive(tmp_path / f"report-a-179534164000{number}.tar.gz", tmp__log__boot=text)
    (tmp_path / "messages").write_text("".join(
        f"2026-11-22T{time}+0100 board pynx_watchdog: Cause of this boot: power loss\n"
        for time in ("09:59:30.000000", "10:00:01.500000", "10:00:30.000000")))
    found = [event for event in events(tmp_path) if event["kind"] == "message"]
    # That of the file, which tells more, and those of other boots.
    assert [(event["cause"], event["time"], "boot_id" in event) for event in found] == [
        ("power loss", "2026-11-22T09:59:30+01:00", False),
        ("power loss", "2026-11-22T10:00:00+01:00", True),
        ("power loss", "2026-11-22T10:00:30+01:00", False)]


@pytest.mark.parametrize("last", [
    "", "{", "[]", '{"time": [], "concluded_from": 1, "boot_id": {}, "kind": "x"}'])
def test_the_cause_of_a_boot_whose_last_line_is_wrong(tmp_path: Path, last: str) -> None:
    (tmp_path / "boot").write_text(f"Cause of this boot: panic\n- No.\n{last}\n")
    assert [(event["cause"], event["time"]) for event in events(tmp_path)] == [("panic", None)]
