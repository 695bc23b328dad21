# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Spreads work over the processors of this machine, or over machines with Dask's engine."""

from __future__ import annotations

import importlib
import os
import shutil
import signal
import tempfile
from collections import deque
from collections.abc import Callable, Iterable, Iterator
from concurrent.futures import BrokenExecutor, CancelledError, Executor, ProcessPoolExecutor
from contextlib import contextmanager
from pathlib import Path
from typing import Any, TypeVar

AHEAD = 8  # jobs for each processor that are given out before their results are taken
REACHED_WITHIN = 10  # seconds
WORKERS_WITHIN = 10  # seconds
CHECK = 15  # seconds without a result, after which it is looked whether there is a worker

Result = TypeVar("Result")


class Failed(Exception):
    """The work cannot be done; the text says why."""


class Pool:
    """Processes that do jobs: as many at once as there are processors."""

    def __init__(self, executor: Executor, size: int, has_workers: Callable[[], bool]) -> None:
        self._executor = executor
        self._size = size
        self._has_workers = has_workers

    def results(self, work: Callable[..., Result],
                jobs: Iterable[tuple[Any, ...]]) -> Iterator[Result]:
        """What `work` returns for each of the jobs, in their order. Raises Failed."""
        waiting: deque[Any] = deque()
        try:
            for job in jobs:
                waiting.append(self._executor.submit(work, *job))
                if len(waiting) >= self._size * AHEAD:
                    yield self._result(waiting.popleft())
            while waiting:
                yield self._result(waiting.popleft())
        except BrokenExecutor as error:
            raise Failed("a process that reads was killed") from error

    def _result(self, future: Any) -> Any:
        while True:
            try:
                return future.result(timeout=CHECK)
            except TimeoutError:
                if not self._has_workers():
                    raise Failed("the scheduler has no worker any more") from None
            except CancelledError:
                raise Failed("the scheduler is gone") from None


@contextmanager
def open_pool(scheduler: str | None) -> Iterator[Pool]:
    """The processes of this machine, or the workers of the scheduler at an address.

    Raises Failed.
    """
    if scheduler is not None:
        with _workers(scheduler) as pool:
            yield pool
        return
    size = len(os.sched_getaffinity(0))
    # The key that interrupts goes to all processes; only the first one has to act on it.
    executor = ProcessPoolExecutor(size, initializer=signal.signal,
                                   initargs=(signal.SIGINT, signal.SIG_IGN))
    try:
        yield Pool(executor, size, lambda: True)
    finally:
        executor.shutdown(cancel_futures=True)


@contextmanager
def _workers(address: str) -> Iterator[Pool]:
    try:
        distributed: Any = importlib.import_module("distributed")
    except ImportError as error:
        raise Failed("--scheduler needs Dask: install python3-distributed") from error
    try:
        client = distributed.Client(address, timeout=REACHED_WITHIN, set_as_default=False)
    except (OSError, ValueError) as error:
        raise Failed(f"the scheduler {address} cannot be reached: {error}") from error
    try:
        try:
            client.wait_for_workers(1, timeout=WORKERS_WITHIN)
        except TimeoutError as error:
            raise Failed(f"the scheduler {address} has no worker") from error
        _send_reader(client)
        yield Pool(client.get_executor(pure=False), sum(client.nthreads().values()),
                   lambda: bool(client.scheduler_info()["workers"]))
    finally:
        client.close()


def _send_reader(client: Any) -> None:
    """Send this package to the workers, so that they need nothing but Dask."""
    package = Path(__file__).parent
    with tempfile.TemporaryDirectory() as place:
        archive = shutil.make_archive(f"{place}/{package.name}", "zip", package.parent,
                                      package.name)
        client.upload_file(archive)
