# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Reads the stacks that the guard has written when the application hung or crashed."""

from __future__ import annotations

import os
import re
from collections.abc import Iterable
from typing import Any

from . import texts
from .events import Event

MOST_FRAMES = 100  # as many as the guard writes of a thread
MOST_FUNCTIONS = 8
LONGEST = 1000  # characters of a function's name; templates make long ones

# The libraries of C and C++. What an application does is seldom told by what they call there.
_RUNTIME = re.compile(r"(libc|libc\+\+|libm|libpthread|libstdc\+\+|ld-[^/]*)[.-][^/]*$")
_RUNTIME_NAME = re.compile(r"std::|__|_M_|_start$")
_OPERATOR = re.compile(r"\boperator *(?:\(\)|<=>|<<=?|>>=?|->\*?|<=?|>=?)")
_INNERMOST_BRACKETS = re.compile(r"<[^<>()]*>|\([^<>()]*\)")


def stack_fields(text: str) -> dict[str, Any]:
    """What a file of stacks tells, as the fields of an event. `text` has to begin as one.

    Of a crash it is the thread that crashed that is told of, of a hang the main thread.
    """
    head = texts.STACKS.match(text)
    assert head
    lines = text.split("\n")
    threads = [(number, begin) for number, line in enumerate(lines)
               if (begin := texts.THREAD.match(line))]
    shown = threads[:1]
    if head["stacks"] == "hang":
        shown = [found for found in threads if found[1]["id"] == head["process"]] or shown
    fields = {name: head[name] for name in ("text", "stacks", "program")}
    fields |= {name: int(head[name]) for name in ("process", "seconds")}
    fields |= {"threads": len(threads), "thread": None, "functions": []}
    for number, begin in shown[:1]:
        fields |= {"thread": begin["name"],
                   "functions": _functions(lines[number + 1:number + 1 + MOST_FRAMES])}
    return fields


def where(stacks: Event) -> str:
    """Where the application hung or crashed, by the stacks of it."""
    known = stacks.fields
    thread = "its main thread stood" if known["stacks"] == "hang" \
        else f"thread {known['thread']!r} crashed"
    return f"{thread} in {' ← '.join(known['functions']) or 'an unknown function'}"


def _functions(lines: Iterable[str]) -> list[str]:
    """The innermost function of a thread, and those outside of the libraries of C and C++."""
    found: list[str] = []
    for line in lines:
        frame = texts.FRAME.match(line)
        if not frame or len(found) == MOST_FUNCTIONS:
            break
        where, _, file = frame["where"].rpartition(" from ")
        name = _function((where or file).partition(" at ")[0][:LONGEST], file if where else "")
        if not found or not _is_runtime(name, file):
            found.append(name)
    return found


def _is_runtime(name: str, file: str) -> bool:
    library = os.path.basename(file.rpartition("+0x")[0])
    return bool(_RUNTIME_NAME.match(name) or _RUNTIME.match(library))


def _function(name: str, file: str) -> str:
    """The name without arguments, templates and what it returns; without a name, where it is."""
    if name == "??":
        return os.path.basename(file) or name
    short = name.replace("(anonymous namespace)::", "")
    operators = _OPERATOR.findall(short)
    short = _OPERATOR.sub("operator", short)
    while (shorter := _INNERMOST_BRACKETS.sub("", short)) != short:
        short = shorter
    short = re.split(r"(?<!operator) ", short.strip().removesuffix(" const"))[-1]
    return (short.replace("operator", operators[-1]) if operators else short) or name
