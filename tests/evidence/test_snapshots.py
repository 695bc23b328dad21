# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the reader finds in the snapshots of the system."""

from __future__ import annotations

from datetime import time

from pynx_watchdog_evidence.snapshots import looks_like_snapshots, snapshots

PROCPS = """\
top - 11:45:32 up 10:52,  0 user,  load average: 0.45, 15.43, 10.72
Tasks: 123 total,   6 running, 117 sleeping,   0 stopped,   0 zombie
%Cpu(s): 90.3 us,  9.7 sy,  0.0 ni,  0.0 id,  0.0 wa,  0.0 hi,  0.0 si,  0.0 st
MiB Mem :  24057.3 total,   1000.0 free,   3000.0 used,  20000.0 buff/cache

    PID USER      PR  NI    VIRT    RES    SHR S  %CPU  %MEM     TIME+ COMMAND
   7470 root      20   0 1234568 511272  11324 R  31.6   2.1   1:39.72 render main
      1 root      20   0   39496   9160   1234 S   0.0   0.0   4:31.00 init

               total        used        free      shared  buff/cache   available
Mem:        24634676     3071232     1024000       12345    20480000    21000000

"""
BUSYBOX = """\
Mem: 205432K used, 18972K free, 1204K shrd, 3344K buff, 120544K cached
CPU:  12% usr   4% sys   0% nic  83% idle   0% io   0% irq   0% sirq
Load average: 0.10 0.20 0.30 1/85 1234
  PID  PPID USER     STAT   VSZ %VSZ CPU %CPU COMMAND
  321     1 root     S     5432   2%   1  12% /usr/bin/product --full
    1     0 root     S     1744   1%   0   0% init

              total        used        free
"""


def test_snapshots_of_procps_are_read() -> None:
    first, second = snapshots(PROCPS + PROCPS.replace("11:45:32", "11:45:42"))
    assert (first.line, first.clock, first.load_average) == (1, time(11, 45, 32),
                                                             [0.45, 15.43, 10.72])
    assert (second.line, second.clock) == (13, time(11, 45, 42))
    assert [(row["pid"], row["cpu"], row["command"]) for row in first.processes] \
        == [(7470, 31.6, "render main"), (1, 0.0, "init")]
    assert first.processes[0]["res"] == "511272"


def test_snapshots_of_busybox_are_read() -> None:
    [found] = snapshots(BUSYBOX)
    assert (found.clock, found.load_average) == (None, [0.1, 0.2, 0.3])
    assert [(row["pid"], row["cpu"], row["command"]) for row in found.processes] \
        == [(321, 12.0, "/usr/bin/product --full"), (1, 0.0, "init")]


def test_a_snapshot_that_is_cut_is_read_as_far_as_it_goes() -> None:
    for length in range(len(PROCPS)):
        for found in snapshots(PROCPS[:length]):
            assert len(found.processes) <= 2


def test_only_a_file_that_begins_so_has_snapshots() -> None:
    assert looks_like_snapshots(PROCPS) and looks_like_snapshots(BUSYBOX)
    assert not looks_like_snapshots("output\n" + PROCPS)
