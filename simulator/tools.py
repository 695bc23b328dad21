# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The stand-ins for the board's tools: what they are told to do, and the server behind them.

Each stand-in is the same small script under the tool's name. It passes its arguments to the board
and does what the board answers, so that all recording and deciding is done in one place.
"""

from __future__ import annotations

import os
import re
import selectors
import shlex
import socket
import struct
import sys
import time
from collections.abc import Callable, Mapping
from dataclasses import dataclass

from simulator import account, paths, processes
from simulator.errors import SimulatorError

TOOLS = ("reboot", "killall", "sfuflags", "fw_setenv")

_KINDS = ("normal", "fail", "hang", "absent", "return")
_BEHAVIOUR = re.compile(r"(?P<kind>[a-z]+)(?:=(?P<status>[0-9]{1,3}))?")

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
class Behaviour:
    """What a stand-in does when it is called; `status` is the exit status where it fails."""

    kind: str = "normal"
    status: int = 1

    @classmethod
    def parse(cls, tool: str, text: str) -> "Behaviour":
        """The behaviour named by e.g. "hang" or "fail=3"; SimulatorError where there is none."""
        if tool not in TOOLS:
            raise SimulatorError(f"there is no tool '{tool}' to stand in for; "
                                 f"there are {', '.join(TOOLS)}")
        match = _BEHAVIOUR.fullmatch(text)
        if match is None or match["kind"] not in _KINDS or (match["kind"] == "return"
                                                            and tool != "reboot"):
            raise SimulatorError(f"'{text}' is no behaviour of {tool}: give normal, fail, fail=N, "
                                 "hang or absent, for reboot also return")
        if match["status"] is None:
            return cls(match["kind"])
        status = int(match["status"])
        if match["kind"] != "fail" or not 1 <= status <= 255:
            raise SimulatorError(f"'{text}' is no behaviour of {tool}: only fail takes a number, "
                                 "the exit status from 1 to 255")
        return cls("fail", status)


@dataclass(frozen=True)
class Outcome:
    """How a call ends: the exit status (None: the tool does not return) and what it says."""

    status: int | None
    description: str
    message: str = ""


Action = Callable[[list[str]], Outcome]
"""What a tool really does when it behaves normally, given its arguments."""


class ToolServer:
    """Answers the stand-ins and records their calls."""

    def __init__(self, selector: selectors.BaseSelector, log: account.AccountWriter,
                 actions: Mapping[str, Action], behaviours: Mapping[str, str]) -> None:
        self._selector = selector
        self._account = log
        self._actions = actions
        self._behaviours: dict[str, Behaviour] = {}
        self._calls: dict[socket.socket, tuple[str, float]] = {}
        os.makedirs(paths.TOOLS, exist_ok=True)
        for name in TOOLS:
            self.set_behaviour(name, behaviours.get(name, "normal"))
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self._listener.bind(paths.TOOL_SOCKET)
        os.chmod(paths.TOOL_SOCKET, 0o666)  # an application of any account may call a tool
        self._listener.listen(64)
        selector.register(self._listener, selectors.EVENT_READ, self._accept)

    def set_behaviour(self, name: str, text: str) -> None:
        """Change what `name` does; an absent tool is really not there."""
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
        """Forget the tools that were running when the board was reset."""
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


def _caller(pid: int) -> str:
    tool = processes.read_process(pid)
    parent = processes.read_process(tool.ppid) if tool else None
    return parent.comm if parent else ""
