# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""From a marker in the application's output, or a crash, to an archive in the upload directory.

tst_reporter.cpp tests the calls of tar and what follows from their results.
"""

from __future__ import annotations

import gzip
import re
import signal
import tarfile
import time
from collections.abc import Sequence
from pathlib import Path
from typing import Any

import pytest

from starting import Start
from logs import LOG, complaints, content
from marks import GUARD_REPORTS_THE_CRASH
from settings import reporting
from simulator import Bind, Device, wait_until

UPLOAD = "/tmp/upload"
SNAPSHOTS = "/tmp/log/system"
NAME = re.compile(r"report-(?P<name>.*)-(?P<time>\d{13})\.tar\.gz")


def uploads(running: Device) -> list[re.Match[str]]:
    """The names of the archives, matched by NAME, the oldest first."""
    names = (NAME.fullmatch(path.name) for path in running.host_path(UPLOAD).glob("*.tar.gz"))
    return sorted(filter(None, names), key=written_at)


def written_at(name: re.Match[str]) -> int:
    """The time of the archive in its name, in milliseconds."""
    return int(name["time"])


def archive(running: Device, name: str) -> dict[str, bytes]:
    """Waits for an archive with this name part; returns the content of its members."""
    found = wait_until(lambda: [upload for upload in uploads(running) if upload["name"] == name],
                       f"an archive named {name}")[0]
    members = {}
    with tarfile.open(running.host_path(f"{UPLOAD}/{found.string}"), mode="r:gz") as packed:
        for member in packed.getmembers():
            assert member.isfile(), f"{member.name} is no file"
            file = packed.extractfile(member)
            assert file
            members["/" + member.name] = file.read()
    return members


def test_a_marker_makes_an_archive_of_its_file_and_the_configured_ones(start: Start) -> None:
    script = ("until [ -e /tmp/link ]; do sleep 0.02; done; "
              "echo '==Report file:/tmp/link==Größe voll!'; exec sleep 600")
    running = start(application=["/bin/sh", "-c", script],
                    settings=reporting([LOG, "/nowhere/at/all"]),
                    environment={"LC_ALL": "C.UTF-8"})
    running.host_path("/tmp/target").write_text("what the application wanted to show")
    asked = time.time()
    running.host_path("/tmp/link").symlink_to("/tmp/target")
    members = archive(running, "Größe_voll_")
    assert members.keys() == {LOG, "/tmp/link"}
    assert members["/tmp/link"] == b"what the application wanted to show"
    # The log is flushed before the request, so it has the marker.
    assert "==Report file:/tmp/link==Größe voll!\n".encode() in members[LOG]
    assert complaints(running) == b""
    # The archive is begun five seconds after the marker. A coarse timer may be 5 % early, and a
    # busy machine late.
    assert 5 * 0.95 <= written_at(uploads(running)[0]) / 1000 - asked < 30


def test_every_start_of_the_application_has_reports_of_its_own(start: Start) -> None:
    running = start("print", "==Report==again\\n", "sleep", "1", "exit", "0",
                    settings=reporting([LOG]), tools={"reboot": "return"})
    wait_until(lambda: len(uploads(running)) >= 2, "an archive of each of two runs")
    first, second = map(written_at, uploads(running)[:2])
    assert second - first < 30_000


@GUARD_REPORTS_THE_CRASH
def test_a_crash_makes_a_report_with_the_frozen_snapshot(start: Start) -> None:
    running = start("sleep", "12", "signal", str(int(signal.SIGSEGV)), settings=reporting([LOG]))
    members = archive(running, "main")
    assert members.keys() == {LOG, "/tmp/log/system.load"}
    assert b"top - " in members["/tmp/log/system.load"]
    assert b"exist status:1" not in members[LOG]  # only the system log has it
    assert running.wait_for("system log", "Restarting process: exit code:11, exist status:1")


@GUARD_REPORTS_THE_CRASH
def test_a_crash_before_the_first_snapshot_has_the_configured_files_alone(start: Start) -> None:
    running = start("print", "soon\\n", "sleep", "1", "signal", str(int(signal.SIGSEGV)),
                    settings=reporting([LOG]), tools={"reboot": "return"})
    assert archive(running, "main").keys() == {LOG}


def test_a_crash_in_single_run_mode_keeps_its_snapshot(start: Start) -> None:
    script = f"until [ -e {SNAPSHOTS} ]; do sleep 0.02; done; kill -SEGV $$"
    running = start(application=["/bin/sh", "-c", script], options=["--singleRun"],
                    settings=reporting([LOG]), watchdog_device=False)
    running.host_path(SNAPSHOTS).touch()
    assert running.wait_supervisor_exit() == signal.SIGSEGV
    assert running.host_path(SNAPSHOTS + ".load").exists()


def test_a_normal_exit_makes_no_report(start: Start) -> None:
    running = start("exit", "5", settings=reporting([LOG]), tools={"reboot": "return"})
    running.wait_for("system log", "Restarting process", count=8)  # longer than a report's delay
    assert list(running.host_path(UPLOAD).iterdir()) == []


@GUARD_REPORTS_THE_CRASH
@pytest.mark.parametrize("options, settings", [
    pytest.param(["--rotateOnly"], reporting([LOG]), id="rotate only"),
    pytest.param([], {}, id="not switched on"),
])
def test_without_reporting_a_marker_is_text_like_any_other_and_a_crash_keeps_nothing(
        start: Start, options: Sequence[str], settings: dict[str, Any]) -> None:
    script = f"touch {SNAPSHOTS}; echo ==Report==no; kill -SEGV $$"
    running = start(application=["/bin/sh", "-c", script], settings=settings,
                    options=[*options, "--singleRun"])
    assert running.wait_supervisor_exit() == 11
    assert content(running).endswith(b"\n==Report==no\n")
    assert not running.host_path(SNAPSHOTS + ".load").exists()
    assert not running.host_path(UPLOAD).exists()  # only made at a start with reports switched on


def fake_tar(tmp_path: Path, script: str) -> list[Bind]:
    """A script that is the device's tar."""
    tool = tmp_path / "tar"
    tool.write_text("#!/bin/sh\n" + script)
    tool.chmod(0o755)
    return [Bind(str(tool), "/usr/bin/tar"), Bind("/usr/bin/tar", "/tmp/real-tar")]


