# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What pynx-watchdog-check finds in the supervisor's arguments."""

from __future__ import annotations

import shutil
import subprocess
from pathlib import Path
from typing import Any

import pytest

from checked import Check, Short, Tool, document, write_settings

APP = ["--app", "/bin/sh"]
LOG = ["--logfileName", "/tmp/a.log"]
SIZE = ["--logfileSize", "1M"]


@pytest.fixture
def tool(check: Check, build_directory: Path, tmp_path: Path) -> Tool:
    """The tool with the factory's settings."""
    shutil.copytree(build_directory / "settings-default", tmp_path / "settings-default")
    return Tool(check, tmp_path)


def error(line: int | None, rule: str) -> Short:
    return line, "error", rule


def warning(line: int | None, rule: str) -> Short:
    return line, "warning", rule


@pytest.mark.parametrize("arguments, found", [
    ([*APP], []),
    ([*LOG, *SIZE, *APP], []),
    ([*SIZE, *LOG, *APP], []),
    ([*LOG, *SIZE, "--logTime", "--singleRun", *APP], []),
    ([*LOG, *SIZE, "--rotateOnly", *APP, "--verbose", "singleRun"], []),
    ([*LOG, "--logfileSizeConf", "default", *APP], []),

    # The application.
    ([], [error(None, "no-arguments")]),
    (["--logTime"], [error(None, "no-application"), error(1, "log-time")]),
    (["--app"], [error(None, "no-application"), error(1, "value-missing")]),
    (["--app", ""], [error(2, "value-empty")]),
    ([*APP, "--singleRun"], [warning(3, "option-of-application")]),
    ([*APP, "x", "--app", "--logfileSize"],
     [warning(4, "option-of-application"), warning(5, "option-of-application")]),
    ([*APP, "", "--singlerun", "--logfileSize=3"], []),

    # Words that the supervisor ignores.
    (["--singlerun", *APP], [error(1, "unknown-word")]),
    (["stray", *APP], [error(1, "unknown-word")]),
    (["", *APP], [error(1, "unknown-word")]),
    (["--help", "-v", *APP], [error(1, "unknown-word"), error(2, "unknown-word")]),
    ([*LOG, "--logfileSize", "1", "M", *APP], [error(4, "size-suffix"), error(5, "unknown-word")]),
    ([*LOG, "--logfileSize=1M", *APP], [error(1, "log-size-missing"), error(3, "unknown-word")]),

    # Values.
    (["--user"], [error(None, "no-application"), error(1, "value-missing")]),
    (["--logfileName", "--logTime", *SIZE, *APP], [error(2, "value-is-option")]),
    (["--user", "--app", "/bin/sh"], [error(None, "no-application"), error(2, "value-is-option"),
                                      error(3, "unknown-word")]),
    (["--logfileName", "--log", *SIZE, *APP], [warning(2, "value-is-option")]),
    (["--logfileName", "/tmp/--log", *SIZE, *APP], []),
    (["--logfileName", "", *SIZE, *APP], [error(2, "value-empty")]),
    (["--logfileName", "a.log", *SIZE, *APP], [warning(2, "log-relative")]),
    (["--user", "", *APP], [error(2, "value-empty")]),

    # Logging takes a name and a size.
    ([*LOG, *APP], [error(1, "log-size-missing")]),
    ([*SIZE, *APP], [error(1, "log-name-missing")]),
    ([*LOG, "--logTime", *APP], [error(1, "log-size-missing"), error(3, "log-time")]),
    (["--logTime", *APP], [error(1, "log-time")]),

    # What is given again.
    (["--logTime", *LOG, *SIZE, "--logTime", *APP], [warning(1, "overridden")]),
    ([*LOG, *SIZE, *SIZE, *APP], [warning(3, "overridden")]),
    ([*LOG, *SIZE, "--logfileSize", "2M", *APP], [error(3, "overridden")]),
    ([*LOG, "--logfileSizeConf", "default", *SIZE, *APP], [error(3, "overridden")]),
    ([*LOG, *SIZE, "--logfileSizeConf", "default", *APP], [error(3, "overridden")]),
    ([*LOG, *SIZE, *APP, "--logTime", "--logTime"],
     [warning(7, "option-of-application"), warning(8, "option-of-application")]),

    # Sizes by name, of which the factory has the default alone.
    ([*LOG, "--logfileSizeConf", "Default", *APP], [warning(4, "size-name")]),
    ([*LOG, "--logfileSizeConf", "", *APP], [warning(4, "size-name")]),
    (["--logfileSize", "1M", "--logfileSizeConf", "default", *APP],
     [error(1, "overridden"), error(3, "log-name-missing")]),
    (["--logfileSizeConf", "default", "--logfileSize", "1M", *APP],
     [error(1, "overridden"), error(3, "log-name-missing")]),
])
def test_arguments_and_their_findings(tool: Tool, arguments: list[str], found: list[Short]) -> None:
    assert tool.judged(arguments) == found


