# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The board's end of the simulated watchdog device.

A connection stands for an open descriptor. The kernel keeps the supervisor's copies of it. The
connection ends when the last copy is closed, by close, by exec or by the end of a process.
"""

from __future__ import annotations

import os
import selectors
import socket
import struct
import time

from simulator.box.watchdog_driver import IOCTLS, Driver
from simulator.common import account, paths

# The layout is that of the preloaded library. The first eight bytes show that it is a request and
# no written data.
_REQUEST = struct.Struct("=8sIi")
_ANSWER = struct.Struct("=ii")
_REQUEST_MARK = b"\0wdioctl"


class WatchdogServer:
    """Passes what the preloaded library sends on to the driver, and records it."""

    def __init__(self, selector: selectors.BaseSelector, log: account.AccountWriter,
                 driver: Driver) -> None:
        self._selector = selector
        self._account = log
        self._driver = driver
        self._connections: set[socket.socket] = set()
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self._listener.bind(paths.WATCHDOG_SOCKET)
        os.chmod(paths.WATCHDOG_SOCKET, 0o600)
        self._listener.listen(8)
        selector.register(self._listener, selectors.EVENT_READ, self._accept)

    def drop_connections(self) -> None:
        """Close the connections of the processes that a reset has killed."""
        for connection in list(self._connections):
            self._drop(connection)

    def drain(self) -> None:
        """Read what ended processes have sent before their end."""
        for connection in list(self._connections):
            connection.setblocking(False)
            try:
                while connection in self._connections:
                    self._receive(connection)
            except BlockingIOError:
                connection.setblocking(True)

    def _accept(self) -> None:
        connection, _ = self._listener.accept()
        error = self._driver.open(time.monotonic())
        self._record("open", f"opened: {os.strerror(error)}" if error else
                     f"opened, armed with {self._driver.timeout} s", error=error)
        self._answer(connection, error, 0)
        if error:
            connection.close()
            return
        self._connections.add(connection)
        self._selector.register(connection, selectors.EVENT_READ,
                                lambda: self._receive(connection))

    def _receive(self, connection: socket.socket) -> None:
        try:
            message = connection.recv(4096)
        except ConnectionResetError:
            message = b""
        now = time.monotonic()
        if not message:
            self._driver.close(now)
            self._drop(connection)
            self._record("close", "closed, goes on counting down" if self._driver.armed else
                         "closed, not armed any more")
        elif len(message) == _REQUEST.size and message.startswith(_REQUEST_MARK):
            self._ioctl(connection, message, now)
        else:
            self._driver.write(message, now)
            self._record("write", f"written to: {message!r}", data=message.decode("latin-1"))

    def _ioctl(self, connection: socket.socket, message: bytes, now: float) -> None:
        _, request, value = _REQUEST.unpack(message)
        answer = self._driver.ioctl(request, value, now)
        name = IOCTLS.get(request, hex(request))
        result = f": {os.strerror(answer.error)}" if answer.error else ""
        if not answer.error and answer.value != value:
            result = f" → {answer.value}"
        argument = "" if name == "WDIOC_KEEPALIVE" else f" {value}"
        self._record("ioctl", name + argument + result, name=name, argument=value,
                     result=answer.value, error=answer.error)
        self._answer(connection, answer.error, answer.value)

    def _answer(self, connection: socket.socket, error: int, value: int) -> None:
        try:
            connection.send(_ANSWER.pack(error, value))
        except (BrokenPipeError, ConnectionResetError):
            pass  # the caller was killed while it waited

    def _drop(self, connection: socket.socket) -> None:
        self._connections.discard(connection)
        self._selector.unregister(connection)
        connection.close()

    def _record(self, operation: str, text: str, **fields: object) -> None:
        self._account.record(account.WATCHDOG_DEVICE, text, operation=operation, **fields)