def test_several_archives_at_once_while_the_application_restarts(start: Start,
                                                                 tmp_path: Path) -> None:
    behaviours = []
    for i in range(6):
        behaviours += ["print", f"==Report==r{i}\\n", "sleep", "0.2"]
    # Each tar waits until all six have started.
    script = ('echo >>/tmp/begun; until [ $(wc -l </tmp/begun) -ge 6 ]; do sleep 0.05; done\n'
              'exec /tmp/real-tar "$@"\n')
    running = start(*behaviours, "exit", "0", settings=reporting([LOG]), tools={"reboot": "return"},
                    binds=fake_tar(tmp_path, script))
    wait_until(lambda: len({upload["name"] for upload in uploads(running)}) == 6,
               "all six archives")
    for upload in uploads(running):  # raises an error if an archive is cut off
        gzip.decompress(running.host_path(f"{UPLOAD}/{upload.string}").read_bytes())


def test_a_full_upload_directory_gives_the_message_and_no_archive(start: Start) -> None:
    running = start("print", "==Report==full\\n", "wait", spaces={UPLOAD: "64k"},
                    settings=reporting(["/usr/bin/python3", LOG]), directories=("/tmp/log",))
    running.wait_for("supervisor", re.compile("^Failed to generate report$"))
    name, = running.run(["ls", UPLOAD]).stdout.decode().split()
    assert re.fullmatch(r"tmp_report-full-\d{13}", name)


def crashes_at_the_third_time() -> list[str]:
    """An application that exits normally twice and then crashes."""
    return ["sh", "-c", "echo >>/tmp/runs; [ $(wc -l </tmp/runs) -lt 3 ] || kill -SEGV $$; exit 0"]


def test_after_an_exit_nothing_is_kept_for_a_report(start: Start) -> None:
    running = start(application=crashes_at_the_third_time(), settings=reporting([LOG]),
                    tools={"reboot": "return"})
    running.host_path(SNAPSHOTS).write_text("of this moment")
    running.wait_for("system log", "Restarting process: exit code:0, exist status:0", count=2)
    assert not running.host_path(SNAPSHOTS + ".load").exists()
    running.wait_for("system log", "Restarting process: exit code:11, exist status:1")
    assert running.host_path(SNAPSHOTS + ".load").read_text() == "of this moment"


def test_the_third_end_reboots_before_it_reports(start: Start) -> None:
    running = start(application=crashes_at_the_third_time(), settings=reporting([LOG]),
                    tools={"reboot": "hang"})
    running.host_path(SNAPSHOTS).write_text("of this moment")
    running.wait_for("tool", "reboot -f")
    assert not running.host_path(SNAPSHOTS + ".load").exists()


def test_a_request_ends_the_line_in_which_it_comes(start: Start) -> None:
    application = f"""
        printf 'begun ==Report==now'
        until grep -q begun {LOG}; do sleep 0.1; done
        sleep 1 # a time line comes only where the second has changed
        echo and ended
        exec sleep 3600"""
    running = start(application=["/bin/sh", "-c", application],
                    options=["--logTime"], settings=reporting([LOG]))
    wait_until(lambda: b"and ended\n" in content(running), "the rest of the line")
    assert re.search(rb"begun ==Report==now-- Time: [^\n]*\nand ended\n", content(running))
