# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Runs the simulation that the command line of ./simulate describes, and shows it."""

from __future__ import annotations

import argparse
import os
import shlex
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path
from types import FrameType

from simulator import Device, Event, SimulatorError
from simulator.cli import options as command_line
from simulator.cli.display import Display, summarise
from simulator.cli.follow import ArchiveFollower, LogFollower
from simulator.common import account, paths
from simulator.boxes import is_in_use

_READER = Path(__file__).resolve().parents[2] / "tools/evidence/pynx-watchdog-evidence"
_LOOKS_APART = 0.25
_FALLBACK = 3
_FAILED = 125
_STARTED_TOO_LATE = "Error occured during process startup, code: 2"


def main(arguments: list[str]) -> int:
    """Run the simulation that the command line describes; returns the exit status."""
    options = command_line.parse(arguments)
    try:
        _prepare_directory(options.device.directory, options.keep)
        return _simulate(options, Display(sys.stdout), _Interrupt())
    except SimulatorError as error:
        print(f"simulate: {error}", file=sys.stderr)
    except BrokenPipeError:
        # The reader of the output has closed it. Python would fail to write the rest when it ends.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 0
    except OSError as error:
        print(f"simulate: {error.filename}: {error.strerror}", file=sys.stderr)
    return _FAILED


class _Interrupt:
    """Notes Ctrl-C and similar signals, so that the simulation ends with its summary."""

    def __init__(self) -> None:
        self.came = False
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, self._note)

    def _note(self, number: int, frame: FrameType | None) -> None:
        self.came = True


def _simulate(options: argparse.Namespace, display: Display, interrupt: _Interrupt) -> int:
    device: Device = options.device
    _introduce(options, display)
    log_path = os.path.join("/", options.logfileName or command_line.DEFAULT_LOG)
    follower = LogFollower(lambda: device.open(log_path))
    archives = ArchiveFollower(device.directory)
    try:
        device.start()
        end = _watch(device, follower, archives, display, interrupt, options.seconds)
        _show_files(follower, archives, display)
    finally:
        device.stop()
        follower.close()
    for event in device.wait_for_news(0):
        display.show(event)
    display.text("")
    for line in summarise(device.events(), device.boot_state, device.directory):
        display.text(line)
    if options.page:
        display.text(f"Page: {_write_page(device.directory)}")
    return _exit_status(end)


def _watch(device: Device, follower: LogFollower, archives: ArchiveFollower, display: Display,
           interrupt: _Interrupt, seconds: float | None) -> Event | None:
    """Show what happens; returns the event that ended the simulation, None if interrupted."""
    limit = None if seconds is None else time.monotonic() + seconds
    while not interrupt.came and (limit is None or time.monotonic() < limit):
        news = device.wait_for_news(_LOOKS_APART)
        for event in news:
            display.show(event)
        _show_files(follower, archives, display)
        for event in news:
            if event.get("end"):
                _explain(event, device, display)
                return event
    return None


def _explain(end: Event, device: Device, display: Display) -> None:
    if end["end"] == "supervisor" and device.events(account.SYSTEM_LOG, _STARTED_TOO_LATE):
        display.text("Note: the application was not up within 500 ms, and at the first start that "
                     "ends the supervisor. This machine may just be too busy: try again.")


def _show_files(follower: LogFollower, archives: ArchiveFollower, display: Display) -> None:
    display.show_log(*follower.poll())
    for archive in archives.poll():
        display.show_archive(archive)


def _introduce(options: argparse.Namespace, display: Display) -> None:
    display.text(f"Application: {shlex.join(options.application)}")
    display.text(f"Device directory: {options.device.directory} (its /tmp is tmp/ there)")
    for bind in options.binds:
        display.text(f"Shown to the application, read-only: {bind.source}")
    if options.user is not None and os.geteuid() != 0:
        display.text("Note: an ordinary user's simulator has one account only; --user will fail to "
                     "switch, as it does for a supervisor without rights.")
    display.text("Ctrl-C ends the simulation.\n")


def _write_page(directory: Path) -> Path:
    """Write the page of a device; returns where it is."""
    page = directory / "page.html"
    page.unlink(missing_ok=True)  # of an earlier run, if the device was kept
    command = [sys.executable, str(_READER), "--html", str(page), str(directory)]
    if subprocess.run(command, check=False).returncode != 0:
        raise SimulatorError(f"the page could not be written: {page}")
    return page


def _exit_status(end: Event | None) -> int:
    if end is None or end["end"] == "boots":
        return 0
    if end["end"] == "fallback":
        return _FALLBACK
    status = int(end["status"])
    return status if status >= 0 else 128 - status


def _prepare_directory(directory: Path, keep: bool) -> None:
    """Make room for a new device and keep the last one; leave other directories alone."""
    if not directory.exists():
        directory.mkdir(parents=True)
    elif not any(directory.iterdir()):
        return
    elif not (directory / paths.CONFIGURATION).exists():
        raise SimulatorError(f"{directory} holds something else than a simulated device; it was "
                             "left as it is. Name another directory with --device-dir")
    elif not keep:
        _move_aside(directory)


def _move_aside(directory: Path) -> None:
    if is_in_use(directory):
        raise SimulatorError(f"another simulated device is running in {directory}")
    old = directory.with_name(directory.name + ".old")
    if old.exists():
        if not (old / paths.CONFIGURATION).exists():
            raise SimulatorError(f"{old} is in the way and holds something else than a simulated "
                                 "device; it was left as it is")
        shutil.rmtree(old)
    directory.rename(old)
    directory.mkdir()


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
