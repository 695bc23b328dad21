# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The supervisor in simulated devices."""

from __future__ import annotations

import warnings
from collections.abc import Sequence
from pathlib import Path
from typing import Any

import pytest

from starting import ATTEMPTS, Start, missed_the_start_limit
from logs import LOG
from simulator.device import Device
from simulated_devices import DeviceFactory


@pytest.fixture
def sample(build_directory: Path) -> str:
    """The sample application's path, which is the same on the device."""
    return str(build_directory / "simulator" / "application" / "sample-application")


@pytest.fixture(scope="session")
def sanitized(build_directory: Path) -> bool:
    """Whether the supervisor is built with a sanitizer, which does not reuse freed memory."""
    return b"libasan.so" in (build_directory / "watchdog").read_bytes()


@pytest.fixture
def start(device: DeviceFactory, sample: str) -> Start:
    """start("exit", "5", options=["--rotateOnly"]): a running device that logs to LOG."""

    def make(*behaviours: str, options: Sequence[str] = (), log_size: str = "1M",
             application: Sequence[str] | None = None, **device_options: Any) -> Device:
        arguments = ["--logfileName", LOG, "--logfileSize", log_size, *options, "--app",
                     *(application or [sample, *behaviours])]
        for _ in range(ATTEMPTS - 1):
            running = device(arguments=arguments, **device_options)
            if not running.is_running or not missed_the_start_limit(running):
                return running
            warnings.warn("the application was not up within 500 ms: started again")
            running.stop()
        return device(arguments=arguments, **device_options)

    return make
