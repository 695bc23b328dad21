# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The texts that the reader knows are those of the program's sources."""

from __future__ import annotations

import re
from pathlib import Path

import pytest

from pynx_watchdog_evidence import copies, incidents, messages, texts
from pynx_watchdog_evidence.events import Event
from pynx_watchdog_evidence.verdict import verdict

PROJECT = Path(__file__).parents[2]
PARTS = ("app", "common", "health", "load", "logging", "report")


def literals(file: str) -> str:
    """All texts in a source, one after the other; what the compiler joins is joined."""
    source = re.sub(r'"\s*\n\s*"', "", (PROJECT / file).read_text())
    return "\n".join(re.findall(r'"((?:[^"\\\n]|\\.)*)"', source))


@pytest.mark.parametrize("text", texts.LOG_TEXTS, ids=[text.kind for text in texts.LOG_TEXTS])
def test_a_line_of_the_log_is_made_of_texts_of_the_program(text: texts.LogText) -> None:
    written = literals(text.source).replace("\\n", "").split("\n")
    for piece in text.pieces:
        assert piece in written


@pytest.mark.parametrize("source, text", [
    (texts.MARKERS_SOURCE, texts.FILE_MARKER.decode()),
    (texts.MARKERS_SOURCE, texts.TEXT_MARKER.decode()),
    texts.END_SOURCE, texts.START_FAILED_SOURCE,
])
def test_a_message_is_a_text_of_the_program(source: str, text: str) -> None:
    assert text in literals(source)


@pytest.mark.parametrize("text, source", [
    *texts.GUARD_NOTES, texts.GUARD_NAME, *(source[::-1] for source in (
        texts.STACKS_SOURCE, texts.STACKS_TIME_SOURCE, texts.GUARD_FILE_SOURCE,
        texts.THREAD_SOURCE, texts.FRAME_SOURCE))])
def test_what_the_guard_writes_is_a_text_of_it(text: str, source: str) -> None:
    assert text in literals(source)


def test_all_that_the_supervisor_says_is_known() -> None:
    known = (*texts.STANDARD_ERROR, texts.END_SOURCE[1], texts.START_FAILED_SOURCE[1],
             *(text.pieces[0] for text in texts.LOG_TEXTS if text.kind == "message"))
    said = [found for part in PARTS for file in (PROJECT / part).glob("*.cpp") for found in
            re.findall(r'\b(?:writeErrorLine\(\s*QStringLiteral|writeRaw|syslog)\([^"();]*"([^"]*)',
                       file.read_text())]
    assert len(said) > len(texts.STANDARD_ERROR)
    assert [text for text in said if not text.startswith(known)] == []


@pytest.mark.parametrize("name, source", [
    (messages.TAG, "app/watchdog.cpp"), (copies.COPY, "health/systemloadlogger.cpp"),
    (incidents.CRASH, "app/watchdog.cpp"), ("/tmp_", "report/reporter.cpp"),
    (".tar.gz", "report/reporter.cpp")])
def test_a_name_is_one_that_the_program_gives(name: str, source: str) -> None:
    assert name in literals(source).split("\n")


@pytest.mark.parametrize("name", incidents.REBOOTS)
def test_the_archive_of_a_reboot_is_called_as_the_board_tool_calls_it(name: str) -> None:
    assert f"reason={name}\n" in (PROJECT / "packaging/board-tools/reboot").read_text()


def test_the_limits_of_a_start_are_those_of_the_program() -> None:
    [said] = verdict([Event("start_failed", None, "log", 1, {"code": 2})])
    for file, name, unit in (("health/sfuflagclearer.h", "toolTimeLimitMs", "000"),
                             ("app/watchdog.cpp", "startTimeoutMs", "")):
        [limit] = re.findall(rf"\b{name} = (\d+){unit};", (PROJECT / file).read_text())
        assert f" {limit} {'s' if unit else 'ms'}" in said.text


def test_all_that_the_guard_says_is_known() -> None:
    """Each text that its function for lines on standard error is given stands in the module."""
    known = [text for text, _ in texts.GUARD_NOTES] + ["hang: ", "ended: "]
    said = [found for file in (PROJECT / "tools/guard").glob("*.cpp") for found in re.findall(
        r'\bsay\(\s*(?:std::string\(\s*)?"([^"]*)', file.read_text())]
    assert {"hang: ", "ended: "} <= set(said)
    assert [text for text in said if not text.startswith(tuple(known))] == []


@pytest.mark.parametrize("text", sorted(
    set(texts.STANDARD_ERROR) - set(texts.STANDARD_ERROR_OF_OTHERS)))
def test_standard_error_has_texts_of_the_program(text: str) -> None:
    sources = [file for part in PARTS for file in (PROJECT / part).glob("*.cpp")]
    assert any(text in literals(str(file)) for file in sources)


def test_the_cause_of_a_boot_begins_as_the_script_writes_it() -> None:
    script = (PROJECT / texts.BOOT_CAUSE_SOURCE).read_text()
    assert f'echo "{texts.BOOT_CAUSE}$cause"' in script
