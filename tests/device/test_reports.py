# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The report after a crash, packed by the board's own tar and gzip."""

from __future__ import annotations

import io
import re
import tarfile

import pytest

from board import LOG, SAMPLE, Board, NewBoard, supervise
from simulator import wait_until

_UPLOAD = "/var/upload"
_SNAPSHOTS = "/tmp/log/system"


def _content(archive: tarfile.TarFile, name: str) -> bytes:
    file = archive.extractfile(name)
    assert file
    return file.read()


@pytest.mark.takes(60)
class TestCrashReport:
    """Reports are on; the application is killed by a signal."""

    @pytest.fixture(scope="class")
    def board(self, new_board: NewBoard) -> Board:
        return new_board(
            supervise(SAMPLE, "print", "alive\\n", "wait"),
            settings={"WatchdogAutomaticReporting": True,
                      "WatchdogAutomaticReportingConf": {"uploadPath": _UPLOAD,
                                                         "uploadFilePrefix": "report"},
                      "SystemManagerLogReportConfig": {"files": [LOG, LOG + ".0"]}})

    @pytest.fixture(scope="class")
    def archive(self, board: Board) -> tarfile.TarFile:
        # Not before half a minute of uptime: until then a named report is dropped as too early.
        wait_until(lambda: float(board.check("cut -d' ' -f1 /proc/uptime")) > 31
                   and board.run(f"test -s {_SNAPSHOTS}").status == 0, "a snapshot", 120)
        board.check(f"kill -SEGV {board.application()}")
        board.journal.wait_for("Restarting process: exit code:11, exist status:1")
        name = wait_until(lambda: board.run(f"ls {_UPLOAD} | grep -v tmp_").text, "an archive")
        assert re.fullmatch(r"report-main-\d+\.tar\.gz", name)
        return tarfile.open(fileobj=io.BytesIO(board.read(f"{_UPLOAD}/{name}")), mode="r:gz")

    def test_it_holds_the_log_and_the_copy_of_the_snapshots(self, archive: tarfile.TarFile) -> None:
        assert sorted(archive.getnames()) == sorted([LOG[1:], _SNAPSHOTS[1:] + ".load"])

    def test_the_copy_is_what_the_real_top_and_free_wrote(self, archive: tarfile.TarFile,
                                                          board: Board) -> None:
        copy = _content(archive, _SNAPSHOTS[1:] + ".load")
        assert copy == board.read(_SNAPSHOTS + ".load")
        text = copy.decode()
        assert re.match(r"top - \d\d:\d\d:\d\d up .*load average: ", text)
        assert re.search(r"^ +PID USER .*COMMAND$", text, re.MULTILINE)
        assert re.search(r"^Mem: +\d+ +\d+", text, re.MULTILINE)
        snapshots = text.count("top - ")
        assert 1 <= snapshots <= 3
        assert all(len(line) <= 115 for line in text.splitlines())

    def test_the_log_in_it_ends_with_the_run_that_crashed(self, archive: tarfile.TarFile) -> None:
        assert b"alive\n" in _content(archive, LOG[1:])

    def test_the_upload_directory_lets_others_remove_the_report(self, archive: tarfile.TarFile,
                                                                board: Board) -> None:
        assert board.check(f"stat -c %a {_UPLOAD}")[-1] in "2367"
        assert board.run(f"ls {_UPLOAD} | grep tmp_").status != 0
