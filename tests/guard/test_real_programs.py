# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Programs that were written for systemd, and a debugger that sees the same stacks."""

from __future__ import annotations

import re
import signal

import pytest

from guarded_stacks import assert_same_functions, debug
from guarding import Guard, Running

_PYTHON = """
import os, signal, time
from systemd import daemon
assert daemon.notify("READY=1")
for _ in range(6):
    daemon.notify("STATUS=beating\\nWATCHDOG=1")
    time.sleep(0.3)
os.kill(os.getpid(), signal.SIGSTOP)
"""

_SHELL = """
systemd-notify --ready --status=beating
for i in 1 2 3 4 5 6; do
    systemd-notify WATCHDOG=1
    sleep 0.3
done
kill -STOP $$
"""


@pytest.mark.parametrize("program", [("/usr/bin/python3", "-c", _PYTHON), ("sh", "-c", _SHELL)],
                         ids=["python3-systemd", "systemd-notify"])
def test_its_beats_are_heard_and_their_end_is_noticed(guard: Guard,
                                                      program: tuple[str, ...]) -> None:
    ended = Running([str(guard.program), "--stacks", str(guard.directory), "--timeout", "1",
                     "--startup", "60", "--", *program]).end()
    assert ended.told == ["guard: hang: no beat for 1 s"]
    assert ended.status == -signal.SIGABRT
    assert ended.end.endswith(", last status: beating")
    after = re.search(r"after (\d+) s", ended.errors[-1])
    assert after and int(after[1]) >= 2  # the beats took 1.5 s


@pytest.mark.parametrize("behaviours", [("crash",), ("abort",), ("crash-in-thread",),
                                        ("inline-crash",), ("raise", "10"),
                                        ("report-and-die", "11", "crash")],
                         ids=" ".join)
def test_the_frames_are_those_of_a_debugger(guard: Guard, behaviours: tuple[str, ...]) -> None:
    assert_same_functions(guard.run(*behaviours).threads[0].functions,
                          debug("gdb", "run", "--args", guard.application, *behaviours))
