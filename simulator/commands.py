# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the board's tools do when they behave normally."""

from __future__ import annotations

import os
import re
import signal

from simulator import boot_loader, processes
from simulator.boot_loader import BootState
from simulator.tools import Outcome

_COMM_LENGTH = 15  # the kernel cuts the names of processes at this length
_USAGE = 1


def killall(arguments: list[str]) -> Outcome:
    """Send a signal to all processes with one of the names given."""
    number = int(signal.SIGTERM)
    quiet = False
    names: list[str] = []
    for argument in arguments:
        if argument == "-q":
            quiet = True
        elif argument.startswith("-"):
            found = _signal_number(argument[1:])
            if found is None:
                return _bad_usage("killall", argument)
            number = found
        else:
            names.append(argument)
    if not names:
        return _bad_usage("killall", "no name")
    killed = {name: _kill_all_of(name, number) for name in names}
    missing = [name for name, count in killed.items() if count == 0]
    message = "" if quiet else "".join(f"{name}: no process found\n" for name in missing)
    total = sum(killed.values())
    return Outcome(1 if missing else 0,
                   f"signal {number} to {total} process{'' if total == 1 else 'es'}", message)


def _kill_all_of(name: str, number: int) -> int:
    targets = [process for process in processes.list_processes()
               if process.comm == name[:_COMM_LENGTH] and process.pid != 1 and process.state != "Z"]
    for target in targets:
        try:
            os.kill(target.pid, number)
        except ProcessLookupError:
            pass  # it has ended meanwhile, as wanted
    return len(targets)


def _signal_number(text: str) -> int | None:
    if re.fullmatch("[0-9]{1,2}", text):
        return int(text)
    name = "SIG" + text.removeprefix("SIG")
    return int(signal.Signals[name]) if name in signal.Signals.__members__ else None


def sfuflags(state: BootState, arguments: list[str]) -> Outcome:
    """sfuflags -f NAME -v VALUE: set a boot flag."""
    match arguments:
        case ["-f", name, "-v", value] if re.fullmatch("[0-9]{1,9}", value):
            if not boot_loader.set_flag(state, name, int(value)):
                return Outcome(1, f"no such flag: {name}", f"sfuflags: no such flag: {name}\n")
            return Outcome(0, "done")
    return _bad_usage("sfuflags", " ".join(arguments))


def fw_setenv(state: BootState, arguments: list[str]) -> Outcome:
    """fw_setenv NAME [VALUE…]: set a boot environment variable, or delete it without a value."""
    match arguments:
        case [name] if not name.startswith("-"):
            found = state.environment.pop(name, None)
            return Outcome(0, "deleted" if found is not None else "was not set")
        case [name, *words] if not name.startswith("-"):
            state.environment[name] = " ".join(words)
            return Outcome(0, "set")
    return _bad_usage("fw_setenv", " ".join(arguments))


def _bad_usage(tool: str, what: str) -> Outcome:
    return Outcome(_USAGE, f"bad usage: {what}", f"{tool}: bad usage: {what}\n")
