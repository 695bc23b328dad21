# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Nothing of a box is left after its end, whatever the reason of the end."""

import os
import signal
import subprocess
import sys
from pathlib import Path

import pytest

from simulator import Bind, SimulatorError, wait_until
from simulator.boxes import Trace

from simulated_devices import DeviceFactory
from standin import WAIT, Script

_PROJECT = Path(__file__).resolve().parents[2]
_BUSY = "trap '' TERM HUP INT; setsid sleep 601 & sleep 602 & echo up; " + WAIT


def wait_until_gone(trace: Trace) -> None:
    wait_until(lambda: not trace.remains(), "nothing left of the box")


def test_nothing_is_left_after_stop(device: DeviceFactory, script: Script) -> None:
    running = device(script(_BUSY))
    running.wait_for("supervisor", "up")
    trace = running.trace
    assert trace and len(trace.remains()) == 4  # PID 1, the program and its two children
    running.stop()
    assert trace.remains() == []
    running.stop()  # stop() may be called again
    assert running.events("simulator", "switched off")


def start_in_another_process(script: Script, tmp_path: Path) -> tuple[subprocess.Popen[bytes], int]:
    """A process that owns a running device, and the id of the process that holds the box."""
    outer = subprocess.Popen(
        [sys.executable, "-B", "-c", f"""
import os, sys
sys.path.insert(0, {str(_PROJECT)!r})
from simulator import Device
device = Device({str(script(_BUSY))!r}, {str(tmp_path / 'device')!r}, watchdog_device=False)
device.start()
device.wait_for("supervisor", "up")
print(device._box.pid, flush=True)
os.read(0, 1)
"""], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    assert outer.stdout is not None
    return outer, int(outer.stdout.readline())


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGTERM])
def test_nothing_is_left_when_the_outer_process_is_killed(script: Script, tmp_path: Path,
                                                          number: signal.Signals) -> None:
    outer, holder = start_in_another_process(script, tmp_path)
    trace = Trace(holder, tmp_path)
    assert len(trace.remains()) == 4
    outer.send_signal(number)
    outer.communicate()
    wait_until_gone(trace)
    trace.close()


def test_nothing_is_left_even_if_the_box_is_stuck(script: Script, tmp_path: Path) -> None:
    outer, holder = start_in_another_process(script, tmp_path)
    trace = Trace(holder, tmp_path)
    init = int(Path(f"/proc/{holder}/task/{holder}/children").read_text(encoding="ascii"))
    os.kill(init, signal.SIGSTOP)
    outer.kill()
    outer.communicate()
    wait_until_gone(trace)
    trace.close()


def test_nothing_is_left_when_the_holder_of_the_box_is_killed(device: DeviceFactory,
                                                              script: Script) -> None:
    running = device(script(_BUSY))
    running.wait_for("supervisor", "up")
    trace = running.trace
    assert trace and running._box
    os.kill(running._box.pid, signal.SIGKILL)
    wait_until_gone(trace)
    with pytest.raises(SimulatorError):
        running.processes()


def test_a_failed_start_leaves_nothing(device: DeviceFactory, script: Script,
                                       tmp_path: Path) -> None:
    before = Path("/proc/self/mountinfo").read_text(encoding="utf-8")
    running = device(script(WAIT), binds=[Bind("/nowhere")], start=False)
    with pytest.raises(SimulatorError, match="cannot make /nowhere visible in the box"):
        running.start()
    assert not running.is_running
    assert Path("/proc/self/mountinfo").read_text(encoding="utf-8") == before
