# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Stacks as pynx-watchdog-guard has written them, and as a debugger sees them."""

from __future__ import annotations

import re
import subprocess
import tempfile
from dataclasses import dataclass, field
from pathlib import Path

_TIME_LIMIT = 120  # seconds

_THREAD = re.compile(r'Thread (\d+) "(.*)":')
_FRAME = re.compile(r"#\d+ .* in (.*?)(?: at .*)?(?: from .*)?$")


@dataclass
class Thread:
    """A thread of a file of stacks, with its functions, the innermost first."""

    id: int
    name: str
    functions: list[str] = field(default_factory=list)


def threads_of(text: str) -> list[Thread]:
    """The threads in a file of stacks, in its order."""
    threads: list[Thread] = []
    for line in text.splitlines():
        if begin := _THREAD.fullmatch(line):
            threads.append(Thread(int(begin[1]), begin[2]))
        elif frame := _FRAME.fullmatch(line):
            threads[-1].functions.append(frame[1])
    return threads


# What the debugger and the symbols call differently.
_OTHER_NAMES = re.compile(r"^(__GI_|__libc_|___?)|\(\)$")


def _plain(function: str) -> str:
    """The last part of a function's name, without arguments, template and namespace."""
    name = re.sub(r" \[clone .*\]$| const$", "", function.replace("(anonymous namespace)", ""))
    name = name.replace("operator()", "operator")
    while (shorter := re.sub(r"<[^<>]*>|\([^()]*\)|\{[^{}]*\}", "", name)) != name:
        name = shorter
    plain: str = _OTHER_NAMES.sub("", name.split("::")[-1].split(" ")[-1])
    return plain


# It guesses the functions whose last call was a jump. They have no frame.
_SHOW = """
python
frame = gdb.selected_frame()
while frame:
    if frame.type() != gdb.TAILCALL_FRAME:
        print("frame", frame.name() or "??")
    frame = frame.older()
end
"""


def debug(debugger: str, before: str, *command: str | Path) -> list[str]:
    """The functions of the thread that crashed, by a debugger with this command line.

    `before` has the debugger's commands that lead to the crash.
    """
    with tempfile.NamedTemporaryFile("w", encoding="utf-8") as script:
        script.write(f"set debuginfod enabled off\n{before}\n{_SHOW}")
        script.flush()
        done = subprocess.run([debugger, "-nx", "-batch", "-x", script.name, *command], check=True,
                              capture_output=True, encoding="utf-8", timeout=_TIME_LIMIT)
    return [line.split(" ", 1)[1] for line in done.stdout.splitlines()
            if line.startswith("frame ")]


def assert_same_functions(ours: list[str], debuggers: list[str]) -> None:
    """Compare them by their plain names, up to main(): the debugger shows nothing behind it."""
    plain, theirs = [_plain(each) for each in ours], [_plain(each) for each in debuggers]
    end = theirs.index("main") + 1 if "main" in theirs else None
    assert "innermostFunction" in theirs or len(theirs) > 5
    assert plain[:end] == theirs
