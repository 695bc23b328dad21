# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Many supervisors side by side, each restarting its application again and again."""

from __future__ import annotations

from simulator import wait_until

from boards import ATTEMPTS, Board

SUPERVISORS = 10
EXITS = 25
WARM_UP = 5


def test_nothing_grows_with_restarts(board: Board, sample: str, sanitized: bool) -> None:
    running = board("wait", options=["--rotateOnly"])
    # On a busy machine an application may not be up within the 500 ms of a first start.
    running.run(["sh", "-c", f"""
        for i in $(seq {SUPERVISORS}); do
            for attempt in $(seq {ATTEMPTS}); do
                /supervisor/watchdog --rotateOnly --logfileName /tmp/log/$i.log \\
                    --logfileSize 1M --app {sample} print again
                [ $? -eq 1 ] || break
            done >/dev/null 2>&1 </dev/null &
        done"""])
    logs = [running.host_path(f"/tmp/log/{i}.log") for i in range(1, SUPERVISORS + 1)]

    def starts() -> list[int]:
        return [log.read_bytes().count(b"Starting app") if log.exists() else 0 for log in logs]

    def at_rest() -> dict[int, tuple[int, int, int]]:
        """By supervisor between two runs: descriptors, threads, private memory in kB.

        While an application starts and runs there are pipes to it as well. Looked for twice, since
        one may start or end meanwhile. The board's own supervisor, whose application stays, is
        not among them.
        """
        script = """
            for pid in $(pgrep -x watchdog); do
                pgrep -P $pid >/dev/null && continue
                row="$pid $(ls /proc/$pid/fd | wc -l) $(ls /proc/$pid/task | wc -l) \
                    $(awk '/^Private_Dirty/ {print $2}' /proc/$pid/smaps_rollup)"
                pgrep -P $pid >/dev/null || echo $row
            done"""
        lines = running.run(["sh", "-c", script]).stdout.split(b"\n")
        rows = [[int(word) for word in line.split()] for line in lines if len(line.split()) == 4]
        return {pid: (descriptors, threads, memory) for pid, descriptors, threads, memory in rows}

    def total_memory(seen: dict[int, tuple[int, int, int]]) -> int:
        return sum(memory for _, _, memory in seen.values())

    wait_until(lambda: min(starts()) >= WARM_UP, "all that is made once is made", timeout=600)
    before: dict[int, tuple[int, int, int]] = {}

    def all_seen() -> bool:
        before.update(at_rest())
        return len(before) == SUPERVISORS

    wait_until(all_seen, "all were seen at rest", timeout=120)
    wait_until(lambda: min(starts()) >= WARM_UP + EXITS, "all have seen their exits", timeout=900)
    after: dict[int, tuple[int, int, int]] = {}

    def all_level() -> bool:
        after.update({pid: row for pid, row in at_rest().items()
                      if row[0] <= before[pid][0] and row[1] <= before[pid][1]})
        return len(after) == SUPERVISORS

    wait_until(all_level, "all hold no more descriptors and threads than before", timeout=120)
    if not sanitized:
        assert total_memory(after) <= total_memory(before) + 64 * SUPERVISORS
