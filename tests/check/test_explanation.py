# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""pynx-watchdog-check --explain: how it is told. test_comparison.py compares what is told."""

from __future__ import annotations

import os
import resource
from pathlib import Path
from typing import Any

import pytest

from checked import Check, Tool, document, write_settings

ARGUMENTS = ["--logfileName", "/tmp/a.log", "--logfileSizeConf", "product", "--user", "nobody",
             "--app", "/bin/sh", "-c", "exit 3"]

SETTINGS = {
    "SystemManagerLogFilesSizeConfig.json": document({"product": "2M", "broken": ""}),
    "WatchdogMemoryReportingConf.json": document(True),
    "WatchdogAutomaticReporting.json": document(True),
    "SystemManagerLogReportConfig.json": document({"files": ["/tmp/a.log", "/tmp/a.log.0"]}),
    "WatchdogAutomaticReportingConf.json": document(
        {"uploadPath": "/tmp/upload", "uploadFilePrefix": "device"}),
    "WatchdogWatchProcessList.json": document([
        {"name": "decoder", "arguments": ["--live"], "maxLoad": 25, "period": 5,
         "threadInfo": True, "maxReports": 10},
        {"name": "player"}]),
}

OF_SETTINGS = """\
memory line: true
    a line about the memory in the log every 3 minutes [WatchdogMemoryReportingConf.json]
reports: true
    an archive when the application asks for one, and after a crash \
[WatchdogAutomaticReporting.json]
report files: ["/tmp/a.log","/tmp/a.log.0"]
    those of them that exist are in every archive [SystemManagerLogReportConfig.json]
upload path: "/tmp/upload"
    directory of the archives; made, writable for everybody, where it is missing \
[WatchdogAutomaticReportingConf.json]
upload prefix: "device"
    archives are called "device-NAME-MILLISECONDS.tar.gz" [WatchdogAutomaticReportingConf.json]
watch list: 2
    processes whose load is watched [WatchdogWatchProcessList.json]
watch 1 name: "decoder"
    the first process of this name; a line in the log when there is none for 30 s \
[WatchdogWatchProcessList.json]
watch 1 arguments: ["--live"]
    with all of these among its arguments [WatchdogWatchProcessList.json]
watch 1 maxLoad: 25
    seconds at or over 25 % of all processors together count [WatchdogWatchProcessList.json]
watch 1 period: 5
    an alarm after 5 such seconds in a row [WatchdogWatchProcessList.json]
watch 1 threadInfo: true
    an alarm lists the five busiest threads [WatchdogWatchProcessList.json]
watch 1 maxReports: 10
    at most 10 alarms in the supervisor's life [WatchdogWatchProcessList.json]
watch 1 logFile: ""
    not used [default]
watch 2 name: "player"
    the first process of this name; a line in the log when there is none for 30 s \
[WatchdogWatchProcessList.json]
watch 2 arguments: []
    with any arguments [default]
watch 2 maxLoad: 0
    seconds at or over 0 % of all processors together count [default]
watch 2 period: 0
    an alarm every second, whatever the load [default]
watch 2 threadInfo: false
    an alarm lists no threads [default]
watch 2 maxReports: 0
    no alarm is ever written [default]
watch 2 logFile: ""
    not used [default]
"""

OF_ARGUMENTS = """\
application: "/bin/sh"
    is kept running [arguments:7]
application arguments: ["-c","exit 3"]
    are handed to the application as they are [arguments:7]
account: "nobody"
    the application runs in this account; where it is unknown, in the supervisor's own [arguments:5]
log file: "/tmp/a.log"
    is continued where it exists; at the limit it becomes "/tmp/a.log.0" [arguments:1]
log size: 2097152
    bytes, as in SystemManagerLogFilesSizeConfig.json; log and .0 take twice as much, and 64 KiB, \
at most [arguments:3]
log time: false
    no lines with the time [default]
single run: false
    the application is started again 1 s after each end [default]
rotate only: false
    the board is looked after [default]
"""

FIXED = """\
reboot: 3
    at the application's third end, the board is rebooted [fixed]
hardware watchdog: 30
    seconds without a feed until it resets the board; it is fed every 10 s [fixed]
snapshots: 10
    seconds between two; /tmp/log/system has the last three [fixed]
boot flags: 10
    seconds that the application must run until they are cleared [fixed]
"""

SIZES = """\
sizes: {"broken":null,"product":2097152}
    bytes for each name that --logfileSizeConf takes; null ends the supervisor \
[SystemManagerLogFilesSizeConfig.json]
"""


@pytest.fixture
def tool(check: Check, tmp_path: Path) -> Tool:
    """The tool with the settings of the test."""
    write_settings(tmp_path, SETTINGS)
    return Tool(check, tmp_path)


def explanation(tool: Tool, *arguments: str) -> str:
    """What is printed behind the findings, without the directory of the documents."""
    text = tool.run("--explain", *arguments).text
    lines = text.replace(f"{tool.program_dir}/settings/", "").splitlines(keepends=True)
    first = next(number for number, line in enumerate(lines)
                 if line.startswith("    ")) - 1
    return "".join(lines[first:])


def test_all_that_the_supervisor_will_do(tool: Tool) -> None:
    assert explanation(tool, "--", *ARGUMENTS) == OF_ARGUMENTS + OF_SETTINGS + FIXED


