# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The command line, and the end of a supervisor that cannot start."""

from __future__ import annotations

import signal

from starting import Start
from logs import LOG, OLD_LOG, content
from settings import log_sizes
from simulator import Device, wait_until
from simulated_devices import DeviceFactory

USAGE = (
    b"Usage: watchdog executable [args] --app <app> [appargs]\n"
    b"args:\n"
    b"\t--logfileName absolute or relative path where the logs will be stored\n"
    b"\t--logfileSize maximal size of log file, "
    b"size can be postfixed with 'k' for kB or 'M' for MB\n"
    b"\t--logfileSizeConf name of the configuration read from settings\n"
    b"\t--logTime add current time in front of new line, if time in seconds changed\n"
    b"\t--rotateOnly do not handle hw watchdog, system usage and reports\n"
    b"\t--singleRun do not restart app on finish\n"
    b"\t--user run application as the specified user\n"
    b"app: name or path to executed application\n"
    b"appargs: arguments for executed application\n"
)

START_FAILURE = "Error occured during process startup, code: 0"


def test_without_arguments_it_prints_the_usage_and_ends_with_1(device: DeviceFactory) -> None:
    running = device()
    assert running.wait_supervisor_exit() == 1
    assert running.stderr == USAGE
    assert running.stdout == b""


def test_without_application_it_prints_nothing_and_logs_the_failed_start(
        device: DeviceFactory) -> None:
    running = device(arguments=["--singleRun"])
    assert running.wait_supervisor_exit() == 1
    assert running.stderr == b""
    entry = running.wait_for("system log", START_FAILURE)
    assert (entry["priority"], entry["ident"]) == ("err", "pynx_watchdog")


def test_what_follows_the_application_belongs_to_it(start: Start) -> None:
    running = start("arguments", "--singleRun", "-v", "--app", options=["--rotateOnly"])
    # The supervisor is not in single-run mode, so it starts the application again.
    running.wait_for("system log", "Restarting process", count=2)
    assert b"argument: --singleRun\nargument: -v\nargument: --app\n" in content(running)


def test_an_empty_size_aborts_the_program(device: DeviceFactory, sample: str) -> None:
    running = device(arguments=["--logfileSize", "", "--app", sample, "wait"])
    assert running.wait_supervisor_exit() == -signal.SIGABRT
    assert b"ASSERT" in running.stderr


def rotated_size(running: Device) -> int:
    """The size of the log at its first rotation."""
    path = running.host_path(OLD_LOG)
    wait_until(path.exists, "the log is rotated")
    return path.stat().st_size


def test_the_size_may_come_from_the_settings(start: Start) -> None:
    running = start("flood", "8000", "100", "wait", log_size="1M",
                    options=["--rotateOnly", "--logfileSizeConf", "small"],
                    settings=log_sizes(small="4k", default="1M"))
    assert 4096 <= rotated_size(running) < 1 << 20


def test_the_later_size_wins(start: Start) -> None:
    running = start("flood", "8000", "100", "print", "end\\n", "wait", log_size="1k",
                    options=["--logfileSizeConf", "small", "--rotateOnly", "--logfileSize", "1M"],
                    settings=log_sizes(small="4k", fits=False))
    wait_until(lambda: content(running).endswith(b"end\n"), "all is in the log")
    assert not running.host_path(OLD_LOG).exists()


def test_the_factory_settings_serve_where_the_site_has_none(start: Start) -> None:
    running = start("flood", "8000", "100", "wait", log_size="1M",
                    options=["--rotateOnly", "--logfileSizeConf", "unknown"],
                    settings={"SystemManagerLogFilesSizeConfig.json": b"not JSON"},
                    settings_default=log_sizes(default="4k"))
    assert 4096 <= rotated_size(running) < 1 << 20


def test_no_size_anywhere_means_no_log_file(start: Start) -> None:
    running = start("print", "shown\\n",
                    options=["--rotateOnly", "--singleRun", "--logfileSizeConf", "unknown"],
                    settings_default=log_sizes(known="4k", fits=False))
    assert running.wait_supervisor_exit() == 0
    assert not running.host_path(LOG).exists()
    assert b"shown\n" in running.stdout
