# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""packaging/sfuflags/ with stand-ins for the tools that they call, under dash and busybox."""

from __future__ import annotations

import subprocess
from pathlib import Path

import pytest

from shells import NAMES, make_shell, write_tool

EXAMPLES = Path(__file__).resolve().parents[2] / "packaging/sfuflags"
FLAGS = ["fail", "boot_count"]


class Tool:
    """One of the two tools called sfuflags. A file below `directory` stands for each variable."""

    def __init__(self, name: str, shell: str, directory: Path) -> None:
        self._shell = make_shell(shell, directory)
        self._program = EXAMPLES / name
        self.tools = directory / "tools"
        self.environment = directory / "environment"
        self._calls = directory / "calls"
        self._flags = directory / "run" / "sfuflags"
        self.tools.mkdir()
        self.environment.mkdir()
        self.stand_in("fw_printenv", f'[ "$1" = -n ] && cat "{self.environment}/$2"')
        self.stand_in("fw_setenv", f'echo "$2" >"{self.environment}/$1"')
        self.stand_in("rauc", "echo said by rauc")

    def stand_in(self, name: str, body: str) -> None:
        """Put a tool that records its calls first in PATH."""
        write_tool(self.tools / name, f'echo "{name} $*" >>"{self._calls}"\n{body}')

    def calls(self, name: str) -> list[str]:
        """The arguments of all calls of a stand-in so far."""
        lines = self._calls.read_text("utf-8").splitlines() if self._calls.exists() else []
        return [line.removeprefix(f"{name} ") for line in lines if line.startswith(f"{name} ")]

    def __call__(self, *arguments: str) -> tuple[int, str]:
        result = subprocess.run(
            [self._shell.program, self._program, *arguments], check=False, text=True,
            stdout=subprocess.PIPE, timeout=120,
            env={"PATH": f"{self.tools}:{self._shell.path}",
                 "SFUFLAGS_DIRECTORY": str(self._flags)})
        return result.returncode, result.stdout


@pytest.fixture(params=NAMES)
def u_boot(request: pytest.FixtureRequest, tmp_path: Path) -> Tool:
    return Tool("u-boot", request.param, tmp_path)


@pytest.fixture(params=NAMES)
def rauc(request: pytest.FixtureRequest, tmp_path: Path) -> Tool:
    return Tool("rauc", request.param, tmp_path)


@pytest.mark.parametrize("flag", FLAGS)
def test_u_boot_prints_and_sets_a_variable(u_boot: Tool, flag: str) -> None:
    variable = u_boot.environment / flag
    variable.write_text("3\n", "ascii")
    assert u_boot("-f", flag) == (0, "3\n")
    assert u_boot("-f", flag, "-v", "0") == (0, "")
    assert variable.read_text("ascii") == "0\n"
    # What has the value already is not written again.
    assert u_boot("-f", flag, "-v", "0") == (0, "")
    assert u_boot.calls("fw_setenv") == [f"{flag} 0"]


def test_u_boot_sets_a_variable_that_is_not_there(u_boot: Tool) -> None:
    assert u_boot("-f", "fail")[0] == 1
    assert u_boot("-f", "fail", "-v", "0") == (0, "")
    assert (u_boot.environment / "fail").read_text("ascii") == "0\n"


def test_u_boot_tells_a_failure(u_boot: Tool) -> None:
    u_boot.stand_in("fw_setenv", "exit 247")
    assert u_boot("-f", "fail", "-v", "0") == (1, "")
    (u_boot.tools / "fw_setenv").unlink()
    assert u_boot("-f", "fail", "-v", "0") == (1, "")


@pytest.mark.parametrize("order", [FLAGS, FLAGS[::-1]])
def test_rauc_marks_the_slot_good_when_both_flags_are_0(rauc: Tool, order: list[str]) -> None:
    first, second = order
    assert rauc("-f", first) == (0, "1\n")
    assert rauc("-f", first, "-v", "0") == (0, "")
    assert rauc("-f", first) == (0, "0\n")
    assert rauc.calls("rauc") == []
    assert rauc("-f", second, "-v", "0") == (0, "")
    assert rauc("-f", second) == (0, "0\n")
    assert rauc.calls("rauc") == ["status mark-good booted"]


def test_rauc_tells_a_failure_and_tries_again(rauc: Tool) -> None:
    rauc.stand_in("rauc", "exit 1")
    assert rauc("-f", "fail", "-v", "0")[0] == 0
    assert rauc("-f", "boot_count", "-v", "0")[0] == 1
    assert rauc("-f", "boot_count") == (0, "1\n")
    # The supervisor clears both again after the next restart of the application.
    rauc.stand_in("rauc", "exit 0")
    assert rauc("-f", "fail", "-v", "0")[0] == 0
    assert rauc("-f", "boot_count", "-v", "0")[0] == 0
    assert rauc.calls("rauc") == ["status mark-good booted"] * 2


def test_rauc_marks_the_slot_bad(rauc: Tool) -> None:
    assert rauc("-f", "boot_count", "-v", "1") == (0, "")
    assert rauc("-f", "fail", "-v", "1") == (0, "")
    assert rauc.calls("rauc") == ["status mark-bad booted"]


WRONG = [[], ["-f"], ["-f", "other"], ["-v", "0"], ["-f", "fail", "-v"], ["-f", "fail", "-v", ""],
         ["-f", "fail", "-v", "x"], ["-f", "fail", "-v", "-1"], ["-f", "fail", "more"], ["-x"]]


@pytest.mark.parametrize("arguments", WRONG)
@pytest.mark.parametrize("shell", NAMES)
@pytest.mark.parametrize("name", ["u-boot", "rauc"])
def test_wrong_usage(tmp_path: Path, name: str, shell: str, arguments: list[str]) -> None:
    tool = Tool(name, shell, tmp_path)
    assert tool(*arguments) == (2, "")
    assert tool.calls("fw_setenv") + tool.calls("rauc") == []


@pytest.mark.parametrize("shell", NAMES)
@pytest.mark.parametrize("name", ["u-boot", "rauc"])
def test_help(tmp_path: Path, name: str, shell: str) -> None:
    status, text = Tool(name, shell, tmp_path)("-h")
    assert status == 0
    assert text.startswith("Usage: sfuflags ")
