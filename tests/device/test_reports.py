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
_REQUESTS = 60

# Prints ten lines a second. From the 31st second after the boot on, because earlier requests are
# refused, it asks for an archive every three seconds, but not before the log shows that the last
# request was taken: of two requests in one piece of output the second is lost. When it is told to,
# it takes all memory that it can get.
_PRINTING = f"""\
$| = 1;
sub taken {{
    open my $log, '<', '{_LOG}';
    seek $log, -s $log > 4000 ? -4000 : 0, -s $log > 4000 ? 2 : 0;
    local $/;
    return <$log> =~ /==Report==request$_[0]\\n/;
}}
for (my $line = 0, my $asked = 0; ; $line++) {{
    open my $uptime, '<', '/proc/uptime';
    if ($line % 30 == 0 && <$uptime> > 31 && $asked < {_REQUESTS}
            && (!$asked || taken($asked))) {{
        printf "==Report==request%d\\n", ++$asked;
    }} else {{
        print "line $line\\n";
    }}
    while (-e '/run/leak') {{ $all .= 'x' x (1 << 20); }}
    select undef, undef, undef, 0.1;
}}
"""

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


_MEMORY_LIMIT = {"etc/systemd/system/pynx-watchdog.service.d/memory.conf": """\
[Service]
MemoryMax=256M
MemorySwapMax=0
"""}


def _finished(board: EmulatedBoard) -> list[str]:
    return board.run(f"ls {_UPLOAD} | grep '^report-.*gz$'").text.split()


def _members(board: EmulatedBoard, archive: str) -> dict[str, bytes]:
    """The files of an archive, which has to be whole."""
    board.check(f"cp {_UPLOAD}/{archive} /host/archive")
    with tarfile.open(board.host / "archive") as opened:
        return {member.name: opened.extractfile(member).read()  # type: ignore[union-attr]
                for member in opened if member.isfile()}


@pytest.mark.takes(300)
def test_every_report_arrives_and_an_end_for_lack_of_memory_is_reported_too(
        new_emulated_board: NewBoard) -> None:
    board = new_emulated_board(
        supervise("/usr/bin/perl", _APPLICATION, log=_LOG), systemd=True, settings=_REPORTING,
        variables={"ARCHIVES_MAX_NUMBER": str(_REQUESTS + 10), "ARCHIVES_MAX_WAIT": "3000"},
        files={_APPLICATION: _PRINTING, **_MEMORY_LIMIT})
    # The board itself looks, and seldom, because a command from here costs it much time.
    board.check(f"until [ $(ls {_UPLOAD} | grep -c '^report-.*gz$') -ge {_REQUESTS} ]; "
                "do sleep 3; done", timeout=1800)
    archives = _finished(board)
    names = {archive.split("-")[1] for archive in archives}
    assert names == {f"request{number}" for number in range(1, _REQUESTS + 1)}
    for archive in archives:
        members = _members(board, archive)
        assert json.loads(members["manifest.json"])
        assert members[_LOG.lstrip("/")]
    assert board.run(f"ls -A {_UPLOAD} | grep -v '^report-'").text == ""

    application = board.application("/usr/bin/perl")
    board.check("touch /run/leak")
    wait_until(lambda: board.run("journalctl --boot --dmesg | grep 'Killed process'").text,
               "the kernel's message", 120)
    board.check("rm /run/leak")
    assert board.application("/usr/bin/perl", unlike=application)
    crash = wait_until(lambda: next((name for name in _finished(board)
                                     if name.startswith("report-main-")), None),
                       "the report of the crash", 600)
    manifest = _members(board, crash)["manifest.json"].decode()
    assert "exit code:9, exist status:1" in manifest
    assert board.check("systemctl is-active pynx-watchdog") == "active"
    assert board.hardware() == []


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
