# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Simulated devices for pytest: the fixture `device`, and the build that is tested."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path
from typing import Any, Protocol

import pytest

from simulator.device import Device

_ROOT = Path(__file__).resolve().parents[1]
_DEVICES = pytest.StashKey[list[Device]]()


class DeviceFactory(Protocol):
    """Makes a device in a directory of the test and switches it on, unless told not to."""

    def __call__(self, program: Path | str | None = None, arguments: Any = (), *,
                 start: bool = True, **options: Any) -> Device: ...


def pytest_addoption(parser: pytest.Parser) -> None:
    """--build-dir: the build tree of the programs under test."""
    parser.addoption("--build-dir", default="build/debug", metavar="DIR",
                     help="build tree of the programs under test (default: %(default)s)")
    parser.addoption("--guarded", action="store_true",
                     help="put pynx-watchdog-guard between the supervisor and the application")


def pytest_collection_modifyitems(config: pytest.Config, items: list[pytest.Item]) -> None:
    """Leave out what the guard changes."""
    if config.getoption("--guarded"):
        for item in items:
            if changed := item.get_closest_marker("unlike_guarded"):
                item.add_marker(pytest.mark.skip(changed.args[0]))


@pytest.fixture(scope="session")
def build_directory(pytestconfig: pytest.Config) -> Path:
    """The build tree of the programs under test."""
    directory = _ROOT / str(pytestconfig.getoption("--build-dir"))
    if not (directory / "simulator" / "libwatchdogdevice.so").exists():
        pytest.exit(f"{directory} holds no build of this project: build it first, or name another "
                    "with --build-dir", returncode=4)
    return directory


@pytest.fixture
def device(request: pytest.FixtureRequest, tmp_path: Path,
           build_directory: Path) -> Iterator[DeviceFactory]:
    """A factory of devices: device(program, arguments, **parameters of `Device`).

    Without a program, the supervisor of the build runs. All devices are switched off after the
    test. The test fails if a process or a mount of a device is left.
    """
    made: list[Device] = []
    request.node.stash[_DEVICES] = made
    guard = [str(build_directory / "pynx-watchdog-guard"), "--"] \
        if request.config.getoption("--guarded") else []

    def make(program: Path | str | None = None, arguments: Any = (), *, start: bool = True,
             **options: Any) -> Device:
        options.setdefault("directory", tmp_path / f"device-{len(made) + 1}")
        options.setdefault("watchdog_library",
                           build_directory / "simulator" / "libwatchdogdevice.so")
        arguments = list(arguments)
        if "--app" in arguments:
            application = arguments.index("--app") + 1
            arguments[application:application] = guard
        running = Device(program or build_directory / "watchdog", arguments=arguments, **options)
        made.append(running)
        if start:
            running.start()
        return running

    yield make
    remains: list[str] = []
    for running in made:
        running.stop()
        if running.trace is not None:
            remains += running.trace.remains()
            running.trace.close()
    assert not remains, f"a device has left something behind: {remains}"


@pytest.hookimpl(hookwrapper=True)  # type: ignore[misc]
def pytest_runtest_makereport(item: pytest.Item) -> Iterator[None]:
    """Show the accounts of the devices with a failed test."""
    outcome = yield
    report = outcome.get_result()  # type: ignore[attr-defined]
    if report.when == "call" and report.failed:
        for running in item.stash.get(_DEVICES, []):
            report.sections.append((f"account of {running.directory}", running.tail()))
