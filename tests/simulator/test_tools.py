# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The stand-in tools: their behaviours, and their effects on the board."""

import pytest

from simulator import Device, SimulatorError, wait_until
from simulator.common.configuration import TOOLS, Behaviour

from simulated_devices import DeviceFactory
from standin import WAIT, Script


def call(running: Device, *command: str) -> int:
    return running.run(["sh", "-c", '"$@"', "sh", *command]).status


@pytest.mark.parametrize(("tool", "text"), [
    ("reboot", ""), ("reboot", "explode"), ("reboot", "fail="), ("reboot", "fail=0"),
    ("reboot", "fail=256"), ("reboot", "hang=1"), ("killall", "return"), ("init", "normal")])
def test_what_is_no_behaviour_is_refused(tool: str, text: str) -> None:
    with pytest.raises(SimulatorError):
        Behaviour.parse(tool, text)


def test_a_call_is_recorded_with_its_arguments_caller_and_outcome(device: DeviceFactory,
                                                                  script: Script) -> None:
    running = device(script("sfuflags -f fail -v 0; " + WAIT))
    event = running.wait_for("tool", tool="sfuflags")
    assert event["arguments"] == ["-f", "fail", "-v", "0"]
    assert event["caller"] == "watchdog"
    assert (event["behaviour"], event["status"]) == ("normal", 0)


def test_arguments_arrive_as_they_are(device: DeviceFactory, script: Script) -> None:
    running = device(script(WAIT))
    running.run(["fw_setenv", "name", "", "two words", "ümlaut", "line\nbreak"])
    assert running.wait_for("tool")["arguments"] == [
        "name", "", "two words", "ümlaut", "line\nbreak"]


@pytest.mark.parametrize("tool", TOOLS)
def test_a_failing_tool_has_the_wanted_status_and_does_nothing(device: DeviceFactory,
                                                               script: Script, tool: str) -> None:
    running = device(script(WAIT), tools={tool: "fail=9"})
    completed = running.run([tool, "-f", "fail", "-v", "0"])
    assert (completed.status, completed.stderr) == (9, f"{tool}: failed\n".encode())
    event = running.wait_for("tool", tool=tool)
    assert (event["behaviour"], event["status"]) == ("fail", 9)
    assert running.boots == 1 and running.boot_state.fail == 1


def test_a_hanging_tool_stays_until_it_is_killed(device: DeviceFactory, script: Script) -> None:
    running = device(script("reboot -x & wait; echo over; " + WAIT), tools={"reboot": "hang"})
    event = running.wait_for("tool", tool="reboot")
    assert (event["behaviour"], event["status"]) == ("hang", None)
    assert not running.events("supervisor", "over")
    running.signal(event["pid"], 9)
    running.wait_for("simulator", "was ended", ended_call="reboot -x")
    running.wait_for("supervisor", "over")


@pytest.mark.parametrize("tool", TOOLS)
def test_an_absent_tool_is_not_found_even_if_the_host_has_one(device: DeviceFactory, script: Script,
                                                              tool: str) -> None:
    running = device(script(WAIT), tools={tool: "absent"})
    assert running.run(["sh", "-c", f"command -v {tool}; {tool} -f"]).status == 127
    assert not running.events("tool")
    running.set_tool(tool, "fail")
    assert call(running, tool) == 1
    running.set_tool(tool, "absent")
    assert call(running, tool) == 127


def test_reboot_resets_the_board_and_never_returns(device: DeviceFactory, script: Script) -> None:
    running = device(script("echo up; [ -e /tmp/again ] && " + WAIT + "\n"
                            "touch /tmp/again; reboot -f; echo returned; " + WAIT))
    running.wait_for("supervisor", "up", count=2)
    assert running.boots == 2
    assert running.events("simulator", reset="reboot")
    assert not running.events("supervisor", "returned")
    assert running.events("tool")[0]["status"] is None
    running.set_tool("reboot", "return")
    assert call(running, "reboot", "-f") == 0
    assert running.events("tool")[1]["behaviour"] == "return"
    assert running.boots == 2


def test_killall_kills_by_name(device: DeviceFactory, script: Script) -> None:
    name = "application-with-a-long-name"
    comm = name[:15]  # the kernel keeps 15 characters of the name
    running = device(script(f"cp /bin/sleep /tmp/{name}\n"
                            f"/tmp/{name} 600 & /tmp/{name} 600 &\n" + WAIT))
    wait_for_processes(running, comm, 2)
    assert call(running, "killall", "-9", name) == 0
    wait_for_processes(running, comm, 0)
    completed = running.run(["killall", "-9", name])
    assert (completed.status, completed.stderr) == (1, f"{name}: no process found\n".encode())
    assert running.run(["killall", "-q", name]).stderr == b""


def wait_for_processes(running: Device, name: str, count: int) -> None:
    def look() -> bool:
        found = [process for process in running.processes()
                 if process.comm == name and process.state != "Z"]
        return len(found) == count
    wait_until(look, f"{count} processes called {name}")


def test_flags_and_environment_are_the_boot_loaders(device: DeviceFactory, script: Script) -> None:
    running = device(script(WAIT))
    assert (running.boot_state.fail, running.boot_state.boot_count) == (1, 1)
    assert call(running, "sfuflags", "-f", "fail", "-v", "0") == 0
    assert call(running, "fw_setenv", "update_url_cache") == 0
    assert (running.boot_state.fail, running.boot_state.boot_count) == (0, 1)
    assert not running.boot_state.environment


def test_the_application_may_call_the_tools_under_any_account(device: DeviceFactory,
                                                              script: Script) -> None:
    running = device(script(WAIT))
    if running.run(["setpriv", "--reuid=65534", "true"]).status != 0:
        pytest.skip("an ordinary user's box has one account only")
    assert call(running, "setpriv", "--reuid=65534", "--clear-groups",
                "fw_setenv", "update_url_cache") == 0
