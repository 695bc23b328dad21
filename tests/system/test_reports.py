# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""From a marker in the application's output, or a crash, to an archive in the upload directory."""

from __future__ import annotations

import gzip
import io
import re
import signal
import tarfile
from pathlib import Path

import pytest

from boards import Board
from logs import LOG, complaints, content
from settings import reporting
from simulator import Bind, Device, wait_until

UPLOAD = "/tmp/upload"
SNAPSHOTS = "/tmp/log/system"
NAME = re.compile(r"report-(?P<name>.*)-(?P<time>\d{13})\.tar\.gz")


def uploads(running: Device, pattern: str = "*.tar.gz", directory: str = UPLOAD) -> list[Path]:
    """The files in the upload directory, oldest first."""
    found = running.host_path(directory).glob(pattern)
    return sorted(found, key=lambda path: path.stat().st_mtime_ns)


def parts(path: Path) -> re.Match[str]:
    """The name and the time in an archive's own name."""
    match = NAME.fullmatch(path.name)
    assert match
    return match


def written_at(path: Path) -> int:
    """When the archive says it was made, in milliseconds."""
    return int(parts(path)["time"])


def archive(running: Device, name: str, timeout: float = 60.0) -> dict[str, bytes]:
    """Waits for an archive of this name part, and returns its members and their content."""
    def look() -> list[Path]:
        return [path for path in uploads(running)
                if (match := NAME.fullmatch(path.name)) and match["name"] == name]
    path = wait_until(look, f"an archive named {name}", timeout=timeout)[0]
    members = {}
    with tarfile.open(fileobj=io.BytesIO(path.read_bytes()), mode="r:gz") as packed:
        for member in packed.getmembers():
            file = packed.extractfile(member)
            assert file, f"{member.name} is no file"
            members["/" + member.name] = file.read()
    return members


def test_a_marker_makes_an_archive_of_its_file_and_the_configured_ones(board: Board) -> None:
    running = board("sleep", "0.5", "print", "==Report file:/tmp/extra==disk full!\\n", "wait",
                    settings=reporting([LOG, "/nowhere/at/all"]))
    running.host_path("/tmp/extra").write_text("what the application wanted to show")
    asked = running.wait_for("simulator", "supervisor started")
    members = archive(running, "disk_full_")
    assert members.keys() == {LOG, "/tmp/extra"}
    assert members["/tmp/extra"] == b"what the application wanted to show"
    # The log was flushed before the report was asked for, so the marker itself is in it.
    assert b"==Report file:/tmp/extra==disk full!\n" in members[LOG]
    assert asked


def test_the_archive_comes_five_seconds_after_the_marker(board: Board) -> None:
    running = board("print", "==Report==late\\n", "wait", settings=reporting([LOG]))
    started = running.wait_for("simulator", "supervisor started")
    archive(running, "late")
    milliseconds = written_at(uploads(running)[0])
    assert milliseconds / 1000 - started.wall >= 5 * 0.95  # a coarse timer, 5 % at most


def test_the_upload_directory_is_made_with_its_parents_for_others_to_empty(board: Board) -> None:
    running = board("print", "==Report==first\\n", "wait",
                    settings=reporting([LOG], upload_path="/tmp/a/b/c"))
    made = running.host_path("/tmp/a/b/c")
    wait_until(made.is_dir, "the directory is made at start-up")
    assert made.stat().st_mode & 0o022 == 0o022
    wait_until(lambda: uploads(running, directory="/tmp/a/b/c"), "the archive")
    assert b"Upload path" not in running.stderr


def test_an_upload_directory_that_others_cannot_write_to_is_told_and_left_as_it_is(
        board: Board) -> None:
    running = board("print", "==Report==told\\n", "wait", directories=("/tmp/log", "/tmp/strict"),
                    settings=reporting([LOG], upload_path="/tmp/strict"))
    wait_until(lambda: uploads(running, directory="/tmp/strict"), "the archive")
    line = "Upload path doesn't allow non ROOT user to remove the report"
    running.wait_for("supervisor", re.compile(f"^{line}$"))
    assert len(running.events("supervisor", line)) == 1
    assert running.host_path("/tmp/strict").stat().st_mode & 0o002 == 0


@pytest.mark.parametrize("marker, name", [
    ("==Report==oops", "oops"),
    ("==Report==a/b c.d:e", "a_b_c_d_e"),
    ("==Report==under_score-hyphen", "under_score-hyphen"),
    ("==Report==Größe 日本", "Größe_日本"),
    ("text before ==Report==carriage\\r", "carriage_"),
    ("==Report file:/etc/hostname==x\\n==Report==both", "both"),
])
def test_names(board: Board, marker: str, name: str) -> None:
    running = board("print", marker + "\\n", "wait", settings=reporting([LOG]),
                    environment={"LC_ALL": "C.UTF-8"})
    assert LOG in archive(running, name)


