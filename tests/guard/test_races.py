# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Two things at once, tried again and again: whichever comes first, the guard ends as it should."""

from __future__ import annotations

import os
import random
import signal
import time
from collections.abc import Callable, Iterator

import pytest

from guarding import Ended, Guard

ROUNDS = 15  # of each race; to look for rare ones, set it to some thousands

# The time-out is set by the application, because the option has whole seconds.
HANGS_SOON = ("notify", "WATCHDOG_USEC=50000")


def _shares() -> Iterator[float]:
    """A random number from 0 to 1 for each round. pytest shows the seed when a test fails."""
    seed = random.randrange(1_000_000)
    print("seed", seed)
    numbers = random.Random(seed)
    for _ in range(ROUNDS):
        yield numbers.random()


def _send_later(process: int, number: signal.Signals, seconds: float) -> None:
    """Send it after about this time, if the process is still there."""
    time.sleep(seconds)
    try:
        os.kill(process, number)
    except ProcessLookupError:
        pass


def _end_and_beat(guard: Guard, _: float) -> Ended:
    return guard.run("beat", "1", "5", "exit", "3", options=("--timeout", "60"))


def _end_and_signal(guard: Guard, share: float) -> Ended:
    running = guard.start("say", "ready", "sleep", "20", "exit", "3")
    running.line()
    _send_later(running.process.pid, signal.SIGTERM, 0.04 * share)
    return running.end()


def _two_signals(guard: Guard, share: float) -> Ended:
    """The first goes to the application, too, and counts once there."""
    running = guard.start("handle", "15", "say", "ready", "await-signal", "sleep", "50",
                          start_new_session=True)
    running.line()
    os.killpg(running.process.pid, signal.SIGTERM)
    _send_later(running.process.pid, signal.SIGTERM, 0.1 * share)
    ended = running.end()
    assert ended.output in (["handled 15"], ["handled 15"] * 2), ended
    return ended


def _hang_and_beat(guard: Guard, _: float) -> Ended:
    return guard.run(*HANGS_SOON, "beat", "50", "3", "exit", "3")


def _hang_and_end(guard: Guard, share: float) -> Ended:
    return guard.run(*HANGS_SOON, "sleep", str(40 + int(20 * share)), "exit", "3")


def _hang_and_signal(guard: Guard, share: float) -> Ended:
    running = guard.start(*HANGS_SOON, "say", "ready", "wait")
    running.line()
    _send_later(running.process.pid, signal.SIGTERM, 0.1 * share)
    return running.end()


def _stacks_and_kill(guard: Guard, share: float) -> Ended:
    running = guard.start("ids", "threads", "100", *HANGS_SOON, "say", "ready", "wait")
    process = int(running.line().split()[1])
    running.line()
    _send_later(process, signal.SIGKILL, 0.04 + 0.08 * share)
    return running.end()


def _crash_and_new_threads(guard: Guard, _: float) -> Ended:
    return guard.run("churn", "churn", "sleep", "5", "crash-in-thread")


def _execute_and_new_threads(guard: Guard, _: float) -> Ended:
    return guard.run("churn", "churn", "execute-in-thread", str(guard.application), "exit", "3")


def _stop_and_go_on(guard: Guard, share: float) -> Ended:
    running = guard.start("ids", "churn", "threads", "5", "sleep", "50", "exit", "3")
    process = int(running.line().split()[1])
    for _ in range(5):
        _send_later(process, signal.SIGSTOP, 0.01 * share)
        _send_later(process, signal.SIGCONT, 0.01 * share)
    return running.end()


@pytest.mark.parametrize("race, statuses", [
    (_end_and_beat, {3}),
    (_end_and_signal, {3, -signal.SIGTERM}),
    (_two_signals, {0}),
    (_hang_and_beat, {3, -signal.SIGABRT}),
    (_hang_and_end, {3, -signal.SIGABRT}),
    (_hang_and_signal, {-signal.SIGTERM, -signal.SIGABRT}),
    (_stacks_and_kill, {-signal.SIGKILL, -signal.SIGABRT}),
    (_crash_and_new_threads, {-signal.SIGSEGV}),
    (_execute_and_new_threads, {3}),
    (_stop_and_go_on, {3}),
])
def test_race(guard: Guard, race: Callable[[Guard, float], Ended], statuses: set[int]) -> None:
    for share in _shares():
        ended = race(guard, share)
        assert ended.status in statuses, ended
        assert ended.errors[-1].startswith("guard: ended: "), ended
        assert all(line.startswith("guard: hang: no beat for ") for line in ended.told), ended


def test_nothing_is_left_of_a_guard_that_is_killed(guard: Guard) -> None:
    behaviours = [("churn", "wait"), ("threads", "20", "wait"), ("sleep", "20", "crash"), ("spin",),
                  (*HANGS_SOON, "threads", "20", "wait")]
    for share in _shares():
        for each in behaviours:
            running = guard.start(*each)
            _send_later(running.process.pid, signal.SIGKILL, 0.1 * share)
            running.end()  # returns when no process has the channels any more
