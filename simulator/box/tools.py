# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The stand-ins for the board's tools, their server, and the other commands in PATH.

Each stand-in is the same small script under the tool's name. It sends its arguments to the server
and does what the server answers, so that all calls are recorded and decided in one place.
"""

from __future__ import annotations

import os
import re
import selectors
import shlex
import signal
import socket
import struct
import sys
import time
from collections.abc import Callable, Mapping
from dataclasses import dataclass

from simulator.box import processes
from simulator.common import account, paths
from simulator.common.configuration import TOOLS, Behaviour

_COMM_LENGTH = 15  # the kernel cuts the names of processes at this length

_SCRIPT = """#!{python} -IS
import os, socket, sys
board = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
board.connect({socket!r})
board.send(b"\\0".join([{name!r}.encode()] + [os.fsencode(word) for word in sys.argv[1:]]))
answer = board.recv(65536)
status, _, message = answer.partition(b" ")
os.write(2, message)
sys.exit(int(status or 1))
"""


@dataclass(frozen=True)
class Outcome:
    """How a call ends: the exit status (None: the tool does not return) and the output."""

    status: int | None
    description: str
    message: str = ""


Action = Callable[[list[str]], Outcome]
"""What a tool does with its arguments when it behaves normally."""


class ToolServer:
    """Answers the stand-ins and records their calls."""

    def __init__(self, selector: selectors.BaseSelector, log: account.AccountWriter,
                 actions: Mapping[str, Action], behaviours: Mapping[str, str]) -> None:
        self._selector = selector
        self._account = log
        self._actions = actions
        self._behaviours: dict[str, Behaviour] = {}
        self._calls: dict[socket.socket, tuple[str, float]] = {}
        os.makedirs(paths.TOOLS)
        _link_commands()
        for name in TOOLS:
            self.set_behaviour(name, behaviours.get(name, "normal"))
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self._listener.bind(paths.TOOL_SOCKET)
        os.chmod(paths.TOOL_SOCKET, 0o666)  # an application under any account may call a tool
        self._listener.listen(64)
        selector.register(self._listener, selectors.EVENT_READ, self._accept)

    def set_behaviour(self, name: str, text: str) -> None:
        """Change what the tool `name` does; the file of an absent tool is removed."""
        behaviour = Behaviour.parse(name, text)
        self._behaviours[name] = behaviour
        place = f"{paths.TOOLS}/{name}"
        if behaviour.kind == "absent":
            if os.path.exists(place):
                os.unlink(place)
        elif not os.path.exists(place):
            with open(place, "w", encoding="utf-8") as script:
                script.write(_SCRIPT.format(python=sys.executable, socket=paths.TOOL_SOCKET,
                                            name=name))
                os.fchmod(script.fileno(), 0o755)

    def drop_connections(self) -> None:
        """Close the connections of the tools that a reset has killed."""
        for connection in list(self._calls):
            self._drop(connection)

    def _accept(self) -> None:
        connection, _ = self._listener.accept()
        self._selector.register(connection, selectors.EVENT_READ, lambda: self._called(connection))
        self._calls[connection] = ("", time.monotonic())

    def _called(self, connection: socket.socket) -> None:
        request = connection.recv(1 << 20)
        if not request:
            self._ended(connection)
            return
        words = [word.decode("utf-8", "backslashreplace") for word in request.split(b"\0")]
        name, arguments = words[0], words[1:]
        outcome = self._outcome(name, arguments)
        pid, _, _ = struct.unpack("3i", connection.getsockopt(
            socket.SOL_SOCKET, socket.SO_PEERCRED, struct.calcsize("3i")))
        self._account.record(
            account.TOOL, f"{shlex.join(words)}: {outcome.description}", tool=name,
            arguments=arguments, behaviour=self._behaviours[name].kind, status=outcome.status,
            pid=pid, caller=_caller(pid))
        self._calls[connection] = (shlex.join(words), time.monotonic())
        if outcome.status is not None:
            connection.send(f"{outcome.status} {outcome.message}".encode())
            self._drop(connection)

    def _outcome(self, name: str, arguments: list[str]) -> Outcome:
        behaviour = self._behaviours[name]
        if behaviour.kind == "fail":
            return Outcome(behaviour.status, f"told to fail, exit status {behaviour.status}",
                           f"{name}: failed\n")
        if behaviour.kind == "hang":
            return Outcome(None, "told to hang")
        if behaviour.kind == "return":
            return Outcome(0, "told to return without doing anything")
        return self._actions[name](arguments)

    def _ended(self, connection: socket.socket) -> None:
        call, since = self._calls[connection]
        self._drop(connection)
        if call:
            seconds = time.monotonic() - since
            self._account.record(account.SIMULATOR,
                                 f"{call}, which hung, was ended after {seconds:.1f} s",
                                 ended_call=call, seconds=seconds)

    def _drop(self, connection: socket.socket) -> None:
        del self._calls[connection]
        self._selector.unregister(connection)
        connection.close()


def killall(arguments: list[str]) -> Outcome:
    """Send a signal to all processes that have one of the given names."""
    number = int(signal.SIGTERM)
    quiet = False
    names: list[str] = []
    for argument in arguments:
        if argument == "-q":
            quiet = True
        elif argument.startswith("-"):
            found = _signal_number(argument[1:])
            if found is None:
                return bad_usage("killall", argument)
            number = found
        else:
            names.append(argument)
    if not names:
        return bad_usage("killall", "no name")
    killed = {name: _kill_all_of(name, number) for name in names}
    missing = [name for name, count in killed.items() if count == 0]
    message = "" if quiet else "".join(f"{name}: no process found\n" for name in missing)
    total = sum(killed.values())
    return Outcome(1 if missing else 0,
                   f"signal {number} to {total} process{'' if total == 1 else 'es'}", message)


def bad_usage(tool: str, what: str) -> Outcome:
    """The outcome of a call with arguments that the tool does not know."""
    return Outcome(1, f"bad usage: {what}", f"{tool}: bad usage: {what}\n")


def _link_commands() -> None:
    """Make a directory of links to all commands of the host that have no stand-in.

    It replaces the host's directories in the search path, so that an absent tool is not found.
    """
    os.mkdir(paths.COMMANDS)
    for directory in paths.COMMAND_PATH.split(":"):
        if not os.path.isdir(directory):
            continue
        for name in os.listdir(directory):
            place = f"{paths.COMMANDS}/{name}"
            if name not in TOOLS and not os.path.lexists(place):
                os.symlink(f"{directory}/{name}", place)


def _caller(pid: int) -> str:
    tool = processes.read_process(pid)
    parent = processes.read_process(tool.ppid) if tool else None
    return parent.comm if parent else ""


def _kill_all_of(name: str, number: int) -> int:
    targets = [process for process in processes.list_processes()
               if process.comm == name[:_COMM_LENGTH] and process.pid != 1 and process.state != "Z"]
    for target in targets:
        try:
            os.kill(target.pid, number)
        except ProcessLookupError:
            pass  # it has already ended
    return len(targets)


def _signal_number(text: str) -> int | None:
    if re.fullmatch("[0-9]{1,2}", text):
        return int(text)
    name = "SIG" + text.removeprefix("SIG")
    return int(signal.Signals[name]) if name in signal.Signals.__members__ else None
