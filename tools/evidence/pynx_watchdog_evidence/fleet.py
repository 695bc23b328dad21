# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Reads the archives of many devices, each for itself, and files that lie beside them."""

from __future__ import annotations

import itertools
import json
import os
import sys
import tarfile
import time
import zlib
from collections.abc import Callable, Iterable
from dataclasses import dataclass, field
from pathlib import Path
from typing import TextIO

from . import sources
from .archives import Member
from .incidents import UNKNOWN
from .join import Complain
from .reports import Report, Row, Rows, read_report
from .spread import Pool
from .store import Store

MOST_TOGETHER = 100  # archives of one device that are joined to one story
PROGRESS = 0.2  # seconds between two figures on the terminal


@dataclass
class Fleet:
    """The paths of files, sorted into those that are read together."""

    archives: list[str] = field(default_factory=list)
    others: dict[str, list[str]] = field(default_factory=dict)  # by the directory they belong to

    def has_others_than(self, failed: Iterable[Path]) -> bool:
        """Whether there are files besides those that failed. A log fails with its older half."""
        names = {os.path.realpath(path) for path in failed}
        return any(not names.intersection((file, file.removesuffix(".0")))
                   for file in itertools.chain(self.archives, *self.others.values()))

    def is_one_story(self) -> bool:
        """Whether it is as little as of one device, so that it is better told as one story."""
        if len(self.archives) > MOST_TOGETHER:
            return False
        return len({_device(archive) for archive in self.archives} - {None}) < 2


def fleet_of(paths: Iterable[Path]) -> Fleet:
    """The files at `paths`, which can be directories."""
    files = sorted({os.path.realpath(file) for path in paths for file in sources.find(path)})
    simulated = {os.path.dirname(file) for file in files
                 if os.path.basename(file) == sources.ACCOUNT}
    fleet = Fleet()
    for file in files:
        if sources.is_archive(Path(file)):
            fleet.archives.append(file)
        else:
            # What a simulated device has written lies below its account.
            owner = next((str(parent) for parent in Path(file).parents
                          if str(parent) in simulated), os.path.dirname(file))
            fleet.others.setdefault(owner, []).append(file)
    return fleet


def _device(archive: str) -> str | None:
    """The device that an archive is of; None if its first member is no manifest that tells it."""
    try:
        with tarfile.open(archive, "r|gz", tarinfo=Member) as tar:
            first = tar.next()
            content = tar.extractfile(first) if first and first.name == "manifest.json" else None
            found = json.loads(content.read(sources.LARGEST_SMALL)) if content else None
    except (tarfile.TarError, EOFError, OSError, zlib.error, ValueError, RecursionError):
        return None
    return str(found["machine"]) if isinstance(found, dict) and found.get("machine") else None


def read_fleet(fleet: Fleet, store: Store, pool: Pool, complain: Complain, rows: Rows,
               take: Callable[[Row], None]) -> int:
    """Read a fleet into the store, and let `take` have the rows of its events that are new.

    Returns how many reports could be read. Raises Failed.
    """
    def lost(job: tuple[str, list[str], Rows], reason: str) -> Report:
        return Report(job[0], complaints=[(job[0], reason)])

    found = 0
    with Progress(len(fleet.archives) + len(fleet.others)) as progress:
        jobs = (((archive, [archive], rows) for archive in fleet.archives),
                ((owner, files, rows) for owner, files in fleet.others.items()))
        # Files beside archives come after them, because only archives tell of which device.
        for kind in jobs:
            for report in pool.results(read_report, kind, lost):
                progress.step()
                if report.problem:
                    report.complaints.append((report.path, f"not whole: {report.problem}"))
                for path, reason in report.complaints:
                    progress.clear()
                    complain(Path(path), reason)
                if report.name is None and report.found == 0:
                    continue  # no evidence
                if report.device == UNKNOWN:
                    report.device = store.device_below(report.path) or UNKNOWN
                for row in store.add(report):
                    take(row)
                found += 1
    return found


class Progress:
    """Says on a terminal how much is done. Says nothing where standard error is no terminal."""

    def __init__(self, total: int, terminal: TextIO = sys.stderr) -> None:
        self._total = total
        self._done = 0
        self._terminal = terminal if terminal.isatty() else None
        self._said_at = 0.0

    def __enter__(self) -> Progress:
        return self

    def __exit__(self, *_: object) -> None:
        self.clear()

    def step(self) -> None:
        """One more is done."""
        self._done += 1
        if self._terminal and time.monotonic() - self._said_at >= PROGRESS:
            self._said_at = time.monotonic()
            print(f"\r\033[K{self._done:,} of {self._total:,} read", end="", file=self._terminal,
                  flush=True)

    def clear(self) -> None:
        """Make room for another text."""
        if self._terminal:
            print("\r\033[K", end="", file=self._terminal, flush=True)
