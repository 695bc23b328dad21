# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The real package on emulated boards. The tests of a class share one board, in their order."""

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
from board import EMULATOR, Board, Measured, NewBoard, supervise
from scripts.arm64_packages import ToolError

_RECORDS = image_files.PROJECT / "build" / "device"
_RESULTS = _RECORDS / "results"
_BOARD = pytest.StashKey[Board]()
_TAIL_LINES = 40


def pytest_addoption(parser: pytest.Parser) -> None:
    """--package: a ready package instead of one built for the run."""
    parser.addoption("--package", type=Path, metavar="DEB",
                     help="the supervisor's package for arm64 (default: built from the sources)")


def pytest_configure(config: pytest.Config) -> None:
    """A run begins without the records of the last."""
    if hasattr(config, "workerinput"):
        return
    package = config.getoption("--package")
    if package is not None and not package.is_file():
        raise pytest.UsageError(f"there is no package {package}")
    if shutil.which(EMULATOR) is None:
        raise pytest.UsageError(f"{EMULATOR} is missing; scripts/install-dependencies device "
                                "installs it")
    shutil.rmtree(_RECORDS, ignore_errors=True)
    _RESULTS.mkdir(parents=True)


@pytest.fixture(scope="session")
def images(pytestconfig: pytest.Config, tmp_path_factory: pytest.TempPathFactory) -> Any:
    """What boards boot from, built once for all processes of the run."""
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
    return image_files.Images(**{name: Path(path) for name, path in answer.items()})


def _build(config: pytest.Config) -> dict[str, str]:
    try:
        built = image_files.build(_RECORDS, config.getoption("--package"))
    except ToolError as error:
        return {"error": f"no board can be built: {error}"}
    return {name: str(path) for name, path in asdict(built).items()}


@pytest.fixture(scope="class")
def new_board(request: pytest.FixtureRequest, images: Any) -> Iterator[NewBoard]:
    """A factory of the class's one board, whose records are in build/device/<class>."""
    made: list[Board] = []

    def make(arguments: list[str] | None = None, *, wait: bool = True, **options: Any) -> Board:
        assert not made, "a class of tests has one board"
        directory = _RECORDS / request.cls.__name__
        directory.mkdir(parents=True)
        board = Board(directory, images, arguments or supervise(), **options)
        made.append(board)
        request.node.stash[_BOARD] = board
        board.start()
        if wait:
            board.wait_until_up()
        return board

    yield make
    for board in made:
        board.discard()


@pytest.fixture
def measured(request: pytest.FixtureRequest) -> Measured:
    """measured("longest feed gap", "10.1 s"): a line in the run's results."""
    def note(what: str, value: str) -> None:
        with (_RESULTS / request.cls.__name__).open("a", encoding="utf-8") as file:
            file.write(f"{what}: {value}\n")

    return note


@pytest.hookimpl(hookwrapper=True)  # type: ignore[misc]
def pytest_runtest_makereport(item: pytest.Item) -> Iterator[None]:
    """Show with a failed test the end of its board's records, and where they are."""
    outcome = yield
    report = outcome.get_result()  # type: ignore[attr-defined]
    scope = item.getparent(pytest.Class)
    board = scope.stash.get(_BOARD, None) if scope else None
    if report.failed and board is not None:
        for name, record in (("console.log", board.console), ("journal", board.journal)):
            lines = record.text().splitlines()[-_TAIL_LINES:]
            report.sections.append((f"the board's {name}", "\n".join(lines)))
        report.sections.append(("all records of the board", str(board.directory)))


def pytest_terminal_summary(terminalreporter: Any) -> None:
    """What was measured, and the file that holds it."""
    results = [line for file in sorted(_RESULTS.glob("*"))
               for line in file.read_text(encoding="utf-8").splitlines()]
    if results:
        summary = _RECORDS / "results.txt"
        summary.write_text("".join(f"{line}\n" for line in results), encoding="utf-8")
        terminalreporter.section("measured on the boards")
        for line in results:
            terminalreporter.write_line(line)
        terminalreporter.write_line(f"(also in {summary})")
