# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The application's log: completeness, rotation, time lines, and a file system that fails."""

from __future__ import annotations

import re
import signal
from pathlib import Path

import pytest

from boards import Board
from logs import LOG, OLD_LOG, content
from simulator import wait_until
from simulator.pytest_plugin import DeviceFactory

TIME_LINE = re.compile(rb"-- Time: [A-Z][a-z]{2} [A-Z][a-z]{2} \d{1,2} \d\d:\d\d:\d\d \d{4} GMT\n")


def test_output_reaches_the_file_without_an_end_or_a_full_buffer(board: Board) -> None:
    running = board("print", "short\\n", "wait", options=["--rotateOnly"])
    wait_until(lambda: content(running).endswith(b"short\n"), "the flush")


def test_ten_megabytes_on_each_channel_at_once_and_nothing_is_lost(board: Board) -> None:
    running = board("flood-both", "10000000", "4096", log_size="100M",
                    options=["--singleRun", "--rotateOnly"])
    assert running.wait_supervisor_exit() == 0
    # Chunks of both channels end at any byte and interleave, so that a line may be cut in two:
    # counted are the bytes, and every line that is whole must follow its predecessor.
    written = content(running).split(b" \n", 1)[1]
    assert len(written) == 20_000_000
    for channel in (b"out", b"err"):
        numbers = [int(n) for n in re.findall(rb"^%s (\d+) \.+$" % channel, written, re.M)]
        assert len(numbers) > 50_000
        assert numbers == sorted(numbers)


def test_one_channel_is_complete_and_in_order(board: Board) -> None:
    running = board("flood", "10000000", "1000", log_size="100M",
                    options=["--singleRun", "--rotateOnly"])
    assert running.wait_supervisor_exit() == 0
    lines = content(running).split(b" \n", 1)[1].splitlines()
    assert [int(line.split()[1]) for line in lines] == list(range(100_000))


def test_one_old_generation_is_kept_and_both_hold_the_unbroken_end(board: Board) -> None:
    running = board("flood", "5000000", "1000", log_size="256k",
                    options=["--singleRun", "--rotateOnly"])
    assert running.wait_supervisor_exit() == 0
    kept = content(running, OLD_LOG) + content(running)
    numbers = [int(n) for n in re.findall(rb"^out (\d+) \.+$", kept, re.M)]
    assert numbers == list(range(numbers[0], 50_000))
    assert len(content(running, OLD_LOG)) >= 256 * 1024
    assert sorted(p.name for p in running.host_path("/tmp/log").iterdir()) == [
        "application.log", "application.log.0"]


def test_what_the_application_prints_meanwhile_exceeds_the_limit_by_64_kib_at_most(
        board: Board, sample: str) -> None:
    # The supervisor is held up, as by a tool: the pipe takes it all, the log takes it in pieces.
    script = (f"until [ -e /tmp/go ]; do sleep 0.02; done; {sample} flood 200000 10000; "
              "touch /tmp/printed")
    running = board(application=["/bin/sh", "-c", script], log_size="100k",
                    options=["--singleRun", "--rotateOnly"])
    running.signal("supervisor", signal.SIGSTOP)
    running.host_path("/tmp/go").touch()
    wait_until(running.host_path("/tmp/printed").exists, "the application has printed it all")
    running.signal("supervisor", signal.SIGCONT)
    assert running.wait_supervisor_exit() == 0
    sizes = [len(content(running, path)) for path in (OLD_LOG, LOG)]
    assert sum(sizes) > 200_000
    assert sizes[0] <= (100 + 64) * 1024


def test_an_existing_log_is_continued_and_counted(board: Board, tmp_path: Path) -> None:
    running = board("wait", options=["--rotateOnly"])
    running.host_path("/tmp/old.log").write_bytes(b"x" * 900)
    sample = running.application().command_line[0]
    arguments = ["--logfileName", "/tmp/old.log", "--logfileSize", "1k"]
    done = running.run(["/supervisor/watchdog", "--singleRun", "--rotateOnly", *arguments,
                        "--app", sample, "print", "y" * 200])
    assert done.status == 0
    old = running.host_path("/tmp/old.log.0").read_bytes()
    assert old.startswith(b"x" * 900 + b"\n\n") and old.endswith(b"y" * 200)
    assert running.host_path("/tmp/old.log").read_bytes() == b""


def test_time_lines(board: Board) -> None:
    running = board("print", "one\\ntwo\\n", "sleep", "2.1", "error", "three\\n", "wait",
                    options=["--rotateOnly", "--logTime"])
    wait_until(lambda: b"three" in content(running), "the last line")
    log = content(running)
    assert TIME_LINE.match(log)
    assert len(TIME_LINE.findall(log)) >= 2
    # One in front of a chunk, not of each of its lines; the second has changed before "three".
    assert b"one\ntwo\n" in log
    assert re.search(TIME_LINE.pattern + rb"three\n$", log)


def test_without_a_log_file_everything_is_echoed(device: DeviceFactory, sample: str) -> None:
    running = device(arguments=["--rotateOnly", "--singleRun", "--logTime", "--app", sample,
                                "print", "to the console\\n", "error", "this too\\n"])
    assert running.wait_supervisor_exit() == 0
    assert b" Watchdog: Starting app: " in running.stdout
    assert b"to the console\n" in running.stdout and b"this too\n" in running.stdout
    assert b"-- Time:" not in running.stdout
    assert running.stderr == b""


