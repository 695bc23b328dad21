# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Many supervisors side by side, each restarting its application again and again."""

from __future__ import annotations

from simulator import wait_until

SUPERVISORS = 40
EXITS = 25
WARM_UP = 5


def test_nothing_grows_with_restarts(board, sample, sanitized):
    running = board("wait", options=["--rotateOnly"])
    running.run(["sh", "-c", f"""
        for i in $(seq {SUPERVISORS}); do
            /supervisor/watchdog --rotateOnly --logfileName /tmp/log/$i.log --logfileSize 1M \\
                --app {sample} print again >/dev/null 2>&1 </dev/null &
        done"""])
    logs = [running.host_path(f"/tmp/log/{i}.log") for i in range(1, SUPERVISORS + 1)]

    def starts() -> list[int]:
        return [log.read_bytes().count(b"Starting app") if log.exists() else 0 for log in logs]

    def resources() -> dict[int, tuple[int, int, int]]:
        """By supervisor: descriptors, threads, private memory in kB.

        All of them are the board's own children by now; a child that one of them has forked and
        that has not yet become its application is not.
        """
        script = """
            for pid in $(pgrep -P 1 -x watchdog); do
                echo $pid $(ls /proc/$pid/fd | wc -l) $(ls /proc/$pid/task | wc -l) \\
                    $(awk '/^Private_Dirty/ {print $2}' /proc/$pid/smaps_rollup)
            done"""
        lines = running.run(["sh", "-c", script]).stdout.split(b"\n")
        rows = [[int(word) for word in line.split()] for line in lines if len(line.split()) == 4]
        return {pid: (descriptors, threads, memory) for pid, descriptors, threads, memory in rows}

    wait_until(lambda: min(starts()) >= WARM_UP, "everything that is made once is made", timeout=600)
    before = resources()
    assert len(before) == SUPERVISORS + 1
    wait_until(lambda: min(starts()) >= WARM_UP + EXITS, "all have seen their exits", timeout=900)
    after = resources()
    assert after.keys() == before.keys()

    # A snapshot may fall into a start, when three pipes are open; what leaks shows in the sum.
    def total(snapshot: dict[int, tuple[int, int, int]], column: int) -> int:
        return sum(row[column] for row in snapshot.values())

    assert total(after, 0) <= total(before, 0) + SUPERVISORS
    assert total(after, 1) <= total(before, 1)
    if not sanitized:
        assert total(after, 2) <= total(before, 2) + 64 * SUPERVISORS
