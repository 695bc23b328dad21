# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Requests from the outer process to PID 1 of the box, and their answers.

A request and its answer are one datagram of JSON each, over a socket pair. Descriptors may come
with them. Every request is answered at once. A command that runs in the box reports its end through
a pipe of its own.
"""

from __future__ import annotations

import json
import os
import select
import selectors
import socket
from collections.abc import Callable, Mapping
from dataclasses import dataclass
from typing import Any

from simulator.common import SimulatorError

_LARGEST = 1 << 18
_MOST_DESCRIPTORS = 8
_ANSWER_WITHIN = 60.0


@dataclass
class Answer:
    """The answer to a request."""

    values: dict[str, Any]
    descriptors: list[int]


@dataclass(frozen=True)
class Process:
    """A process, with the process ids that it has in the box."""

    pid: int
    ppid: int
    comm: str
    state: str
    command_line: list[str]


class Client:
    """The outer process's end."""

    def __init__(self, connection: socket.socket) -> None:
        self._connection = connection

    def request(self, command: str, descriptors: tuple[int, ...] = (), **values: Any) -> Answer:
        """Send a request and wait for the answer.

        Raises EOFError if the board has ended, the OSError that the board got, or SimulatorError.
        """
        data = json.dumps({"command": command, **values}).encode()
        try:
            socket.send_fds(self._connection, [data], list(descriptors))
            if not select.select([self._connection], [], [], _ANSWER_WITHIN)[0]:
                raise SimulatorError(f"the board does not answer the request '{command}'")
            data, received, _, _ = socket.recv_fds(self._connection, _LARGEST, _MOST_DESCRIPTORS)
        except (BrokenPipeError, ConnectionResetError):
            data = b""
        if not data:
            raise EOFError(command)
        answer = json.loads(data)
        if "errno" in answer:
            raise OSError(answer["errno"], os.strerror(answer["errno"]), answer["subject"])
        if "error" in answer:
            raise SimulatorError(answer["error"])
        return Answer(answer, received)

    def close(self) -> None:
        """Close the connection."""
        self._connection.close()


Handler = Callable[[dict[str, Any], list[int]], Answer | None]


class Server:
    """The board's end, which calls the handler that a request names."""

    def __init__(self, selector: selectors.BaseSelector, connection: socket.socket,
                 handlers: Mapping[str, Handler], hung_up: Callable[[], None]) -> None:
        self._connection = connection
        self._handlers = handlers
        self._hung_up = hung_up
        selector.register(connection, selectors.EVENT_READ, self._receive)

    def _receive(self) -> None:
        data, descriptors, _, _ = socket.recv_fds(self._connection, _LARGEST, _MOST_DESCRIPTORS)
        if not data:
            self._hung_up()
            return
        request = json.loads(data)
        answer = Answer({}, [])
        try:
            handler = self._handlers[request.pop("command")]
            answer = handler(request, descriptors) or answer
        except OSError as error:
            answer.values = {"errno": error.errno, "subject": error.filename}
        except SimulatorError as error:
            answer.values = {"error": str(error)}
        try:
            socket.send_fds(self._connection, [json.dumps(answer.values).encode()],
                            answer.descriptors)
        except (BrokenPipeError, ConnectionResetError):
            pass  # the next read finds that the outer process has gone
        for descriptor in descriptors + answer.descriptors:
            os.close(descriptor)
