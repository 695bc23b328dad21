# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Programs that were written for systemd, and a debugger that sees the same stacks."""

from __future__ import annotations

import re
import signal
import subprocess

import pytest

from guarding import TIME_LIMIT, Guard, Running

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


# What the debugger and the symbols call differently.
_OTHER_NAMES = re.compile(r"^(__GI_|__libc_|__)|\(\)$")


def _plain(function: str) -> str:
    """The last part of a function's name, without arguments, template and namespace."""
    name = re.sub(r" \[clone .*\]$| const$", "", function.replace("(anonymous namespace)", ""))
    name = name.replace("operator()", "operator")
    while (shorter := re.sub(r"<[^<>]*>|\([^()]*\)|\{[^{}]*\}", "", name)) != name:
        name = shorter
    plain: str = _OTHER_NAMES.sub("", name.split("::")[-1].split(" ")[-1])
    return plain


# It guesses the functions whose last call was a jump. They have no frame.
_DEBUGGER = """
set debuginfod enabled off
run
python
frame = gdb.selected_frame()
while frame:
    if frame.type() != gdb.TAILCALL_FRAME:
        print("frame", frame.name() or "??")
    frame = frame.older()
end
kill
"""


def _stack_of_debugger(guard: Guard, behaviours: tuple[str, ...]) -> list[str]:
    commands = guard.directory / "commands"
    commands.write_text(_DEBUGGER, "utf-8")
    done = subprocess.run(["gdb", "-nx", "-batch", "-x", commands, "--args", guard.application,
                           *behaviours], check=True, capture_output=True, encoding="utf-8",
                          timeout=TIME_LIMIT)
    return [line.split(" ", 1)[1] for line in done.stdout.splitlines()
            if line.startswith("frame ")]


@pytest.mark.parametrize("behaviours", [("crash",), ("abort",), ("crash-in-thread",),
                                        ("inline-crash",), ("raise", "10"),
                                        ("report-and-die", "11", "crash")],
                         ids=" ".join)
def test_the_frames_are_those_of_a_debugger(guard: Guard, behaviours: tuple[str, ...]) -> None:
    ours = [_plain(each) for each in guard.run(*behaviours).threads[0].functions]
    theirs = [_plain(each) for each in _stack_of_debugger(guard, behaviours)]
    end = theirs.index("main") + 1 if "main" in theirs else None  # it shows nothing behind
    assert "innermostFunction" in theirs or len(theirs) > 5
    assert ours[:end] == theirs
