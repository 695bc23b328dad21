# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The stand-in tools: every behaviour, and what they do to the board."""

import pytest

from simulator import Device, SimulatorError, wait_until
from simulator.common.configuration import TOOLS, Behaviour

from simulated_devices import DeviceFactory
from standin import WAIT, Script


def call(board: Device, *command: str) -> int:
    return board.run(["sh", "-c", '"$@"', "sh", *command]).status


@pytest.mark.parametrize(("tool", "text"), [
    ("reboot", ""), ("reboot", "explode"), ("reboot", "fail="), ("reboot", "fail=0"),
    ("reboot", "fail=256"), ("reboot", "hang=1"), ("killall", "return"), ("init", "normal")])
def test_what_is_no_behaviour_is_refused(tool: str, text: str) -> None:
    with pytest.raises(SimulatorError):
        Behaviour.parse(tool, text)


def test_a_call_is_recorded_with_its_arguments_caller_and_outcome(device: DeviceFactory,
                                                                  script: Script) -> None:
    board = device(script("sfuflags -f fail -v 0; " + WAIT))
    event = board.wait_for("tool", tool="sfuflags")
    assert event["arguments"] == ["-f", "fail", "-v", "0"]
    assert event["caller"] == "watchdog"
    assert (event["behaviour"], event["status"]) == ("normal", 0)


def test_arguments_arrive_as_they_are(device: DeviceFactory, script: Script) -> None:
    board = device(script(WAIT))
    board.run(["fw_setenv", "name", "", "two words", "ümlaut", "line\nbreak"])
    assert board.wait_for("tool")["arguments"] == [
        "name", "", "two words", "ümlaut", "line\nbreak"]


@pytest.mark.parametrize("tool", TOOLS)
def test_a_failing_tool_has_the_wanted_status_and_does_nothing(device: DeviceFactory,
                                                               script: Script, tool: str) -> None:
    board = device(script(WAIT), tools={tool: "fail=9"})
    completed = board.run([tool, "-f", "fail", "-v", "0"])
    assert (completed.status, completed.stderr) == (9, f"{tool}: failed\n".encode())
    event = board.wait_for("tool", tool=tool)
    assert (event["behaviour"], event["status"]) == ("fail", 9)
    assert board.boots == 1 and board.boot_state.fail == 1


def test_a_hanging_tool_stays_until_it_is_killed(device: DeviceFactory, script: Script) -> None:
    board = device(script("reboot -x & wait; echo over; " + WAIT), tools={"reboot": "hang"})
    event = board.wait_for("tool", tool="reboot")
    assert (event["behaviour"], event["status"]) == ("hang", None)
    assert not board.events("supervisor", "over")
    board.signal(event["pid"], 9)
    board.wait_for("simulator", "was ended", ended_call="reboot -x")
    board.wait_for("supervisor", "over")


@pytest.mark.parametrize("tool", TOOLS)
def test_an_absent_tool_is_not_found_even_if_the_host_has_one(device: DeviceFactory, script: Script,
                                                              tool: str) -> None:
    board = device(script(WAIT), tools={tool: "absent"})
    assert board.run(["sh", "-c", f"command -v {tool}; {tool} -f"]).status == 127
    assert not board.events("tool")
    board.set_tool(tool, "fail")
    assert call(board, tool) == 1
    board.set_tool(tool, "absent")
    assert call(board, tool) == 127


def test_reboot_resets_the_board_and_never_returns(device: DeviceFactory, script: Script) -> None:
    board = device(script("echo up; [ -e /tmp/again ] && " + WAIT + "\n"
                          "touch /tmp/again; reboot -f; echo returned; " + WAIT))
    board.wait_for("supervisor", "up", count=2)
    assert board.boots == 2
    assert board.events("simulator", reset="reboot")
    assert not board.events("supervisor", "returned")
    assert board.events("tool")[0]["status"] is None
    board.set_tool("reboot", "return")
    assert call(board, "reboot", "-f") == 0
    assert board.events("tool")[1]["behaviour"] == "return"
    assert board.boots == 2


def test_killall_kills_by_name(device: DeviceFactory, script: Script) -> None:
    name = "application-with-a-long-name"
    comm = name[:15]  # all that a process has of it
    board = device(script(f"cp /bin/sleep /tmp/{name}\n"
                          f"/tmp/{name} 600 & /tmp/{name} 600 &\n" + WAIT))
    wait_for_processes(board, comm, 2)
    assert call(board, "killall", "-9", name) == 0
    wait_for_processes(board, comm, 0)
    completed = board.run(["killall", "-9", name])
    assert (completed.status, completed.stderr) == (1, f"{name}: no process found\n".encode())
    assert board.run(["killall", "-q", name]).stderr == b""


def wait_for_processes(board: Device, name: str, count: int) -> None:
    def look() -> bool:
        running = [process for process in board.processes()
                   if process.comm == name and process.state != "Z"]
        return len(running) == count
    wait_until(look, f"{count} processes called {name}")


def test_flags_and_environment_are_the_boot_loaders(device: DeviceFactory, script: Script) -> None:
    board = device(script(WAIT))
    assert (board.boot_state.fail, board.boot_state.boot_count) == (1, 1)
    assert call(board, "sfuflags", "-f", "fail", "-v", "0") == 0
    assert call(board, "fw_setenv", "update_url_cache") == 0
    assert (board.boot_state.fail, board.boot_state.boot_count) == (0, 1)
    assert not board.boot_state.environment


def test_the_application_may_call_the_tools_under_any_account(device: DeviceFactory,
                                                              script: Script) -> None:
    board = device(script(WAIT))
    if board.run(["setpriv", "--reuid=65534", "true"]).status != 0:
        pytest.skip("an ordinary user's box has one account only")
    assert call(board, "setpriv", "--reuid=65534", "--clear-groups",
                "fw_setenv", "update_url_cache") == 0