@pytest.mark.parametrize("text", ["==Report file:/etc/hostname\\n", "==Report==\\n",
                                  "==Report file:/etc/hostname==\\n", "=Report==x\\n"])
def test_what_is_no_request(board: Board, text: str) -> None:
    # The second request, which is one, is the clock: the first has had its time by then.
    running = board("print", text, "sleep", "1", "print", "==Report==clock\\n", "wait",
                    settings=reporting([LOG]))
    archive(running, "clock")
    assert len(uploads(running)) == 1


def test_two_requests_of_one_name_make_one_archive_until_thirty_seconds_have_passed(
        board: Board) -> None:
    running = board("print", "==Report==often\\n", "sleep", "1", "print", "==Report==often\\n",
                    "sleep", "31", "print", "==Report==often\\n", "wait",
                    settings=reporting([LOG]))
    wait_until(lambda: len(uploads(running)) == 2, "the first and the third", timeout=120)
    first, third = map(written_at, uploads(running))
    assert third - first >= 30_000


def test_every_start_of_the_application_has_reports_of_its_own(board: Board) -> None:
    running = board("print", "==Report==again\\n", "sleep", "1", "exit", "0",
                    settings=reporting([LOG]), tools={"reboot": "return"})
    wait_until(lambda: len(uploads(running)) >= 2, "an archive of each of two runs")
    first, second = map(written_at, uploads(running)[:2])
    assert second - first < 30_000


def test_a_file_asked_for_once_is_in_every_later_archive_while_it_exists(board: Board) -> None:
    running = board("sleep", "0.5", "print", "==Report file:/tmp/extra==one\\n", "sleep", "1",
                    "print", "==Report==two\\n", "sleep", "8", "print", "==Report==three\\n",
                    "wait", settings=reporting([LOG]))
    running.host_path("/tmp/extra").write_text("x")
    assert archive(running, "one").keys() == {LOG, "/tmp/extra"}
    assert archive(running, "two").keys() == {LOG, "/tmp/extra"}
    running.host_path("/tmp/extra").unlink()
    assert archive(running, "three").keys() == {LOG}


def test_symbolic_links_are_followed(board: Board) -> None:
    running = board("sleep", "0.5", "print", "==Report file:/tmp/link==linked\\n", "wait",
                    settings=reporting([]))
    running.host_path("/tmp/target").write_text("the target's content")
    running.host_path("/tmp/link").symlink_to("/tmp/target")
    assert archive(running, "linked") == {"/tmp/link": b"the target's content"}


def test_without_any_file_nothing_is_made_and_nothing_said(board: Board) -> None:
    running = board("print", "==Report==empty\\n", "sleep", "7", "print", "over\\n", "wait",
                    settings=reporting(["/nowhere/at/all"]))
    wait_until(lambda: b"over\n" in content(running), "more than the delay has passed")
    assert not uploads(running, "*")
    assert complaints(running) == b""


def test_a_crash_makes_a_report_with_the_frozen_snapshot(board: Board) -> None:
    running = board("sleep", "12", "signal", str(int(signal.SIGSEGV)), settings=reporting([LOG]))
    members = archive(running, "main")
    assert members.keys() == {LOG, "/tmp/log/system.load"}
    assert b"top - " in members["/tmp/log/system.load"]
    assert b"exist status:1" not in members[LOG]  # that is the system log's
    assert running.wait_for("system log", "Restarting process: exit code:11, exist status:1")


def test_a_crash_before_the_first_snapshot_has_the_configured_files_alone(board: Board) -> None:
    running = board("print", "soon\\n", "sleep", "1", "signal", str(int(signal.SIGSEGV)),
                    settings=reporting([LOG]), tools={"reboot": "return"})
    assert archive(running, "main").keys() == {LOG}


def test_a_normal_exit_makes_no_report(board: Board) -> None:
    running = board("exit", "5", settings=reporting([LOG]), tools={"reboot": "return"})
    running.wait_for("system log", "Restarting process", count=8)
    assert not uploads(running, "*")


def test_reports_are_off_by_default_and_in_rotate_only_mode(board: Board) -> None:
    running = board("print", "==Report==no\\n", "sleep", "7", "print", "over\\n", "wait",
                    settings=reporting([LOG]), options=["--rotateOnly"])
    wait_until(lambda: b"over\n" in content(running), "more than the delay has passed")
    assert not uploads(running, "*")


def fake_tar(tmp_path: Path, script: str) -> list[Bind]:
    """A tar of our own on the device."""
    tool = tmp_path / "tar"
    tool.write_text("#!/bin/sh\n" + script)
    tool.chmod(0o755)
    return [Bind(str(tool), "/usr/bin/tar"), Bind("/usr/bin/tar", "/tmp/real-tar")]


