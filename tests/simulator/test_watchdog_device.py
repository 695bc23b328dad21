# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The simulated watchdog device, which a program uses through the preloaded library."""

from pathlib import Path

import pytest

from simulator import Bind

from simulated_devices import DeviceFactory
from standin import WITHOUT_INPUT, Script

DEVICE = "watchdog device"


def test_a_program_that_stops_feeding_is_reset_and_booted_again(device: DeviceFactory,
                                                                feeder: Script) -> None:
    running = device(feeder("open_device(); set_timeout(1); feed(); time.sleep(600)"), boots=2)
    expired = running.wait_for(DEVICE, operation="expired")
    last = running.events(DEVICE, name="WDIOC_KEEPALIVE", boot=expired["boot"])[-1]
    assert expired.monotonic - last.monotonic >= 1.0
    assert expired["since_feed"] >= 1.0 and expired["timeout"] == 1
    running.wait_for("simulator", "board reset", after=expired, reset=DEVICE)
    again = running.wait_for("boot loader", after=expired, starts=True)
    running.wait_for(DEVICE, operation="open", after=again)
    assert running.wait_end()["end"] == "boots"
    assert running.boots == 2
    assert running.processes() == []


def test_every_operation_is_recorded_in_order(device: DeviceFactory, feeder: Script) -> None:
    running = device(feeder("open_device(); print(set_timeout(30)); feed(); print(get_timeout());"
                            "set_options(1); set_options(2); os.write(device, b'V')"))
    assert running.wait_end()["status"] == 0
    seen = [(event["operation"], event.get("name"), event.get("argument"), event.get("result"))
            for event in running.events(DEVICE)]
    assert seen == [
        ("open", None, None, None),
        ("ioctl", "WDIOC_SETTIMEOUT", 30, 30),
        ("ioctl", "WDIOC_KEEPALIVE", 0, 0),
        ("ioctl", "WDIOC_GETTIMEOUT", 0, 30),
        ("ioctl", "WDIOC_SETOPTIONS", 1, 1),
        ("ioctl", "WDIOC_SETOPTIONS", 2, 2),
        ("write", None, None, None),
        ("close", None, None, None),
    ]
    assert running.stdout == b"30\n30\n"


def test_a_magic_close_disarms(device: DeviceFactory, feeder: Script) -> None:
    running = device(feeder("open_device(); set_timeout(1); os.write(device, b'V')"))
    assert running.wait_end()["end"] == "supervisor"
    assert not running.events(DEVICE, operation="expired")


@pytest.mark.parametrize("ending", ["os.close(device)", ""], ids=["closed", "left to the exit"])
def test_without_it_the_countdown_goes_on_after_the_end(device: DeviceFactory, feeder: Script,
                                                        ending: str) -> None:
    running = device(feeder(f"open_device(); set_timeout(1); {ending}"), boots=1)
    assert running.wait_supervisor_exit() == 0
    close = running.wait_for(DEVICE, operation="close")
    expired = running.wait_for(DEVICE, operation="expired")
    assert expired.monotonic - close.monotonic >= 0.99  # the close was the last feed
    assert running.wait_end()["end"] == "boots"


def test_a_killed_program_is_reset_too(device: DeviceFactory, feeder: Script) -> None:
    running = device(feeder("open_device(); set_timeout(1); feed(); time.sleep(600)"))
    running.wait_for(DEVICE, name="WDIOC_KEEPALIVE")
    running.signal("supervisor", 9)
    assert running.wait_supervisor_exit() == -9
    running.wait_for(DEVICE, operation="expired")
    running.wait_for("boot loader", count=2, starts=True)


def test_an_absent_device_cannot_be_opened(device: DeviceFactory, feeder: Script) -> None:
    running = device(feeder("open_device()"), watchdog_device=False)
    assert running.wait_end()["status"] == 1
    assert b"No such file or directory: '/dev/watchdog'" in running.stderr
    assert not running.events(DEVICE)


def test_a_second_descriptor_is_refused_while_the_first_is_open(device: DeviceFactory,
                                                                feeder: Script) -> None:
    running = device(feeder("open_device(); open_device()"), boots=1)
    assert running.wait_supervisor_exit() == 1
    assert b"Device or resource busy: '/dev/watchdog'" in running.stderr


def test_children_get_neither_the_library_nor_the_device(device: DeviceFactory,
                                                         feeder: Script) -> None:
    running = device(feeder("os.execv('/bin/sh', ['sh', '-c',"
                            "'echo ${LD_PRELOAD-not set}; : < /dev/watchdog'])"))
    assert running.wait_end()["status"] == 2
    assert running.stdout == b"not set\n"
    assert b"/dev/watchdog" in running.stderr
    assert not running.events(DEVICE)


def test_other_preloaded_libraries_are_kept(device: DeviceFactory, feeder: Script, tmp_path: Path,
                                            build_directory: Path) -> None:
    other = tmp_path / "libother.so"
    other.write_bytes((build_directory / "simulator" / "libwatchdogdevice.so").read_bytes())
    running = device(feeder("print(os.environ['LD_PRELOAD'])"),
                     environment={"LD_PRELOAD": "/run/libother.so"},
                     binds=[Bind(str(other), "/run/libother.so")])
    running.wait_end()
    assert running.stdout == b"/run/libother.so\n"


def test_other_files_open_as_ever(device: DeviceFactory, feeder: Script) -> None:
    running = device(feeder("print(open('/proc/1/comm').read(), end=''); open('/nothing')"))
    assert running.wait_end()["status"] == 1
    assert running.stdout == b"python3\n"
    assert b"No such file or directory: '/nothing'" in running.stderr


def test_a_program_without_standard_input_gets_descriptor_zero(device: DeviceFactory,
                                                               feeder: Script) -> None:
    running = device(feeder("open_device(); time.sleep(600)"), launcher=WITHOUT_INPUT)
    running.wait_for(DEVICE, operation="open")
    listed = running.run(["ls", "-l", f"/proc/{running.supervisor().pid}/fd/0"]).stdout
    assert b"socket:" in listed
