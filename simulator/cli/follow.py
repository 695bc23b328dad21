# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Follows what the supervisor writes: the lines of the log and the archives."""

from __future__ import annotations

import functools
import io
import json
import os
import tarfile
import time
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from simulator.common import paths

LINES_AT_A_TIME = 30  # an alarm over three seconds with its threads has 25 lines
_UPLOAD_SETTINGS = "WatchdogAutomaticReportingConf.json"


class LogFollower:
    """Finds the new lines of a log, at most LINES_AT_A_TIME at a time.

    The file may grow, be rotated or not exist yet. `open_file` opens the present file and raises
    OSError while there is none.
    """

    def __init__(self, open_file: Callable[[], io.BufferedReader]) -> None:
        self._open_file = open_file
        self._file: io.BufferedReader | None = None
        self._rest = b""

    def poll(self) -> tuple[list[str], int]:
        """The new lines to show, and the number of further new lines."""
        lines = self._read_on()
        try:
            current = self._open_file()
        except OSError:
            current = None
        if current is not None and self._is_other(current):
            # The old file may have grown between the read above and its rotation.
            lines += self._read_on()
            lines += [self._rest] if self._rest else []
            self._rest = b""
            self.close()
            self._file = current
            lines += self._read_on()
        elif current is not None:
            current.close()
        shown = [line.decode("utf-8", "backslashreplace") for line in lines[:LINES_AT_A_TIME]]
        return shown, len(lines) - len(shown)

    def close(self) -> None:
        """Stop following."""
        if self._file is not None:
            self._file.close()
            self._file = None

    def _is_other(self, current: io.BufferedReader) -> bool:
        return self._file is None or not os.path.samestat(
            os.fstat(current.fileno()), os.fstat(self._file.fileno()))

    def _read_on(self) -> list[bytes]:
        if self._file is None:
            return []
        if os.fstat(self._file.fileno()).st_size < self._file.tell():
            self._file.seek(0)  # the file was emptied
        *lines, self._rest = (self._rest + self._file.read()).split(b"\n")
        return lines


@dataclass(frozen=True)
class Archive:
    """An archive, as it lies on the host."""

    path: Path
    size: int
    contents: Sequence[str]
    """A line for each member, or one line that says why the archive cannot be read."""


class ArchiveFollower:
    """Finds the archives that the device in `directory` finishes from now on."""

    def __init__(self, directory: Path) -> None:
        self._directory = directory
        self._since = time.time()
        self._known: set[Path] = set()

    def poll(self) -> list[Archive]:
        """The archives that were finished since the last call, the oldest first."""
        new = [path for path in self._finished() if path not in self._known]
        self._known.update(new)
        dated = sorted((path.stat().st_mtime, path) for path in new)
        return [Archive(path, path.stat().st_size, _contents(path))
                for modified, path in dated if modified >= self._since]

    def _finished(self) -> list[Path]:
        # The supervisor packs under another name, so a file with this name is complete.
        return [] if self._upload is None else list(self._upload.glob("*.tar.gz"))

    @functools.cached_property
    def _upload(self) -> Path | None:
        return _upload_directory(self._directory)  # the settings are written when the device starts


def _upload_directory(directory: Path) -> Path | None:
    """The host's path of the upload directory in the settings; None if the host has none."""
    upload = _upload_path(directory / paths.KEPT_DIRECTORIES["/supervisor"])
    for place, name in paths.KEPT_DIRECTORIES.items():
        if upload.startswith(place + "/"):
            return directory / name / upload[len(place) + 1:]
    return None


def _upload_path(program_directory: Path) -> str:
    for settings in ("settings", "settings-default"):
        try:
            document = json.loads((program_directory / settings / _UPLOAD_SETTINGS).read_bytes())
            value: dict[str, Any] = document["value"]
            return str(value[value["type"]]["uploadPath"])
        except (OSError, ValueError, KeyError, TypeError):
            continue  # like the supervisor, ignores a document without a value
    return ""


def _contents(path: Path) -> list[str]:
    try:
        with tarfile.open(path, mode="r:gz") as archive:
            members = [f"{member.name} ({member.size} bytes)" for member in archive]
            return members or ["(no members)"]
    except (OSError, EOFError, tarfile.TarError) as error:
        return [f"cannot be read: {error}"]
