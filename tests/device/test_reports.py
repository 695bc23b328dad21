# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Archives on a board with systemd and the package's board tools."""

from __future__ import annotations

import json
import tarfile

import pytest

from emulated_board import EmulatedBoard, NewBoard, supervise
from simulator import wait_until

_LOG = "/tmp/log/application.log"
_UPLOAD = "/tmp/upload"
_REPORTING = {"WatchdogAutomaticReporting": True}
_APPLICATION = "/usr/lib/application"

# Runs without root's rights. It asks for a file that it cannot read itself, and leaves links under
# each name that the temporary file of the second archive may get.
_UNPRIVILEGED = f"""\
$| = 1;
print "running as $>\\n";
do {{ sleep 1; open $uptime, '<', '/proc/uptime' }} while <$uptime> < 31;
print "==Report file:/etc/shadow==shadow\\n";
do {{ sleep 1; open $log, '<', '{_LOG}' }} until join('', <$log>) =~ /==shadow/; # it was taken
print "==Report==link\\n";
my $now = 1000 * time;
symlink '/home/root/planted', "{_UPLOAD}/tmp_report-link-$_" for $now + 3000 .. $now + 13000;
print "the links are there\\n";
sleep 1 while 1;
"""


def _finished(board: EmulatedBoard) -> list[str]:
    return board.run(f"ls {_UPLOAD} | grep '^report-.*gz$'").text.split()


def _members(board: EmulatedBoard, archive: str) -> dict[str, bytes]:
    """The files of an archive, which has to be whole."""
    board.check(f"cp {_UPLOAD}/{archive} /host/archive")
    with tarfile.open(board.host / "archive") as opened:
        return {member.name: opened.extractfile(member).read()  # type: ignore[union-attr]
                for member in opened if member.isfile()}


@pytest.mark.takes(90)
def test_an_application_without_rights_gets_none_through_reports(
        new_emulated_board: NewBoard) -> None:
    board = new_emulated_board(
        ["--user", "pynx", *supervise("/usr/bin/perl", _APPLICATION, log=_LOG)], systemd=True,
        settings=_REPORTING, files={_APPLICATION: _UNPRIVILEGED})
    wait_until(lambda: len(_finished(board)) >= 2, "both archives", 600)
    log = board.read(_LOG).decode()
    assert "running as 1000\n" in log and "the links are there\n" in log
    for archive in _finished(board):
        members = _members(board, archive)
        assert "etc/shadow" not in members
        assert not any(board.read("/etc/shadow") in content for content in members.values())
        refused = json.loads(members["manifest.json"])["refused"]
        assert "/etc/shadow" in json.dumps(refused)
    assert board.run("ls /home/root/planted").status != 0
