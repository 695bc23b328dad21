# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Spreads work over the processors of this machine, or over machines with Dask's engine."""

from __future__ import annotations

import importlib
import logging
import os
import shutil
import signal
import tempfile
from collections import deque
from collections.abc import Callable, Iterable, Iterator
from concurrent.futures import BrokenExecutor, CancelledError, Executor, Future, ProcessPoolExecutor
from contextlib import contextmanager
from pathlib import Path
from typing import Any, TypeVar

AHEAD = 8  # jobs for each processor that are given out before their results are taken
REACHED_WITHIN = 10  # seconds
WORKERS_WITHIN = 10  # seconds
CHECK = 15  # seconds without a result, after which it is looked whether there is a worker

Result = TypeVar("Result")
Job = TypeVar("Job", bound=tuple[Any, ...])


class Failed(Exception):
    """The work cannot be done; the text says why."""


class Pool:
    """Processes that do jobs: as many at once as there are processors."""

    def __init__(self, executor: Executor, size: int,
                 has_workers: Callable[[], bool] = lambda: True) -> None:
        self._executor = executor
        self._size = size
        self._has_workers = has_workers

    def results(self, work: Callable[..., Result], jobs: Iterable[Job],
                lost: Callable[[Job, str], Result]) -> Iterator[Result]:
        """What `work` returns for each of the jobs, in their order.

        Where it cannot be done it is what `lost` returns, which is told why. Raises Failed.
        """
        waiting: deque[tuple[Job, Future[Result]]] = deque()
        for job in jobs:
            waiting.append((job, self._submit(work, job)))
            if len(waiting) >= self._size * AHEAD:
                yield from self._next(work, waiting, lost)
        while waiting:
            yield from self._next(work, waiting, lost)

    def close(self) -> None:
        """End what is under way."""
        self._executor.shutdown(cancel_futures=True)

    def _submit(self, work: Callable[..., Result], job: Job) -> Future[Result]:
        try:
            return self._executor.submit(work, *job)
        except BrokenExecutor as error:  # as if it had broken now
            future: Future[Result] = Future()
            future.set_exception(error)
            return future

    def _next(self, work: Callable[..., Result], waiting: deque[tuple[Job, Future[Result]]],
              lost: Callable[[Job, str], Result]) -> Iterator[Result]:
        job, future = waiting.popleft()
        try:
            yield self._outcome(job, future, lost)
        except BrokenExecutor:
            # A process was killed, which costs all jobs that were given out. One after the other,
            # they show which of them it was.
            again = [job, *(job for job, _ in waiting)]
            waiting.clear()
            for job in again:
                self._executor = _processes(1)
                try:
                    yield self._outcome(job, self._submit(work, job), lost)
                except BrokenExecutor:
                    yield lost(job, "the process that read it was killed")
                self._executor.shutdown()
            self._executor = _processes(self._size)

    def _outcome(self, job: Job, future: Future[Result],
                 lost: Callable[[Job, str], Result]) -> Result:
        try:
            return self._result(future)
        except (BrokenExecutor, Failed):
            raise
        except Exception as error:  # whatever it is, it costs this job alone
            return lost(job, f"it could not be read: {type(error).__name__}: {error}")

    def _result(self, future: Future[Result]) -> Result:
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
    pool = Pool(_processes(size), size)
    try:
        yield pool
    finally:
        pool.close()


def _processes(number: int) -> Executor:
    # The key that interrupts goes to all processes; only the first one has to act on it.
    return ProcessPoolExecutor(number, initializer=signal.signal,
                               initargs=(signal.SIGINT, signal.SIG_IGN))


@contextmanager
def _workers(address: str) -> Iterator[Pool]:
    try:
        distributed: Any = importlib.import_module("distributed")
    except ImportError as error:
        raise Failed("--scheduler needs Dask: install python3-distributed") from error
    # On a busy machine Dask drops a future when it closes, of which asyncio would complain.
    logging.getLogger("asyncio").setLevel(logging.CRITICAL)
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
