# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The system log: receives and decodes what the C library's syslog() sends to /dev/log."""

from __future__ import annotations

import os
import re
import selectors
import socket
from dataclasses import dataclass

from simulator.common import account

DEVICE = "/dev/log"
PRIORITIES = ("emerg", "alert", "crit", "err", "warning", "notice", "info", "debug")
_FACILITIES = {0: "kern", 1: "user", 2: "mail", 3: "daemon", 4: "auth", 5: "syslog", 10: "authpriv",
               **{16 + number: f"local{number}" for number in range(8)}}
_DEFAULT_PRIORITY = 13  # user.notice, which system loggers use for a message without a number

# <PRI>Mmm dd hh:mm:ss ident[pid]: text
_MESSAGE = re.compile(
    rb"(?:<(?P<priority>[0-9]{1,3})>)?"
    rb"(?:[A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} )?"
    rb"(?:(?P<ident>[^\s\[:]+)(?:\[(?P<pid>[0-9]+)\])?: ?)?"
    rb"(?P<text>.*)", re.DOTALL)


@dataclass(frozen=True)
class Message:
    """A message; `raw` is the text as it was sent, with its trailing newline if it has one."""

    facility: str
    priority: str
    ident: str
    pid: int | None
    text: str
    raw: str


def decode(datagram: bytes) -> Message:
    """Decode a datagram; a missing part gets the usual default."""
    match = _MESSAGE.fullmatch(datagram.rstrip(b"\0"))
    assert match is not None  # every part of the pattern is optional
    number = int(match["priority"] or _DEFAULT_PRIORITY)
    raw = match["text"].decode("utf-8", "backslashreplace")
    return Message(
        facility=_FACILITIES.get(number >> 3, str(number >> 3)), priority=PRIORITIES[number & 7],
        ident=(match["ident"] or b"").decode("utf-8", "backslashreplace"),
        pid=int(match["pid"]) if match["pid"] else None, text=raw.rstrip("\n"), raw=raw)


class SystemLogServer:
    """The board's /dev/log."""

    def __init__(self, selector: selectors.BaseSelector, log: account.AccountWriter) -> None:
        self._account = log
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_NONBLOCK)
        self._socket.bind(DEVICE)
        os.chmod(DEVICE, 0o666)
        selector.register(self._socket, selectors.EVENT_READ, self.drain)

    def drain(self) -> None:
        """Record every message that has arrived."""
        while True:
            try:
                datagram = self._socket.recv(1 << 16)
            except BlockingIOError:
                return
            message = decode(datagram)
            self._account.record(account.SYSTEM_LOG, message.text, priority=message.priority,
                                 facility=message.facility, ident=message.ident,
                                 sender=message.pid, raw=message.raw)
