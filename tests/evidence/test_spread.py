# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Work that is spread over processes: the order of its results, and what a lost one costs."""

from __future__ import annotations

import os
import signal

from pynx_watchdog_evidence.spread import open_pool


def work(number: int, bad: int) -> int | str:
    """Kill the process for a bad number, and fail for the next one."""
    if number == bad:
        os.kill(os.getpid(), signal.SIGKILL)
    return 100 // (number - bad - 1)


def results(bad: int) -> list[int | str]:
    """The results of jobs, or why they are lost."""
    def lost(job: tuple[int, int], why: str) -> int | str:
        return f"{job[0]}: {why}"

    with open_pool(None) as pool:
        return list(pool.results(work, ((number, bad) for number in range(40)), lost))


def test_results_come_in_the_order_of_the_jobs() -> None:
    assert results(-1000) == [100 // (number + 999) for number in range(40)]


def test_a_job_that_fails_or_kills_its_process_costs_only_itself() -> None:
    found = results(17)
    assert len(found) == 40
    assert found[17] == "17: the process that read it was killed"
    assert str(found[18]).startswith("18: it could not be read: ZeroDivisionError: ")
    assert [found[number] for number in range(40) if number not in (17, 18)] == [
        100 // (number - 18) for number in range(40) if number not in (17, 18)]
