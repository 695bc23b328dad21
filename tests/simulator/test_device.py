# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The class Device, as tests use it."""

import re
import signal
import time
from pathlib import Path
from typing import Any

import pytest

from simulator import SimulatorError, wait_until

from simulated_devices import DeviceFactory
from standin import WAIT, WITHOUT_INPUT, Script


def test_output_is_kept_byte_for_byte_and_channels_apart(device: DeviceFactory,
                                                         script: Script) -> None:
    running = device(script(r"printf 'one\ntwo \377\0 end'; { echo; seq 20000; printf last; } >&2"))
    running.wait_end()
    lines = ["", *map(str, range(1, 20001)), "last"]
    assert running.stdout == b"one\ntwo \xff\0 end"
    assert running.stderr == "\n".join(lines).encode()
    assert [event.text for event in running.events("supervisor", stream="stdout")] == [
        "one", "two \\xff\0 end"]
    assert [event.text for event in running.events("supervisor", stream="stderr")] == lines


@pytest.mark.parametrize(("end", "status"), [("exit 0", 0), ("exit 42", 42), ("kill -9 $$", -9)])
def test_the_supervisors_end_is_told(device: DeviceFactory, script: Script, end: str,
                                     status: int) -> None:
    running = device(script(end))
    assert running.wait_supervisor_exit() == status
    event = running.wait_end()
    assert (event["end"], event["status"]) == ("supervisor", status)


def test_waiting_ends_at_once_when_the_simulation_has_ended(device: DeviceFactory,
                                                            script: Script) -> None:
    running = device(script("echo only; exit 3"))
    with pytest.raises(SimulatorError, match="(?s)the simulation has ended before.*only"):
        running.wait_for("supervisor", "never", timeout=600)


def test_waiting_shows_the_account_when_it_takes_too_long(device: DeviceFactory,
                                                          script: Script) -> None:
    running = device(script("echo something else; " + WAIT))
    running.wait_for("supervisor", "something else")
    before = time.monotonic()
    with pytest.raises(SimulatorError, match="(?s)within 0.2 s.*something else"):
        running.wait_for("supervisor", "never", timeout=0.2)
    assert time.monotonic() - before >= 0.2


def test_what_matches(device: DeviceFactory, script: Script) -> None:
    running = device(script("echo abc; echo abd; echo abe; echo xyz >&2; " + WAIT))
    second = running.wait_for("supervisor", "ab", count=2)
    assert second.text == "abd"
    assert running.wait_for("supervisor", re.compile("^a.*[c-e]$"), after=second).text == "abe"
    assert running.wait_for("supervisor", stream="stderr").text == "xyz"
    assert [event.text for event in running.events("supervisor", "ab")] == ["abc", "abd", "abe"]
    assert running.events("supervisor", "ab", stream="stderr") == []
    assert running.events("supervisor", nothing=None) == []


def test_events_carry_the_boot_and_clocks_that_only_grow(device: DeviceFactory,
                                                         script: Script) -> None:
    running = device(script("[ -e /tmp/again ] && " + WAIT + "\ntouch /tmp/again; reboot -f"))
    running.wait_for("simulator", "supervisor started", count=2)
    events = running.events()
    assert [event["boot"] for event in running.events("boot loader")] == [1, 2]
    assert [event.index for event in events] == list(range(len(events)))
    assert all(first.monotonic <= second.monotonic for first, second in zip(events, events[1:]))


def test_a_command_in_the_box(device: DeviceFactory, script: Script) -> None:
    running = device(script(WAIT), environment={"GREETING": "hello"})
    completed = running.run(["sh", "-c", "cat; echo $GREETING; echo err >&2; exit 5"], stdin=b"in ")
    assert (completed.status, completed.stdout, completed.stderr) == (5, b"in hello\n", b"err\n")
    assert running.run(["sh", "-c", "kill -15 $$"]).status == -15
    with pytest.raises(FileNotFoundError):
        running.run(["no-such-command"])


def test_a_command_that_takes_too_long_is_ended(device: DeviceFactory, script: Script) -> None:
    running = device(script(WAIT))
    with pytest.raises(SimulatorError, match="did not end within"):
        running.run(["sleep", "600"], timeout=0.1)
    assert [process.comm for process in running.processes() if process.state != "Z"] == ["sleep"]


def test_processes_and_signals(device: DeviceFactory, script: Script) -> None:
    running = device(script("while true; do sleep 600; done"), ["--app", "sleep"])
    first = running.application()
    assert first.ppid == running.supervisor().pid and first.command_line == ["sleep", "600"]
    running.signal("application", signal.SIGKILL)
    second = running.application(unlike=first)
    assert second.pid != first.pid
    running.signal("sleep", signal.SIGTERM)
    running.application(unlike=second)
    running.signal("supervisor", signal.SIGKILL)
    assert running.wait_supervisor_exit() == -9
    with pytest.raises(SimulatorError):
        running.supervisor()
    with pytest.raises(SimulatorError):
        running.signal("nobody", signal.SIGTERM)


def test_orphans_are_waited_for(device: DeviceFactory, script: Script) -> None:
    running = device(script("(true & true & true &) ; sleep 0; echo done; " + WAIT))
    running.wait_for("supervisor", "done")
    wait_until(lambda: not any(process.state == "Z" for process in running.processes()),
               "no process that nobody has waited for")


