# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Runs pynx-watchdog-guard with the application of its tests."""

from __future__ import annotations

import os
import re
import signal
import subprocess
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from guarded_stacks import Thread, threads_of

TIME_LIMIT = 120  # seconds, after which a run counts as hanging

_MARKER = re.compile(r"==Report file:(.*)==(hang|crash)")


@dataclass
class Ended:
    """How a run of the guard ended, and what came out of it."""

    status: int  # negative: by this signal
    output: list[str]
    errors: list[str]

    @property
    def end(self) -> str:
        """The guard's last line, without what differs from run to run."""
        return re.sub(r"after \d+ s, peak \d+ kB", "after N s, peak N kB", self.errors[-1])

    @property
    def told(self) -> list[str]:
        """The guard's lines before its last one."""
        return [line for line in self.errors[:-1] if line.startswith("guard: ")]

    @property
    def reports(self) -> list[tuple[Path, str]]:
        """The reports that the guard asked for: file and name."""
        found = [_MARKER.fullmatch(line) for line in self.output]
        return [(Path(each[1]), each[2]) for each in found if each]

    @property
    def stacks(self) -> str:
        """The text of the only file of stacks."""
        (file, _), = self.reports
        return file.read_text(encoding="utf-8")

    @property
    def threads(self) -> list[Thread]:
        """The threads in it, in its order."""
        return threads_of(self.stacks)


class Running:
    """A guard that runs."""

    def __init__(self, command: list[str], **options: Any) -> None:
        self.process = subprocess.Popen(  # pylint: disable=consider-using-with
            command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            bufsize=0, **options)

    def line(self) -> str:
        """Wait for the next line on standard output."""
        assert self.process.stdout
        line: bytes = self.process.stdout.readline()
        return line.decode().rstrip("\n")

    def error_line(self) -> str:
        """Wait for the next line on standard error."""
        assert self.process.stderr
        line: bytes = self.process.stderr.readline()
        return line.decode().rstrip("\n")

    def child(self) -> int:
        """The application's process id."""
        pid = self.process.pid
        return int(Path(f"/proc/{pid}/task/{pid}/children").read_text("ascii"))

    def send(self, number: signal.Signals) -> None:
        """Send the guard a signal."""
        os.kill(self.process.pid, number)

    def end(self) -> Ended:
        """Close standard input and wait for the end."""
        output, errors = self.process.communicate(timeout=TIME_LIMIT)
        return Ended(self.process.returncode, output.decode().splitlines(),
                     errors.decode().splitlines())


@dataclass
class Guard:
    """The guard and its application, of a build; stacks go to a directory of the test."""

    program: Path
    application: Path
    directory: Path

    def command(self, *behaviours: str, options: tuple[str, ...] = ()) -> list[str]:
        """The command line for an application with these behaviours."""
        return [str(self.program), "--stacks", str(self.directory), *options, "--",
                str(self.application), *behaviours]

    def start(self, *behaviours: str, options: tuple[str, ...] = (), **more: Any) -> Running:
        """Start it."""
        return Running(self.command(*behaviours, options=options), **more)

    def run(self, *behaviours: str, options: tuple[str, ...] = (), **more: Any) -> Ended:
        """Run it to its end."""
        return self.start(*behaviours, options=options, **more).end()
