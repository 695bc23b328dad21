# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The event loop of the box, with descriptors of the test."""

import os
import selectors
import socket
from collections.abc import Iterator
from contextlib import ExitStack

import pytest

from simulator.box.init import dispatch


@pytest.fixture
def ready() -> Iterator[list[socket.socket]]:
    """Two connections that both have something to read."""
    with ExitStack() as stack:
        connections = []
        for _ in range(2):
            ours, theirs = (stack.enter_context(end) for end in socket.socketpair())
            theirs.send(b"x")
            connections.append(ours)
        yield connections


def test_everything_that_is_ready_is_called(ready: list[socket.socket]) -> None:
    read = []
    with selectors.DefaultSelector() as selector:
        for connection in ready:
            selector.register(connection, selectors.EVENT_READ,
                              lambda connection=connection: read.append(connection.recv(1)))
        dispatch(selector, None)
    assert read == [b"x", b"x"]


def test_what_was_dropped_in_the_same_round_is_left_alone(ready: list[socket.socket]) -> None:
    called = []
    with selectors.DefaultSelector() as selector, socket.socket() as new:
        def replace_the_other(connection: socket.socket) -> None:
            called.append(connection)
            other, = set(ready) - {connection}
            selector.unregister(other)
            os.dup2(new.fileno(), other.fileno())
            selector.register(other.fileno(), selectors.EVENT_READ, pytest.fail)
        for connection in ready:
            selector.register(connection, selectors.EVENT_READ,
                              lambda connection=connection: replace_the_other(connection))
        dispatch(selector, None)
    assert len(called) == 1