SPOILED_LOG = """
    {spoil}
    {sample} flood 4000 4000
    while ls -l /proc/$PPID/fd | grep -q application.log; do sleep 0.02; done
    echo echoed
"""
"""An application that spoils its own log, fills it, and prints a line when the file is closed."""


@pytest.mark.parametrize("spoil, kept",
                         [(f"mkdir -p {OLD_LOG}/occupied", True), (f"rm {LOG}", False)],
                         ids=["the rename fails", "removed from outside"])
def test_a_rotation_that_fails_ends_the_file_and_echoes_the_rest(board: Board, sample: str,
                                                                 spoil: str, kept: bool) -> None:
    script = SPOILED_LOG.format(spoil=spoil, sample=sample)
    running = board(application=["/bin/sh", "-c", script], log_size="2k",
                    options=["--rotateOnly", "--singleRun"])
    assert running.wait_supervisor_exit() == 0
    assert running.stderr == f"Can't rename file from:{LOG} to:{OLD_LOG}\n".encode()
    assert running.stdout == b"echoed\n"
    assert content(running).endswith(b".\n") if kept else not running.host_path(LOG).exists()


def test_a_full_file_system_loses_text_but_never_the_application(board: Board) -> None:
    running = board("wait", options=["--rotateOnly"], spaces={"/tmp/small": "256k"})
    sample = running.application().command_line[0]
    done = running.run(["/supervisor/watchdog", "--singleRun", "--rotateOnly", "--logTime",
                        "--logfileName", "/tmp/small/full.log", "--logfileSize", "1M", "--app",
                        sample, "flood", "900000", "4000", "print", "still here\\n", "exit", "7"])
    assert done.status == 7
    assert done.stderr == b""
    # The lost bytes were counted as well: not yet at the limit, so there is no old generation.
    assert running.run(["ls", "/tmp/small"]).stdout == b"full.log\n"


TWO_GENERATIONS = """
    {sample} flood 310000 4000
    until [ -e /tmp/small/full.log.0 ]; do sleep 0.02; done
    first=$(stat -c %i /tmp/small/full.log.0)
    {sample} flood 310000 4000
    while [ "$(stat -c %i /tmp/small/full.log.0)" = "$first" ]; do sleep 0.02; done
    echo the end
"""
"""An application that fills a log of 300k, waits for its rotation, and does so a second time."""


def test_lost_bytes_count_so_that_rotation_frees_the_space_again(board: Board) -> None:
    # The first generation fills the file system, the second finds no room, the third gets that of
    # the first.
    running = board("wait", options=["--rotateOnly"], spaces={"/tmp/small": "256k"})
    script = TWO_GENERATIONS.format(sample=running.application().command_line[0])
    done = running.run(["/supervisor/watchdog", "--singleRun", "--rotateOnly", "--logfileName",
                        "/tmp/small/full.log", "--logfileSize", "300k", "--app",
                        "/bin/sh", "-c", script])
    assert done.status == 0
    assert done.stderr == b""
    files = running.run(["sh", "-c", "ls /tmp/small; tail -n 1 /tmp/small/full.log"]).stdout
    assert files == b"full.log\nfull.log.0\nthe end\n"


def test_logging_goes_on_when_space_returns(board: Board) -> None:
    running = board("wait", options=["--rotateOnly"], spaces={"/tmp/small": "256k"})
    sample = running.application().command_line[0]
    application = (f"{sample} flood 100000 4000; sleep 0.5; rm /tmp/small/filler; "
                   "echo space again; sleep 0.5; echo more")
    done = running.run(["sh", "-c",
                        "head -c 250k /dev/zero >/tmp/small/filler; "
                        "/supervisor/watchdog --singleRun --rotateOnly --logfileName "
                        f"/tmp/small/full.log --logfileSize 1M --app /bin/sh -c '{application}'; "
                        "cat /tmp/small/full.log"])
    assert done.status == 0
    assert done.stdout.endswith(b"space again\nmore\n")


def test_markers_do_nothing_without_reporting(board: Board) -> None:
    running = board("print", "==Report file:/etc/hostname==name\\n==Report==other\\n",
                    options=["--singleRun", "--rotateOnly"])
    assert running.wait_supervisor_exit() == 0
    assert b"==Report file:/etc/hostname==name\n==Report==other\n" in content(running)
    assert not running.host_path("/tmp/upload").exists()


def test_what_a_grandchild_prints_after_the_end_is_lost(board: Board) -> None:
    running = board("grandchild", "1", "print", "parent ends\\n", options=["--rotateOnly"])
    running.wait_for("system log", "Restarting process", count=3)
    assert b"grandchild was here" not in content(running)


def test_the_log_survives_restarts_in_one_file(board: Board) -> None:
    running = board("print", "again\\n", options=["--rotateOnly"])
    running.wait_for("system log", "Restarting process", count=3)
    assert content(running).count(b"again\n") == 3


def test_a_supervisor_that_is_killed_has_its_log_up_to_the_last_flush(board: Board) -> None:
    running = board("print", "kept\\n", "wait", options=["--rotateOnly"])
    wait_until(lambda: b"kept\n" in content(running), "the flush")
    running.signal("supervisor", signal.SIGKILL)
    assert running.wait_supervisor_exit() == -signal.SIGKILL
    assert content(running).endswith(b"kept\n")