def test_without_arguments_the_settings_alone(tool: Tool) -> None:
    assert explanation(tool) == OF_SETTINGS + SIZES


def test_rotating_only_reads_no_settings(tool: Tool) -> None:
    explained = tool.explained(["--rotateOnly", "--app", "/bin/sh"])
    assert list(explained) == ["application", "application arguments", "account", "log file",
                               "log size", "log time", "single run", "rotate only"]


def test_a_single_run_has_no_third_end_and_no_report_of_its_crash(tool: Tool) -> None:
    explained = tool.explained(["--singleRun", "--app", "/bin/sh"])
    assert "reboot" not in explained
    assert "crash" not in explained["reports"]["meaning"]


def test_what_the_guard_will_do(tool: Tool) -> None:
    def told(*arguments: str) -> dict[str, Any]:
        found = tool.explained(["--app", "/usr/bin/pynx-watchdog-guard", *arguments])
        return {name.removeprefix("guard "): (each["value"], each["source"])
                for name, each in found.items() if name.startswith("guard ")}

    source = "arguments:1"
    assert told("--timeout", "30", "--restart-on", "4,3", "--", "/bin/sh", "-c", "exit") == {
        "application": ("/bin/sh", source), "timeout": (30, source), "startup": (30, source),
        "grace": (5, source), "stacks": ("/tmp/log", source), "restart on": ([3, 4], source)}
    assert told("--startup", "9", "--timeout", "3", "--stacks", "", "x")["startup"] == (9, source)
    assert told("--timeout") == {}


@pytest.mark.parametrize("arguments, meaning", [
    ([], "without arguments the supervisor prints its usage and ends with status 1"),
    (["--logTime"], "without an application the supervisor ends with status 1"),
    (["--logfileSize", "", "--app", "/bin/sh"],
     "an empty size ends the supervisor with a failed assertion"),
    (["--logfileSizeConf", "broken", "--app", "/bin/sh"],
     "an empty size ends the supervisor with a failed assertion"),
])
def test_an_end_at_the_start_is_told_first(tool: Tool, arguments: list[str],
                                           meaning: str) -> None:
    text = explanation(tool, "--", *arguments)
    assert text.startswith(f"start: false\n    {meaning} [arguments]\n")
    assert "memory line: true\n" in text


@pytest.mark.parametrize("arguments, setting, source", [
    (["--user", "a", "--user", "b"], "account", "arguments:3"),
    (["--logfileSize", "1k", "--logfileSizeConf", "product"], "log size", "arguments:3"),
    (["--logfileSizeConf", "product", "--logfileSize", "1k"], "log size", "arguments:3"),
    (["--logTime", "stray", "--logTime"], "log time", "arguments:3"),
    (["--logfileName", "--logTime"], "log time", "default"),
    (["--logtime"], "log time", "default"),
])
def test_the_last_of_several_arguments_is_the_source(tool: Tool, arguments: list[str],
                                                     setting: str, source: str) -> None:
    explained = tool.explained([*arguments, "--app", "/bin/sh", "--user", "c", "--logTime"])
    assert explained[setting]["source"] == source


def test_where_no_document_counts_the_default_does(tool: Tool) -> None:
    for name in SETTINGS:
        (tool.program_dir / "settings" / name).write_text("{", encoding="utf-8")
    explained = tool.explained()
    assert {each["source"] for each in explained.values()} == {"default"}
    assert [each["value"] for each in explained.values()] == [False, False, [], "", "", 0, {}]


def test_a_directory_in_the_place_of_a_document_counts_as_none(tool: Tool) -> None:
    name = "WatchdogMemoryReportingConf.json"
    (tool.program_dir / "settings" / name).unlink()
    (tool.program_dir / "settings" / name).mkdir()
    write_settings(tool.program_dir, {name: document(True)}, "settings-default")
    line = tool.explained()["memory line"]
    assert (line["value"], Path(line["source"]).parent.name) == (True, "settings-default")


def test_strange_texts_stay_on_their_line(tool: Tool) -> None:
    write_settings(tool.program_dir, {"WatchdogAutomaticReportingConf.json": document(
        {"uploadPath": "/tmp/\n\x1b[31m", "uploadFilePrefix": "a\nnext"})})
    text = tool.run("--explain", "--", "--logfileName", "a\nnext", "\x1b\n", "--app",
                    "x\nnext").text
    assert "\x1b" not in text
    assert "\nnext" not in text


# ---- Documents that are better not read

@pytest.mark.parametrize("name", SETTINGS)
@pytest.mark.parametrize("kind", ["pipe", "device", "huge"])
def test_what_cannot_be_read_is_not_known(tool: Tool, name: str, kind: str) -> None:
    path = tool.program_dir / "settings" / name
    path.unlink()
    if kind == "pipe":
        os.mkfifo(path)
    elif kind == "device":
        path.symlink_to("/dev/zero")
    else:
        with path.open("wb") as file:
            file.truncate(100 << 20)
    unknown = [each for each in tool.explained().values() if each["value"] is None]
    assert {each["source"] for each in unknown} == {str(path)}
    for switch in ("--rotateOnly", "--singleRun", "--logTime"):
        arguments = [switch, "--logfileName", "/tmp/a.log", "--logfileSizeConf", "product",
                     "--app", "/bin/sh"]
        tool.run("--explain", "--", *arguments)
        tool.run("--board", "--", *arguments)
    assert resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss < 200 * 1024
