# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The report archives of a board: which are new, and what each holds."""

from __future__ import annotations

import functools
import json
import tarfile
import time
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from simulator import paths

_UPLOAD_SETTINGS = "WatchdogAutomaticReportingConf.json"


@dataclass(frozen=True)
class Archive:
    """A finished archive, as it lies on the host."""

    path: Path
    size: int
    contents: Sequence[str]
    """A line for each member, or one that says why there is none to be read."""


class ArchiveFollower:
    """Finds the archives that the device in `directory` finishes from here on."""

    def __init__(self, directory: Path) -> None:
        self._directory = directory
        self._since = time.time()
        self._known: set[Path] = set()

    def poll(self) -> list[Archive]:
        """The archives that have been finished since the last look, oldest first."""
        new = [path for path in self._finished() if path not in self._known]
        self._known.update(new)
        dated = sorted((path.stat().st_mtime, path) for path in new)
        return [Archive(path, path.stat().st_size, _contents(path))
                for modified, path in dated if modified >= self._since]

    def _finished(self) -> list[Path]:
        # The supervisor packs under another name, so that whatever has this one is whole.
        return [] if self._upload is None else list(self._upload.glob("*.tar.gz"))

    @functools.cached_property
    def _upload(self) -> Path | None:
        return _upload_directory(self._directory)  # written when the device is started


def _upload_directory(directory: Path) -> Path | None:
    """Where the host sees the upload directory that the settings name; None where it does not."""
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
            continue  # as for the supervisor, a document that says nothing is none
    return ""


def _contents(path: Path) -> list[str]:
    try:
        with tarfile.open(path, mode="r:gz") as archive:
            members = [f"{member.name} ({member.size} bytes)" for member in archive]
            return members or ["(no members)"]
    except (OSError, EOFError, tarfile.TarError) as error:
        return [f"cannot be read: {error}"]
