# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Prepares a device directory for the box: its directories, its settings and mount points."""

from __future__ import annotations

import json
import os
import shutil
from collections.abc import Iterator, Mapping
from dataclasses import replace
from pathlib import Path
from typing import Any

from simulator.common import SimulatorError, paths
from simulator.common.configuration import Bind, Configuration

_MODES = {"/tmp": 0o1777, paths.HOME: 0o755, paths.PROGRAM_DIRECTORY: 0o755}
_BOARD_TOOLS = Path(__file__).resolve().parents[1] / "packaging" / "board-tools"
_IN_PATH = ("reboot", "tar")
_OWN_PLACES = ("/dev", "/home/root", "/proc", "/run", "/tmp")


def is_replaced(path: str) -> bool:
    """Whether the box has its own file or directory at `path` in place of the host's."""
    return any(path == place or path.startswith(place + "/") for place in _OWN_PLACES)


def prepare(wanted: Configuration) -> Configuration:
    """Prepare the device directory; save the configuration with all binds there and return it."""
    if not os.access(wanted.program, os.X_OK) or wanted.program.is_dir():
        raise SimulatorError(f"the supervisor's program cannot be executed: {wanted.program}")
    binds = [*wanted.binds, Bind(str(wanted.program), paths.PROGRAM)]
    if wanted.packaged:
        binds += _package(wanted.program.parent)
    if wanted.checked:
        binds.append(Bind(str(_find_check(wanted.program.parent)), paths.CHECK))
    if wanted.watchdog_device:
        binds.append(Bind(str(_find_library(wanted)), paths.WATCHDOG_LIBRARY))
    configuration = replace(wanted, binds=binds + _binds_for(wanted.application, binds))
    for place, mode in _MODES.items():
        path = wanted.directory / paths.KEPT_DIRECTORIES[place]
        path.mkdir(parents=True, exist_ok=True)
        path.chmod(mode)
    for name in (paths.SUPERVISOR_STDOUT, paths.SUPERVISOR_STDERR):
        (wanted.directory / name).touch()
    _write_settings(wanted)
    configuration.save(wanted.directory / paths.CONFIGURATION)
    _make_mount_points(configuration)
    return configuration


def remove_mount_points(configuration: Configuration) -> None:
    """Remove the mount points that `prepare` has made, if they are still empty."""
    for _, point in _kept_mount_points(configuration):
        try:
            if point.is_file() and point.stat().st_size == 0:
                point.unlink()
            while point.parent != configuration.directory:
                if point.is_dir():
                    point.rmdir()
                point = point.parent
        except OSError:
            continue  # it is not empty, so it is more than a mount point


def _package(build: Path) -> list[Bind]:
    """The board tools and what they need, in the places that they have in a package."""
    version = build / "packaging" / "version"
    if not version.is_file():
        raise SimulatorError(f"the package's version is missing: {version}; build the project")
    binds = [Bind(str(version), f"{paths.PROGRAM_DIRECTORY}/version")]
    for tool in sorted(_BOARD_TOOLS.iterdir()):
        directory = paths.PROGRAM_TOOLS if tool.name in _IN_PATH else paths.PROGRAM_DIRECTORY
        binds.append(Bind(str(tool), f"{directory}/{tool.name}"))
    return binds


def _find_check(build: Path) -> Path:
    check = build / "pynx-watchdog-check"
    if not check.is_file():
        raise SimulatorError(f"the check is missing: {check}; build the project")
    return check.resolve()


def _find_library(wanted: Configuration) -> Path:
    library = Path(wanted.watchdog_library
                   or wanted.program.parent / "simulator" / "libwatchdogdevice.so")
    if not library.is_file():
        raise SimulatorError(f"the watchdog device's library is missing: {library}; build the "
                             "project, or name the library")
    return library.resolve()


def _binds_for(application: str, binds: list[Bind]) -> list[Bind]:
    """The binds that show an application for whose directory the box has one of its own.

    The files beside it are shown too, because it may need them, unless it lies directly in such a
    directory.
    """
    if not is_replaced(application) or not os.path.exists(application) or any(
            application == bind.target or application.startswith(bind.target + "/")
            for bind in binds):
        return []
    directory = os.path.dirname(application)
    return [Bind(application if directory in _OWN_PLACES else directory)]


def _write_settings(wanted: Configuration) -> None:
    target = wanted.directory / paths.KEPT_DIRECTORIES[paths.PROGRAM_DIRECTORY]
    factory = {document.name: document.read_bytes()
               for document in (wanted.program.parent / "settings-default").glob("*.json")}
    _write_documents(target / "settings-default", {**factory, **wanted.settings_default})
    if wanted.settings is not None:
        _write_documents(target / "settings", wanted.settings)
    (target / "settings").mkdir(exist_ok=True)


def _write_documents(directory: Path, documents: Mapping[str, Any]) -> None:
    shutil.rmtree(directory, ignore_errors=True)
    directory.mkdir(parents=True)
    for name, content in documents.items():
        if content is not None:
            data = content if isinstance(content, bytes) else json.dumps(content).encode()
            (directory / name).write_bytes(data)


def _make_mount_points(configuration: Configuration) -> None:
    """Make the files and directories in the device directory on which the box mounts others."""
    for bind, point in _kept_mount_points(configuration):
        is_directory = os.path.isdir(bind.source)
        try:
            (point if is_directory else point.parent).mkdir(parents=True, exist_ok=True)
            if not is_directory:
                point.touch()
        except OSError as error:
            raise SimulatorError(f"cannot make room for {bind.source} in the device directory: "
                                 f"{error.strerror}") from error


def _kept_mount_points(configuration: Configuration) -> Iterator[tuple[Bind, Path]]:
    for bind in configuration.binds:
        for place, name in paths.KEPT_DIRECTORIES.items():
            if bind.target.startswith(place + "/"):
                yield bind, configuration.directory / name / bind.target[len(place) + 1:]
