# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What every benchmark does first: it installs what is missing and builds what it measures."""

from __future__ import annotations

import os
import pathlib
import subprocess
import sys
from typing import NoReturn

PROJECT = pathlib.Path(__file__).resolve().parents[1]
PRESET = "release"
BUILD = PROJECT / "build" / PRESET
SAMPLE = BUILD / "simulator/application/sample-application"


def fail(message: object) -> NoReturn:
    """Ends the benchmark with a message that begins with its name."""
    sys.exit(f"{pathlib.Path(sys.argv[0]).name}: {message}")


def build(*targets: str) -> None:
    """Installs missing packages and builds targets of the release preset, or fails."""
    if subprocess.call([PROJECT / "scripts/install-dependencies", "simulate", "bench"]) != 0:
        fail("what it needs is not there")
    for command in (["cmake", "--preset", PRESET, "-DWATCHDOG_BENCH=ON"],
                    ["cmake", "--build", "--preset", PRESET, "--parallel", str(os.cpu_count()),
                     "--target", *targets]):
        done = subprocess.run(command, cwd=PROJECT, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
        if done.returncode != 0:
            print(done.stdout, file=sys.stderr)
            fail(f"{' '.join(command)} failed; what it said is above")
