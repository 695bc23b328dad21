# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What `pynx-watchdog-check --explain` foretells, the supervisor does.

tests/check/test_comparison.py compares many more cases, with the functions of the program alone.
"""

from __future__ import annotations

import json
import pwd
import re
import signal
import subprocess
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import Any

import pytest

from starting import Start
from logs import LOG, OLD_LOG, content
from marks import AS_ROOT, GUARD_IS_STARTED
from settings import document, log_sizes, reporting, watch_list
from simulator import Device, wait_until
from simulated_devices import DeviceFactory

Foretell = Callable[[Device, Sequence[str]], dict[str, Any]]

LARGEST_PIECE = 64 * 1024
FLOOD = ["flood", "400000", "100", "wait"]


@pytest.fixture
def foretell(build_directory: Path) -> Foretell:
    """foretell(device, arguments): the values that the tool explains, by their settings."""

    def make(running: Device, arguments: Sequence[str]) -> dict[str, Any]:
        done = subprocess.run(
            [build_directory / "pynx-watchdog-check", "--json", "--explain", "--program-dir",
             running.host_path("/supervisor"), "--", *arguments], capture_output=True, check=False)
        assert done.returncode in (0, 1)
        lines = map(json.loads, done.stdout.splitlines())
        return {line["setting"]: line["value"] for line in lines if "setting" in line}
    return make


def started_with(options: Sequence[str] = ()) -> list[str]:
    """The arguments of a supervisor that the fixture `start` has started with these options."""
    return ["--logfileName", LOG, "--logfileSize", "1M", *options, "--app", "/bin/true"]


@pytest.mark.parametrize("options", [
    ["--logfileSize", "8k"],
    ["--logfileSize", "81920"],
    ["--logfileSize", "1M", "--logfileSizeConf", "small"],
    ["--logfileSizeConf", "unknown"],
])
def test_the_size_at_which_the_log_is_rotated(start: Start, foretell: Foretell,
                                              options: list[str]) -> None:
    options = ["--rotateOnly", *options]
    running = start(*FLOOD, options=options, settings=log_sizes(small="8k", default="16k"))
    size = foretell(running, started_with(options))["log size"]
    path = running.host_path(OLD_LOG)
    wait_until(path.exists, "the log is rotated")
    assert size <= path.stat().st_size < size + LARGEST_PIECE


def test_without_a_size_there_is_no_log(start: Start, foretell: Foretell) -> None:
    options = ["--rotateOnly", "--singleRun", "--logfileSizeConf", "unknown"]
    running = start("print", "shown\\n", options=options,
                    settings=log_sizes(known="4k", fits=False))
    assert running.wait_supervisor_exit() == 0
    assert foretell(running, started_with(options))["log size"] == 0
    assert not running.host_path(LOG).exists()


@pytest.mark.parametrize("option", ["--logTime", "--logtime"])
def test_lines_with_the_time(start: Start, foretell: Foretell, option: str) -> None:
    options = ["--rotateOnly", option]
    running = start("print", "the end\\n", "wait", options=options)
    wait_until(lambda: b"the end" in content(running), "the output")
    explained = foretell(running, started_with(options))
    assert explained["log time"] == (b"-- Time: " in content(running))


@pytest.mark.parametrize("option", ["--singleRun", "singleRun"])
def test_a_single_run(start: Start, foretell: Foretell, option: str) -> None:
    running = start("exit", "3", options=["--rotateOnly", option])
    explained = foretell(running, started_with(["--rotateOnly", option]))
    if explained["single run"]:
        assert running.wait_supervisor_exit() == 3
    else:
        running.wait_for("system log", "Restarting process", count=2)


@GUARD_IS_STARTED
def test_the_application_and_its_arguments(device: DeviceFactory, foretell: Foretell,
                                           sample: str) -> None:
    arguments = ["stray", "--rotateOnly", "--singleRun", "--app", sample, "arguments", "--user",
                 "", "a b", "--app", "x"]
    running = device(arguments=arguments)
    explained = foretell(running, arguments)
    assert running.wait_supervisor_exit() == 0
    assert explained["application"] == sample
    assert f"Starting app: {sample} \n".encode() in running.stdout
    printed = re.findall("argument: (.*)\n", running.stdout.decode())
    assert ["arguments", *printed] == explained["application arguments"]


@AS_ROOT
@pytest.mark.parametrize("options", [["--user", "daemon"], ["--user", "daemon", "--user", "nobody"],
                                     ["--User", "daemon"]])
def test_the_account(start: Start, foretell: Foretell, options: list[str]) -> None:
    running = start("identity", options=["--rotateOnly", "--singleRun", *options])
    assert running.wait_supervisor_exit() == 0
    account = foretell(running, started_with(options))["account"]
    assert f"\nuid {pwd.getpwnam(account or 'root').pw_uid} ".encode() in content(running)


def test_the_watch_list(start: Start, foretell: Foretell) -> None:
    settings = watch_list(
        {"name": "burner", "maxLoad": "0", "period": 2.0, "maxReports": "2"},
        {"name": "absent", "arguments": ["-d", 5, True], "maxLoad": 1, "maxReports": 9},
        {"name": "a-name-of-16-byt", "maxLoad": 0.5, "period": None, "maxReports": 1e99},
        fits=False)
    running = start("name", "burner", "burn", "1", "50", "wait", settings=settings)
    explained = foretell(running, started_with())
    assert explained["watch list"] == 3
    header = (f"cpu load is : {explained['watch 1 maxLoad']} for "
              f"{explained['watch 1 period']} seconds").encode()

    def missed(number: int) -> bytes:
        names = ",".join(explained[f"watch {number} arguments"])
        return (f"Process {explained[f'watch {number} name']} with args [{names}] doesn't appear "
                "for 30 seconds\n").encode()
    # Nearly all of the alarms that are allowed are written before the absences are told.
    wait_until(lambda: missed(2) in content(running) and missed(3) in content(running),
               "the absences are told", timeout=120)
    assert content(running).count(header) == explained["watch 1 maxReports"]


@pytest.mark.parametrize("settings", [
    reporting([LOG, "/tmp/log/none"], "/tmp/elsewhere", "device-7"),
    {**reporting([LOG], "/tmp/elsewhere", "device-7"),
     "WatchdogAutomaticReporting.json": document("yes"),
     "WatchdogAutomaticReportingConf.json": b"{ \"value\": , }"},
])
def test_the_place_and_the_files_of_an_archive(start: Start, foretell: Foretell,
                                               settings: dict[str, Any]) -> None:
    script = "sleep 1; echo '==Report==asked'; exec sleep 600"
    running = start(application=["/bin/sh", "-c", script], settings=settings)
    explained = foretell(running, started_with())
    assert explained["reports"] is True
    directory = running.host_path(explained["upload path"])
    pattern = f"{explained['upload prefix']}-asked-*.tar.gz"
    archive = wait_until(lambda: list(directory.glob(pattern)), "an archive")[0]
    listed = subprocess.run(["tar", "tzf", archive], capture_output=True, check=True).stdout
    assert {"/" + name for name in listed.decode().splitlines()} == {
        name for name in explained["report files"] if running.host_path(name).exists()}


@GUARD_IS_STARTED
@pytest.mark.parametrize("arguments, status", [
    (["--logfileSize", "", "--app", "/bin/true"], -signal.SIGABRT),
    (["--logfileSizeConf", "empty", "--app", "/bin/true"], -signal.SIGABRT),
    (["--logTime"], 1),
    (["--singleRun", "--app", ""], 1),
    ([], 1),
])
def test_a_supervisor_that_cannot_start(device: DeviceFactory, foretell: Foretell,
                                        arguments: list[str], status: int) -> None:
    running = device(arguments=arguments, settings=log_sizes(empty="", fits=False))
    assert running.wait_supervisor_exit() == status
    explained = foretell(running, arguments)
    assert next(iter(explained.items())) == ("start", False)