@pytest.mark.parametrize("size, rule", [
    ("1k", ""), ("1K", ""), ("2m", ""), ("4095M", ""), ("1000b", ""), (" 5 k", ""), ("+5k", ""),
    ("1000", "size-suffix"), ("1G", "size-suffix"), ("-5", "size-suffix"),
    ("k", "size-number"), ("1.5M", "size-number"), ("0x10k", "size-number"),
    ("1MB", "size-number"), ("1M ", "size-number"), ("one", "size-number"),
    ("4096M", "size-range"), ("-1k", "size-range"), ("99999999999999999999k", "size-range"),
    ("99999999999b", "size-range"),
    ("", "size-empty"),
])
def test_sizes_and_their_errors(tool: Tool, size: str, rule: str) -> None:
    arguments = [*LOG, "--logfileSize", size, *APP]
    assert tool.judged(arguments) == ([error(4, rule)] if rule else [])


@pytest.mark.parametrize("size", ["0", "0k", "0M", "00b"])
def test_a_size_of_0_is_hardly_meant(tool: Tool, size: str) -> None:
    arguments = [*LOG, "--logfileSize", size, *APP]
    assert tool.judged(arguments) == [warning(4, "size-zero")]


@pytest.mark.parametrize("table, name, found", [
    ({"product": "2M", "default": "1M"}, "product", []),
    ({"product": "2M"}, "product", []),
    ({"product": "2M", "default": "1M"}, "produkt", [warning(4, "size-name")]),
    ({"product": "2M"}, "produkt", [error(4, "size-name")]),
    ({}, "product", [error(4, "size-name")]),
    ("no table", "product", [error(4, "size-name")]),
    ({"product": "", "default": "1M"}, "product", [error(4, "size-empty")]),
    ({"product": None, "default": "1M"}, "product", [error(4, "size-empty")]),
    ({"product": ["2M"], "default": "1M"}, "product", [error(4, "size-empty")]),
    ({"product": "2M", "default": ""}, "product", []),
    ({"product": "2M", "default": ""}, "x", [warning(4, "size-name"), error(4, "size-empty")]),
])
def test_sizes_by_name(tool: Tool, table: Any, name: str, found: list[Short]) -> None:
    write_settings(tool.program_dir, {"SystemManagerLogFilesSizeConfig.json": document(table)})
    assert tool.judged([*LOG, "--logfileSizeConf", name, *APP]) == found


REPORTS = {"WatchdogAutomaticReporting.json": document(True)}


def files(*paths: str) -> dict[str, Any]:
    """Settings with reports of these files."""
    return {**REPORTS, "SystemManagerLogReportConfig.json": document({"files": paths})}


@pytest.mark.parametrize("settings, found", [
    ({}, []),
    (files("/tmp/a.log", "/tmp/a.log.0"), []),
    (files("/tmp/../tmp//a.log", "/tmp/./a.log.0"), []),
    (files("/tmp"), []),
    (files("/tm", "/tmp/a.lo"), [warning(2, "log-not-reported")] * 2),
    (files("/tmp/a.log"), [warning(2, "log-not-reported")]),
    (files("/tmp/a.log.0"), [warning(2, "log-not-reported")]),
    (files(), [warning(2, "log-not-reported")] * 2),
    ({"SystemManagerLogReportConfig.json": document({"files": []})}, []),
])
def test_the_log_is_among_the_files_of_reports(tool: Tool, settings: dict[str, Any],
                                               found: list[Short]) -> None:
    write_settings(tool.program_dir, settings)
    assert tool.judged([*LOG, *SIZE, *APP]) == found


def test_no_log_has_to_be_among_the_files_of_reports(tool: Tool) -> None:
    write_settings(tool.program_dir, files())
    assert not tool.judged(APP)


def test_a_relative_log_is_looked_for_where_the_tool_is_started(tool: Tool) -> None:
    here = tool.program_dir.resolve()
    write_settings(tool.program_dir, files(str(here / "a.log"), str(here / "a.log.0")))
    assert tool.judged(["--logfileName", "a.log", *SIZE, *APP]) == [warning(2, "log-relative")]


