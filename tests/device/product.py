# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What is tested: the supervisor's package for arm64, and the sample application beside it."""

from __future__ import annotations

import subprocess
from dataclasses import dataclass
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent.parent

_COMPILER = "aarch64-linux-gnu-g++"


class ProductError(Exception):
    """The product cannot be built."""


@dataclass(frozen=True)
class Product:
    """Files for the board's root."""

    package: Path
    application: Path


def build(directory: Path, package: Path | None = None) -> Product:
    """Build the application in `directory`, and the package unless a ready one is given.

    Raises ProductError.
    """
    return Product(package or _build_package(), _build_application(directory))


def _build_package() -> Path:
    _run([str(PROJECT / "scripts/build-packages"), "arm64"])
    found = sorted((PROJECT / "build/packages").glob("pynx-watchdog_*_arm64.deb"))
    if len(found) != 1:
        raise ProductError(f"one package for arm64 is expected in build/packages, not {len(found)}")
    return found[0]


def _build_application(directory: Path) -> Path:
    sources = PROJECT / "simulator/application"
    application = directory / "sample-application"
    _run([_COMPILER, "-std=c++17", "-O2", "-pthread", *map(str, sorted(sources.glob("*.cpp"))),
          "-o", str(application)])
    return application


def _run(command: list[str]) -> None:
    try:
        result = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True,
                                encoding="utf-8", errors="replace", check=False)
    except FileNotFoundError as error:
        raise ProductError(f"{command[0]} is missing; scripts/install-dependencies device "
                           "installs it") from error
    if result.returncode != 0:
        raise ProductError(f"{' '.join(command)}:\n{result.stdout[-2000:]}{result.stderr[-2000:]}")