def test_a_failing_tar_is_told_and_its_file_keeps_the_temporary_name(board: Board,
                                                                     tmp_path: Path) -> None:
    running = board("print", "==Report==bad\\n", "wait", settings=reporting([LOG]),
                    binds=fake_tar(tmp_path, 'echo half >"$2"; exit 2\n'))
    wait_until(lambda: b"Failed to generate report\n" in running.stderr, "the message")
    assert not uploads(running)
    left, = uploads(running, "tmp_*")
    assert re.fullmatch(r"tmp_report-bad-\d{13}", left.name)
    assert left.read_bytes() == b"half\n"


def test_the_arguments_of_tar(board: Board, tmp_path: Path) -> None:
    running = board("print", "==Report file:/etc/hostname==args\\n", "wait",
                    settings=reporting([LOG, LOG, "/nowhere"]),
                    binds=fake_tar(tmp_path, 'for a; do echo "$a"; done >/tmp/arguments\n'))
    lines = wait_until(lambda: content(running, "/tmp/arguments").decode().splitlines(), "tar runs")
    assert lines[0] == "czhf"
    assert re.fullmatch(UPLOAD + r"/tmp_report-args-\d{13}", lines[1])
    assert sorted(lines[2:]) == sorted([LOG, "/etc/hostname"])


def test_several_archives_at_once_while_the_application_restarts(board: Board,
                                                                 tmp_path: Path) -> None:
    behaviours = []
    for i in range(6):
        behaviours += ["print", f"==Report==r{i}\\n", "sleep", "0.2"]
    running = board(*behaviours, "exit", "0", settings=reporting([LOG]), tools={"reboot": "return"},
                    binds=fake_tar(tmp_path, "sleep 2\nexec /tmp/real-tar \"$@\"\n"))

    def whole() -> list[Path]:
        found = uploads(running)
        return found if len({parts(path)["name"] for path in found}) == 6 else []
    for path in wait_until(whole, "all six archives"):
        gzip.decompress(path.read_bytes())  # raises where one is cut off


def test_a_full_upload_directory_gives_the_message_and_no_archive(board: Board) -> None:
    running = board("print", "==Report==full\\n", "wait", spaces={UPLOAD: "64k"},
                    settings=reporting(["/usr/bin/python3", LOG]), directories=("/tmp/log",))
    wait_until(lambda: b"Failed to generate report\n" in running.stderr, "the message")
    names = running.run(["ls", UPLOAD]).stdout.decode().split()
    assert [name for name in names if name.endswith(".tar.gz")] == []
    assert len(names) == 1 and names[0].startswith("tmp_")


def test_the_temporary_name_until_success(board: Board, tmp_path: Path) -> None:
    running = board("print", "==Report==slow\\n", "wait", settings=reporting([LOG]),
                    binds=fake_tar(tmp_path,
                                   'echo part >"$2"; until [ -e /tmp/go-on ]; do sleep 0.05; done\n'
                                   'exec /tmp/real-tar "$@"\n'))
    wait_until(lambda: uploads(running, "tmp_*"), "tar is at work")
    assert not uploads(running)
    running.host_path("/tmp/go-on").touch()
    assert archive(running, "slow").keys() == {LOG}
    assert not uploads(running, "tmp_*")


def crashes_at_the_third_time() -> list[str]:
    """An application that exits twice and then crashes."""
    return ["sh", "-c", "echo >>/tmp/runs; [ $(wc -l </tmp/runs) -lt 3 ] || kill -SEGV $$; exit 0"]


def test_after_an_exit_nothing_is_kept_for_a_report(board: Board) -> None:
    running = board(application=crashes_at_the_third_time(), settings=reporting([LOG]),
                    tools={"reboot": "return"})
    running.host_path(SNAPSHOTS).write_text("of this moment")
    running.wait_for("system log", "Restarting process: exit code:0, exist status:0", count=2)
    assert not running.host_path(SNAPSHOTS + ".load").exists()
    running.wait_for("system log", "Restarting process: exit code:11, exist status:1")
    assert running.host_path(SNAPSHOTS + ".load").read_text() == "of this moment"


def test_the_third_end_reboots_before_it_reports(board: Board) -> None:
    running = board(application=crashes_at_the_third_time(), settings=reporting([LOG]),
                    tools={"reboot": "hang"})
    running.host_path(SNAPSHOTS).write_text("of this moment")
    running.wait_for("tool", "reboot -f")
    assert not running.host_path(SNAPSHOTS + ".load").exists()


def test_a_request_ends_the_line_in_which_it_comes(board: Board) -> None:
    running = board("print", "begun ==Report==now", "sleep", "1.5", "print", "and ended\\n", "wait",
                    options=["--logTime"], settings=reporting([LOG]))
    wait_until(lambda: b"and ended\n" in content(running), "the rest of the line")
    assert re.search(rb"begun ==Report==now-- Time: [^\n]*\nand ended\n", content(running))
