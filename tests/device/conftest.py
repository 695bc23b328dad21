# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Runs the real package on emulated boards, one for each test."""

from __future__ import annotations

import fcntl
import json
import shutil
from collections.abc import Iterator
from dataclasses import asdict
from pathlib import Path
from typing import Any

import pytest

import images as image_files
from account import KINDS, compare_with_evidence
from emulated_board import EMULATOR, EmulatedBoard, Images, NewBoard, supervise
from evidence.facts import Compared
from scripts.arm64_packages import ToolError

_RECORDS = image_files.PROJECT / "build" / "device"
_BOARD = pytest.StashKey[EmulatedBoard]()
_PASSED = pytest.StashKey[bool]()
_TAIL_LINES = 40
_COMPARED = "compared.json"


def pytest_addoption(parser: pytest.Parser) -> None:
    """--package: a package that was built before, instead of one built for the run."""
    parser.addoption("--package", type=Path, metavar="DEB",
                     help="the supervisor's package for arm64 (default: built from the sources)")


def pytest_configure(config: pytest.Config) -> None:
    """Remove the records of the last run."""
    if hasattr(config, "workerinput"):
        return
    package = config.getoption("--package")
    if package is not None and not package.is_file():
        raise pytest.UsageError(f"there is no package {package}")
    if shutil.which(EMULATOR) is None:
        raise pytest.UsageError(f"{EMULATOR} is missing; scripts/install-dependencies device "
                                "installs it")
    shutil.rmtree(_RECORDS, ignore_errors=True)
    _RECORDS.mkdir(parents=True)


@pytest.fixture(scope="session")
def images(pytestconfig: pytest.Config, tmp_path_factory: pytest.TempPathFactory) -> Any:
    """The images that boards boot from, built once for all processes of the run."""
    shared = tmp_path_factory.getbasetemp()
    if hasattr(pytestconfig, "workerinput"):
        shared = shared.parent
    record = shared / "device-images.json"
    with (shared / "device-images.lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not record.exists():
            record.write_text(json.dumps(_build(pytestconfig)), encoding="utf-8")
    answer = json.loads(record.read_text(encoding="utf-8"))
    if "error" in answer:
        pytest.fail(answer["error"], pytrace=False)
    return Images(**{name: Path(path) for name, path in answer.items()})


def _build(config: pytest.Config) -> dict[str, str]:
    try:
        built = image_files.build(_RECORDS, config.getoption("--package"))
    except ToolError as error:
        return {"error": f"no board can be built: {error}"}
    return {name: str(path) for name, path in asdict(built).items()}


@pytest.fixture
def new_emulated_board(request: pytest.FixtureRequest, images: Any) -> Iterator[NewBoard]:
    """Switches on the test's only board, whose records are in build/device/<test>."""
    made: list[EmulatedBoard] = []

    def make(arguments: list[str] | None = None, *, wait: bool = True,
             **options: Any) -> EmulatedBoard:
        assert not made, "a test has one board"
        directory = _RECORDS / request.node.name
        directory.mkdir(parents=True)
        board = EmulatedBoard(directory, images, supervise() if arguments is None else arguments,
                              **options)
        made.append(board)
        request.node.stash[_BOARD] = board
        board.start()
        if wait:
            board.wait_until_up()
        return board

    yield make
    for board in made:
        try:
            if request.node.stash.get(_PASSED, False) \
                    and not request.node.get_closest_marker("leaves_no_evidence"):
                _compare_with_evidence(request.node.name, board)
        finally:
            board.discard()


def _compare_with_evidence(test: str, board: EmulatedBoard) -> None:
    compared = compare_with_evidence(test, board)
    (board.directory / _COMPARED).write_text(json.dumps(vars(compared)), encoding="utf-8")
    differences = [f"missed: {text}" for text in compared.missed] \
        + [f"wrong: {text}" for text in compared.wrong]
    if differences:
        pytest.fail("pynx-watchdog-evidence tells something else than what has happened:\n"
                    + "\n".join(differences), pytrace=False)


def pytest_terminal_summary(terminalreporter: Any) -> None:
    """Show how the evidence of all boards compares with what has happened."""
    total = Compared()
    for record in _RECORDS.glob(f"*/{_COMPARED}"):
        total.add(Compared(**json.loads(record.read_text(encoding="utf-8"))))
    terminalreporter.write_line(total.table(KINDS))


@pytest.hookimpl(hookwrapper=True)  # type: ignore[misc]
def pytest_runtest_makereport(item: pytest.Item) -> Iterator[None]:
    """Show the end of the board's records with a failed test, and where the records are."""
    outcome = yield
    report = outcome.get_result()  # type: ignore[attr-defined]
    if report.when == "call":
        item.stash[_PASSED] = report.passed
    board = item.stash.get(_BOARD, None)
    if report.failed and board is not None:
        for name, record in (("console.log", board.console), ("journal", board.journal)):
            lines = record.text().splitlines()[-_TAIL_LINES:]
            report.sections.append((f"the board's {name}", "\n".join(lines)))
        report.sections.append(("all records of the board", str(board.directory)))