def test_a_single_run_has_no_report_of_its_crash(tool: Tool) -> None:
    assert not tool.judged(["--singleRun", *APP])
    write_settings(tool.program_dir, REPORTS)
    assert tool.judged(["--singleRun", *APP]) == [warning(1, "single-run")]
    assert not tool.judged(APP)


WATCHED = document([{"name": "x", "maxLoad": 50, "period": 5, "maxReports": 3}])


@pytest.mark.parametrize("settings", [
    {"WatchdogWatchProcessList.json": WATCHED},
    {"WatchdogMemoryReportingConf.json": document(True)},
    REPORTS,
])
def test_rotating_only_leaves_settings_aside(tool: Tool, settings: dict[str, Any]) -> None:
    assert not tool.judged(["--rotateOnly", *APP])
    write_settings(tool.program_dir, settings)
    assert tool.judged(["--rotateOnly", *APP]) == [warning(1, "rotate-only")]
    assert not tool.judged(APP)


@pytest.mark.parametrize("word, hint", [
    ("--logtime", 'did you mean "--logTime"?'),
    ("singleRun", 'did you mean "--singleRun"?'),
    ("--logfilename", 'did you mean "--logfileName"?'),
    ("--user=bob", 'the value of "--user" is an argument of its own'),
])
def test_what_was_meant_is_guessed(tool: Tool, word: str, hint: str) -> None:
    assert tool.findings([word, *APP])[0].message.endswith(hint)


GUARD = ("--app", "/usr/bin/pynx-watchdog-guard")


@pytest.mark.parametrize("arguments, found", [
    (["--timeout", "30", "--", "/bin/sh"], []),
    (["/bin/sh", "--timeout"], []),
    (["--timeout", "30", "--startup", "0", "--restart-on", "3,4", "/bin/sh"], []),
    (["--timeout", "soon", "--", "/bin/sh"], [error(3, "guard-usage")]),
    (["--grace", "1", "--timeou"], [error(5, "guard-usage")]),
    (["--timeout", "30", "--colour", "--", "/bin/sh"], [error(5, "guard-usage")]),
    (["--restart-on", "3,256", "--", "/bin/sh"], [error(3, "guard-usage")]),
    (["--timeout", "30", "--"], [error(5, "guard-usage")]),
    ([], [error(2, "guard-usage")]),
    (["--version"], [error(2, "guard-usage")]),
    (["--startup", "30", "--", "/bin/sh"], [warning(2, "guard-timeout")]),
])
def test_the_command_line_of_the_guard(tool: Tool, arguments: list[str],
                                       found: list[Short]) -> None:
    assert tool.judged([*GUARD, *arguments]) == found
    assert tool.judged(["--app", "/bin/another", *arguments]) == []


def test_the_guard_is_judged_as_it_judges_itself(tool: Tool, build_directory: Path) -> None:
    guard = build_directory / "pynx-watchdog-guard"
    for words in ("", "--grace x -- true", "--stack", "-x true"):
        wrong = words.split()
        said = subprocess.run([guard, *wrong], capture_output=True, text=True, check=False)
        assert said.returncode == 64
        reason = said.stderr.splitlines()[0].removeprefix("pynx-watchdog-guard: ")
        assert reason in tool.findings([*GUARD, *wrong])[0].message


def test_a_text_is_shown_whole_if_it_fits_on_a_line(tool: Tool) -> None:
    messages = [tool.findings(["x" * length, *APP])[0].message for length in (120, 121)]
    assert messages == [f'"{"x" * 120}" is no option and is ignored',
                        f'"{"x" * 120}..." is no option and is ignored']


def test_a_word_that_is_near_to_none_is_left_alone(tool: Tool) -> None:
    assert tool.findings(["stray", *APP])[0].message == '"stray" is no option and is ignored'


@pytest.mark.parametrize("arguments", [
    ["--app", "no-such-program"],
    ["--app", "/no/such/program"],
    ["--user", "no-such-account", *APP],
    ["--logfileName", "/no/such/directory/a.log", *SIZE, *APP],
])
def test_what_the_machine_has_is_the_boards(tool: Tool, arguments: list[str]) -> None:
    # A product is built on another machine than the one that it is for.
    assert not tool.judged(arguments)
    on_board = tool.run("--board", "--", *arguments).findings
    assert {"application", "account", "log-directory"} & {
        found.rule for found in on_board if found.file == "board"}
