# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""A fleet that is read by the workers of a scheduler of Dask."""

from __future__ import annotations

import json
import os
import socket
import sqlite3
import subprocess
import sys
import time
from collections.abc import Iterator
from contextlib import ExitStack
from importlib import import_module
from pathlib import Path
from typing import Any

import pytest

from fleets import make_fleet
from test_command_line import PROGRAM, run

BOUND = 60  # seconds; for what takes a moment on an idle machine


class Cluster:
    """A scheduler and workers, as processes of this machine. The workers do not know the reader."""

    def __init__(self, place: Path, processes: ExitStack) -> None:
        self._place = place
        self._processes = processes
        told = place / "scheduler.json"
        self._start("scheduler", "--port", "0", "--scheduler-file", told)
        self.address = str(self._wait(lambda: json.loads(told.read_text())["address"]))

    def start_workers(self, number: int) -> None:
        """Start workers, and wait until the scheduler knows them."""
        for _ in range(number):
            self._start("worker", self.address, "--nthreads", "1", "--no-nanny",
                        "--local-directory", self._place)
        with self.client() as client:
            client.wait_for_workers(number, timeout=BOUND)

    def client(self) -> Any:
        """A client of the scheduler."""
        return import_module("distributed").Client(self.address, set_as_default=False)

    def _start(self, kind: str, *arguments: str | Path) -> None:
        process = subprocess.Popen(
            ["/usr/bin/python3", "-m", f"distributed.cli.dask_{kind}", "--host", "127.0.0.1",
             "--no-dashboard", *arguments],
            cwd=self._place, stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self._processes.callback(process.wait)
        self._processes.callback(process.kill)

    def _wait(self, condition: Any) -> Any:
        until = time.monotonic() + BOUND
        while True:
            try:
                return condition()
            except (OSError, ValueError):  # the file is not there, or not whole
                assert time.monotonic() < until, "the scheduler did not start"
                time.sleep(0.05)


@pytest.fixture(name="cluster")
def fixture_cluster(tmp_path: Path) -> Iterator[Cluster]:
    """A scheduler without workers."""
    place = tmp_path / "cluster"
    place.mkdir()
    with ExitStack() as processes:
        yield Cluster(place, processes)


def dump(database: Path) -> list[str]:
    """All that is in a database."""
    return list(sqlite3.connect(database).iterdump())


@pytest.mark.filterwarnings("ignore:make_current")
def test_the_result_is_the_same_with_two_workers(cluster: Cluster, tmp_path: Path) -> None:
    fleet = tmp_path / "fleet"
    make_fleet(fleet, 100)
    (fleet / "report-a-1795341605000.tar.gz").write_bytes(b"\x1f\x8b broken")
    cluster.start_workers(2)
    here = run(fleet)
    there = run("--scheduler", cluster.address, fleet)
    assert (there.returncode, there.stdout, there.stderr) == (0, here.stdout, here.stderr)
    assert len(here.stdout) > 1000 and "report-a-1795341605000.tar.gz: not whole: " in here.stderr

    with cluster.client() as client:
        modules = client.run(lambda: list(sys.modules))
    assert len(modules) == 2
    assert all("pynx_watchdog_evidence.reports" in found for found in modules.values())

    assert run("--database", tmp_path / "here", fleet).returncode == 0
    assert run("--database", tmp_path / "there", "--scheduler", cluster.address,
               fleet).returncode == 0
    assert dump(tmp_path / "here") == dump(tmp_path / "there")
    assert len(dump(tmp_path / "here")) > 1000


def test_a_scheduler_without_workers_is_an_error(cluster: Cluster, tmp_path: Path) -> None:
    make_fleet(tmp_path / "fleet", 1)
    result = run("--scheduler", cluster.address, tmp_path / "fleet")
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr.endswith(
        f"pynx-watchdog-evidence: the scheduler {cluster.address} has no worker\n")


def test_a_scheduler_that_is_not_there_is_an_error(tmp_path: Path) -> None:
    make_fleet(tmp_path / "fleet", 1)
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))  # and does not listen, so that nobody answers
        address = f"tcp://127.0.0.1:{taken.getsockname()[1]}"
        result = run("--scheduler", address, "--database", tmp_path / "db", tmp_path / "fleet")
    assert (result.returncode, result.stdout) == (1, "")
    assert f"pynx-watchdog-evidence: the scheduler {address} cannot be reached" in result.stderr
    assert "Traceback" not in result.stderr
    assert dump(tmp_path / "db") == dump(tmp_path / "empty"), "something was written"


def test_an_error_says_which_package_is_missing(tmp_path: Path) -> None:
    (tmp_path / "distributed.py").write_text("raise ModuleNotFoundError('distributed')")
    make_fleet(tmp_path / "fleet", 1)
    result = subprocess.run(
        [PROGRAM, "--scheduler", "tcp://127.0.0.1:1", tmp_path / "fleet"], capture_output=True,
        text=True, check=False, timeout=BOUND, env={**os.environ, "PYTHONPATH": str(tmp_path)})
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == ("pynx-watchdog-evidence: --scheduler needs Dask: "
                             "install python3-distributed\n")


@pytest.mark.parametrize("address", ["", "127.0.0.1", "host:", "bla://host:1", "tcp://host:1/x"])
def test_an_address_that_is_none_is_wrong_usage(address: str, tmp_path: Path) -> None:
    result = run("--scheduler", address, tmp_path)
    assert (result.returncode, result.stdout) == (2, "")
    assert "is no address such as tcp://host:8786" in result.stderr