def test_settings_lie_beside_the_program(device: DeviceFactory, script: Script,
                                         tmp_path: Path) -> None:
    factory = tmp_path / "settings-default"
    factory.mkdir()
    (factory / "kept.json").write_text("1", encoding="utf-8")
    (factory / "replaced.json").write_text("1", encoding="utf-8")
    (factory / "removed.json").write_text("1", encoding="utf-8")
    running = device(script('cd "${0%/*}"; echo "$0"; grep -r "" settings settings-default | sort'),
                     settings={"own.json": {"value": [1, 2]}, "raw.json": b"{not json"},
                     settings_default={"replaced.json": True, "removed.json": None})
    running.wait_end()
    assert running.stdout.decode().splitlines() == [
        "/supervisor/watchdog",
        "settings-default/kept.json:1",
        "settings-default/replaced.json:true",
        'settings/own.json:{"value": [1, 2]}',
        "settings/raw.json:{not json",
    ]
    assert (factory / "removed.json").exists()


def test_the_reset_button_kills_everything_and_boots(device: DeviceFactory, script: Script) -> None:
    running = device(script("echo see $(ls /run /dev/shm /tmp); touch /run/a /tmp/b /dev/shm/c; "
                            "setsid sleep 601 & sleep 602 & echo up; " + WAIT))
    running.wait_for("supervisor", "up")
    old = {process.pid for process in running.processes()}
    running.reset()
    running.wait_for("supervisor", "up", count=2)
    assert running.events("simulator", reset="reset button")
    assert old.isdisjoint(process.pid for process in running.processes())
    seen = running.events("supervisor", "see")[1].text.split()
    assert "b" in seen and not {"a", "c"} & set(seen)  # a reset clears volatile files, but not /tmp


def test_a_used_directory_goes_on_where_it_was_left(device: DeviceFactory, script: Script,
                                                    tmp_path: Path) -> None:
    place = tmp_path / "the device"
    first = device(script("touch /tmp/log/left; echo up; " + WAIT), directory=place)
    first.wait_for("supervisor", "up")
    first.stop()
    second = device(script("ls /tmp/log; " + WAIT), directory=place)
    second.wait_for("supervisor", "left")
    assert second.boot_state.boot_count == 2
    assert len(second.events("boot loader")) == 1


def test_a_directory_is_one_devices_at_a_time(device: DeviceFactory, script: Script,
                                              tmp_path: Path) -> None:
    device(script(WAIT), directory=tmp_path / "one")
    with pytest.raises(SimulatorError, match="another simulated device is running in"):
        device(script(WAIT), directory=tmp_path / "one")


def test_two_devices_do_not_disturb_one_another(device: DeviceFactory, script: Script) -> None:
    one, two = (device(script(f"logger -t me {name}; fw_setenv board {name}; "
                              f"echo {name} > /tmp/file; echo up; {WAIT}"))
                for name in ("one", "two"))
    for running, name in ((one, "one"), (two, "two")):
        running.wait_for("supervisor", "up")
        assert [event.text for event in running.events("system log")] == [name]
        assert running.boot_state.environment["board"] == name
        assert running.read("/tmp/file").decode() == name + "\n"
    one.stop()
    assert two.run(["true"]).status == 0
    assert not two.events("simulator", "switched off")


def test_a_launcher_becomes_the_supervisor(device: DeviceFactory, script: Script) -> None:
    running = device(script("[ -e /proc/$$/fd/0 ] || echo closed; sleep 60"),
                     launcher=WITHOUT_INPUT)
    running.wait_for("supervisor", "closed")
    assert running.supervisor().command_line[-1] == "/supervisor/watchdog"


@pytest.mark.parametrize(("options", "message"), [
    ({"tools": {"halt": "hang"}}, "no tool 'halt'"),
    ({"spaces": {"/tmp/x": "many"}}, "not a size"),
    ({"spaces": {"tmp": "1M"}}, "absolute"),
    ({"watchdog_library": "/none.so"}, "library is missing"),
])
def test_what_makes_no_sense_is_refused(device: DeviceFactory, script: Script,
                                        options: dict[str, Any], message: str) -> None:
    with pytest.raises(SimulatorError, match=message):
        device(script(WAIT), **options)


def test_a_program_that_is_none_is_refused(device: DeviceFactory, tmp_path: Path) -> None:
    (tmp_path / "text").write_text("no program", encoding="utf-8")
    for path in (tmp_path / "text", tmp_path / "none", tmp_path):
        with pytest.raises(SimulatorError, match="cannot be executed"):
            device(path)


def test_a_program_that_the_kernel_refuses_ends_the_simulation(device: DeviceFactory,
                                                               tmp_path: Path) -> None:
    program = tmp_path / "program"
    program.write_bytes(b"\x7fELF, but not really")
    program.chmod(0o755)
    running = device(program)
    end = running.wait_end()
    assert (end["end"], end["status"]) == ("supervisor", 127)
    assert "Exec format error" in end.text


def test_a_device_that_is_off_says_so(device: DeviceFactory, script: Script) -> None:
    running = device(script(WAIT), start=False)
    with pytest.raises(SimulatorError, match="switched off"):
        running.processes()
