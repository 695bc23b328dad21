# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Single-run mode: the supervisor ends with its application or by a termination signal."""

from __future__ import annotations

import os
import re
import signal
import sys
from pathlib import Path

import pytest

from starting import STARTED, Start
from logs import LOG, content
from marks import DISPATCHERS, GUARD_TELLS_THE_END
from simulator import Device, wait_until

TERMINATION = [signal.SIGINT, signal.SIGQUIT, signal.SIGTERM]


def started(running: Device) -> None:
    """Waits until the application has printed that it is ready."""
    wait_until(lambda: b"ready\n" in content(running), "the application is ready")


@pytest.mark.parametrize("behaviour, status", [
    (("exit", "0"), 0), (("exit", "42"), 42), (("signal", "9"), 9), (("signal", "11"), 11)])
def test_the_exit_status_is_the_applications(start: Start, behaviour: tuple[str, str],
                                             status: int) -> None:
    running = start(*behaviour, options=["--singleRun"], watchdog_device=False)
    assert running.wait_supervisor_exit() == status
    assert not running.events("system log", "Restarting process")
    assert running.events("tool", "killall -9 pYNX")
    assert not running.events("tool", "reboot")


@DISPATCHERS
@pytest.mark.parametrize("number", TERMINATION)
def test_a_termination_signal_ends_both_and_the_status_is_0(start: Start, number: signal.Signals,
                                                            environment: dict[str, str]) -> None:
    # Whichever signal the supervisor gets, the application gets SIGTERM.
    script = "trap 'touch /tmp/log/told; exit 15' TERM; echo ready; while :; do sleep 0.02; done"
    running = start(application=["/bin/sh", "-c", script],
                    options=["--singleRun", "--rotateOnly"], environment=environment)
    started(running)
    application = running.application().pid
    running.signal("supervisor", number)
    assert running.wait_supervisor_exit() == 0
    wait_until(lambda: application not in [process.pid for process in running.processes()],
               "the application has ended too")
    assert running.host_path("/tmp/log/told").exists()


@DISPATCHERS
@pytest.mark.parametrize("options", [[], ["--rotateOnly"]], ids=["all", "rotate-only"])
def test_the_status_is_0_although_the_application_has_ended_too(
        start: Start, sample: str, options: list[str], environment: dict[str, str]) -> None:
    # The supervisor is stopped in between, so it finds the signal and the end at the same time.
    # Their order depends on the seed.
    running = start("wait", options=["--rotateOnly"], environment=environment,
                    watchdog_device=False)
    script = f"""
    for seed in $(seq 0 11); do
        export QT_HASH_SEED=$seed
        started ready /supervisor/watchdog --singleRun {' '.join(options)} \\
            --app {sample} name ready wait
        kill -STOP $supervisor
        kill -KILL $(cat /tmp/pid)
        kill -TERM $supervisor
        kill -CONT $supervisor
        wait $supervisor; echo $?
    done"""
    done = running.run(["bash", "-c", STARTED + script], timeout=120)
    assert done.stdout.split() == [b"0"] * 12


@GUARD_TELLS_THE_END
def test_the_applications_last_words_are_in_the_log(start: Start) -> None:
    running = start("on-term", "3", "print", "ready\\n", "wait",
                    options=["--singleRun"], watchdog_device=False)
    started(running)
    running.signal("application", signal.SIGTERM)
    assert running.wait_supervisor_exit() == 3
    assert content(running).endswith(b"ready\nterminated\n")


def is_gone(running: Device, pid: int) -> bool:
    """Whether the process has ended, also if its parent has not waited for it."""
    return pid not in {process.pid for process in running.processes() if process.state != "Z"}


def end_by_second_signal(running: Device) -> None:
    """Ends a supervisor that the first signal cannot end, because it waits for something else."""
    # Two signals of one kind could become one. The kernel decides which of two kinds comes first.
    running.signal("supervisor", signal.SIGTERM)
    running.signal("supervisor", signal.SIGINT)
    assert -running.wait_supervisor_exit() in (signal.SIGTERM, signal.SIGINT)


def test_a_second_signal_ends_a_supervisor_that_waits_for_a_tool(start: Start) -> None:
    running = start("exit", "0", options=["--singleRun"], tools={"killall": "hang"},
                    watchdog_device=False)
    running.wait_for("tool", "killall")
    end_by_second_signal(running)


