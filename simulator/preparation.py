# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Makes a device directory ready for the board: its places, its settings, what is shown in it."""

from __future__ import annotations

import json
import os
import shutil
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import Any

from simulator import paths, root
from simulator.configuration import PROGRAM_DIRECTORY, Bind

_MODES = {"/tmp": 0o1777, "/home/root": 0o755, PROGRAM_DIRECTORY: 0o755}


def make_places(directory: Path) -> None:
    """Make the directories and files that every board has."""
    for place, mode in _MODES.items():
        path = directory / paths.KEPT_DIRECTORIES[place]
        path.mkdir(parents=True, exist_ok=True)
        path.chmod(mode)
    for name in (paths.SUPERVISOR_STDOUT, paths.SUPERVISOR_STDERR):
        (directory / name).touch()


def write_settings(directory: Path, program: Path, settings: Mapping[str, Any] | None,
                   changes: Mapping[str, Any]) -> None:
    """Write the documents beside the board's program: the factory's with `changes`, and `settings`.

    Bytes are written as they are, None stands for no document, all else is written as JSON. What an
    earlier life of the device has as settings is kept when there are none to replace it.
    """
    target = directory / paths.KEPT_DIRECTORIES[PROGRAM_DIRECTORY]
    factory = _documents(program.parent / "settings-default")
    _write_documents(target / "settings-default", {**factory, **changes})
    if settings is not None:
        _write_documents(target / "settings", settings)
    (target / "settings").mkdir(exist_ok=True)


def _documents(directory: Path) -> dict[str, bytes]:
    if not directory.is_dir():
        return {}
    return {entry.name: entry.read_bytes() for entry in directory.glob("*.json")}


def _write_documents(directory: Path, documents: Mapping[str, Any]) -> None:
    shutil.rmtree(directory, ignore_errors=True)
    directory.mkdir(parents=True)
    for name, content in documents.items():
        if content is not None:
            data = content if isinstance(content, bytes) else json.dumps(content).encode()
            (directory / name).write_bytes(data)


def binds_for(application: str, binds: Sequence[Bind]) -> list[Bind]:
    """What makes an application visible that lies where the box has its own directory.

    It comes with its neighbours, which it may need, unless it lies directly in that directory.
    """
    if not root.is_replaced(application) or any(
            application == bind.target or application.startswith(bind.target + "/")
            for bind in binds):
        return []
    directory = os.path.dirname(application)
    return [Bind(application if root.is_own_place(directory) else directory)]