def test_the_application_is_told_at_once_while_a_tool_is_waited_for(start: Start) -> None:
    running = start("on-term", "3", "wait", options=["--singleRun"], tools={"sfuflags": "hang"},
                    watchdog_device=False)
    running.wait_for("tool", "sfuflags")
    application = running.application().pid
    running.signal("supervisor", signal.SIGTERM)
    wait_until(lambda: is_gone(running, application), "the application has ended")
    assert "sfuflags" in {process.comm for process in running.processes()}
    assert running.wait_supervisor_exit() == 0


def hanging_start_up(start: Start, *behaviours: str) -> tuple[Device, Path]:
    """A device on which the start waits for a writer to a settings document, which is a FIFO."""
    running = start(*behaviours, "wait", options=["--singleRun"], watchdog_device=False,
                    start=False)
    document = running.host_path("/supervisor/settings/WatchdogMemoryReportingConf.json")
    document.parent.mkdir(parents=True)
    os.mkfifo(document)
    running.start()
    return running, document


def test_a_start_up_that_hangs_passes_the_signal_on_and_a_second_one_ends_it(
        start: Start) -> None:
    running, _ = hanging_start_up(start, "on-term", "3")
    application = running.application().pid
    end_by_second_signal(running)
    wait_until(lambda: is_gone(running, application), "the application has been told")


def test_a_signal_during_the_start_up_is_not_lost(start: Start) -> None:
    running, document = hanging_start_up(start, "ignore-term")
    running.application()
    running.signal("supervisor", signal.SIGTERM)
    document.write_bytes(b"")
    assert running.wait_supervisor_exit() == 0


def test_a_second_signal_ends_a_supervisor_whose_log_takes_no_more(start: Start) -> None:
    # The log is a FIFO without a reader.
    running = start("on-term", "3", "flood", "200000", "10000", "wait",
                    options=["--singleRun", "--rotateOnly"], start=False)
    log = running.host_path(LOG)
    log.parent.mkdir(parents=True)
    os.mkfifo(log)
    running.start()
    supervisor, application = running.supervisor().pid, running.application().pid
    wait_until(lambda: b"pipe_write" in running.run(["cat", f"/proc/{supervisor}/wchan"]).stdout,
               "the log's pipe is full")
    end_by_second_signal(running)
    wait_until(lambda: is_gone(running, application), "the application has been told")


def test_two_signals_at_once_do_not_leave_the_application_behind(start: Start) -> None:
    running = start("on-term", "3", "print", "ready\\n", "wait",
                    options=["--singleRun", "--rotateOnly"])
    started(running)
    application = running.application().pid
    for number in (signal.SIGSTOP, signal.SIGINT, signal.SIGTERM, signal.SIGCONT):
        running.signal("supervisor", number)
    running.wait_supervisor_exit()
    wait_until(lambda: is_gone(running, application), "the application has been told")


def test_the_supervisor_ends_when_its_parent_dies(start: Start, sample: str) -> None:
    running = start("wait", options=["--rotateOnly"])
    script = ("started orphan /supervisor/watchdog --singleRun --rotateOnly "
              f"--app {sample} name orphan wait")
    assert running.run(["bash", "-c", STARTED + script]).status == 0
    wait_until(lambda: not [p for p in running.processes() if p.comm == "orphan"],
               "the application of the supervisor whose parent died is gone")


def test_without_single_run_a_signal_just_ends_the_supervisor(start: Start) -> None:
    running = start("print", "ready\\n", "wait", options=["--rotateOnly"])
    started(running)
    running.signal("supervisor", signal.SIGTERM)
    assert running.wait_supervisor_exit() == -signal.SIGTERM


def test_the_application_starts_with_the_signals_untouched(start: Start) -> None:
    running = start(application=["/bin/grep", "-E", "^Sig(Blk|Ign)", "/proc/self/status"],
                    options=["--singleRun", "--rotateOnly"])
    assert running.wait_supervisor_exit() == 0
    blocked, ignored = (int(mask, 16) for mask in
                        re.findall(rb"^Sig...:\t([0-9a-f]+)$", content(running), re.M))
    assert blocked == 0
    # Other signals may be ignored, because the tests were started so, for instance by nohup.
    assert not any(ignored >> (number - 1) & 1 for number in [*TERMINATION, signal.SIGPIPE])


def test_a_signal_that_was_blocked_at_the_start_stays_so(start: Start) -> None:
    running = start("wait", options=["--rotateOnly"])
    script = """
import os, signal
signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM])
os.execv("/supervisor/watchdog", ["watchdog", "--singleRun", "--rotateOnly", "--app", "/bin/grep",
                                  "-h", "SigBlk", "/proc/self/status"])
"""
    blocked = running.run([sys.executable, "-c", script]).stdout.split()[-1]
    assert int(blocked, 16) == 1 << (signal.SIGTERM - 1)
