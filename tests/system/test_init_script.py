# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""packaging/init/pynx-watchdog, whose paths are replaced by some below the test's directory."""

from __future__ import annotations

import os
import stat
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest

from shells import NAMES, make_shell, write_tool
from simulator import wait_until

SCRIPT = Path(__file__).resolve().parents[2] / "packaging/init/pynx-watchdog.in"
DIRECTORIES = {"/tmp/log": 0o755, "/home/root": 0o700, "/tmp/upload": 0o777}


class Init:
    """The script, and a supervisor that says what it was given and then stays."""

    def __init__(self, shell: str, directory: Path) -> None:
        self.directory = directory
        self.program_dir = directory / "program"
        self.tools = self.program_dir / "tools"
        self.events = directory / "events"
        self.system_log = directory / "system-log"
        self.configuration = directory / "etc/default/pynx-watchdog"
        self.tools.mkdir(parents=True)
        self.configuration.parent.mkdir(parents=True)
        (directory / "run").mkdir()
        self.events.touch()
        self.system_log.touch()
        # The script sets PATH itself. The directory of the board tools comes first in it.
        program = make_shell(shell, directory).program
        if shell == "busybox":
            for applet in Path(program).parent.iterdir():
                (self.tools / applet.name).symlink_to(os.readlink(applet))
        self.tool("logger", f'echo "$*" >>{self.system_log}; cat >>{self.system_log}\n'
                            f"echo logger ends >>{self.events}")
        self.tool("mount", ":")
        write_tool(self.program_dir / "boot-cause", f'echo "boot-cause $*" >>{self.events}')
        self.supervisor("while :; do sleep 0.1; done")
        text = SCRIPT.read_text("utf-8").replace("#!/bin/sh", f"#!{program}")
        for old, new in (("@WATCHDOG_FULL_INSTALL_DIR@", str(self.program_dir)),
                         ("@CMAKE_INSTALL_FULL_SYSCONFDIR@", f"{directory}/etc"),
                         *((name, f"{directory}{name}")
                           for name in (*DIRECTORIES, "/run/pynx-watchdog.pid"))):
            assert old in text
            text = text.replace(old, new)
        self.script = directory / "script"
        self.script.write_text(text, "utf-8")
        self.script.chmod(0o755)

    def tool(self, name: str, body: str) -> None:
        (self.tools / name).unlink(missing_ok=True)
        write_tool(self.tools / name, body)

    def supervisor(self, body: str) -> None:
        write_tool(self.program_dir / "watchdog", f"""
            echo "watchdog $*, keeps $ARCHIVES_MAX_NUMBER in $STATE_DIRECTORY" >>{self.events}
            echo "${{PATH%%:*}}" >>{self.events}
            echo "said on standard error" >&2
            {body}""")

    def configure(self, *lines: str) -> None:
        self.configuration.write_text("\n".join(lines) + "\n", "utf-8")

    def __call__(self, *arguments: str) -> tuple[int, str]:
        result = subprocess.run([self.script, *arguments], check=False, text=True, timeout=120,
                                stdout=subprocess.PIPE, stdin=subprocess.DEVNULL)
        return result.returncode, result.stdout

    def happened(self) -> list[str]:
        return self.events.read_text("utf-8").splitlines()

    def started(self) -> int:
        """How often the supervisor was started."""
        return sum(line.startswith("watchdog ") for line in self.happened())


@pytest.fixture(params=NAMES)
def init(request: pytest.FixtureRequest, tmp_path: Path) -> Iterator[Init]:
    made = Init(request.param, tmp_path)
    yield made
    made("stop")


def test_it_starts_and_stops_the_supervisor(init: Init) -> None:
    init.configure('APPLICATION="/bin/product --with  arguments"', 'OPTIONS="--logTime"',
                   "ARCHIVES_MAX_NUMBER=7")
    assert init("status") == (3, "pynx-watchdog: the supervisor does not run\n")
    assert init("start") == (0, "")
    wait_until(lambda: init("status")[0] == 0, "the supervisor runs")
    wait_until(lambda: len(init.happened()) == 3, "it has said what it was given")
    assert init.happened() == [
        "boot-cause start",
        "watchdog --logTime --app /bin/product --with arguments, keeps 7 in /var/lib/pynx-watchdog",
        str(init.tools)]
    for name, mode in DIRECTORIES.items():
        assert stat.S_IMODE(Path(f"{init.directory}{name}").stat().st_mode) == mode
    wait_until(lambda: init.system_log.read_text("utf-8").splitlines()
               == ["-t pynx_watchdog", "said on standard error"], "the system log has its message")

    assert init("start") == (0, "pynx-watchdog: the supervisor runs already\n")
    assert init.started() == 1

    status, said = init("stop")
    assert status == 0
    assert "the board is reset within 30 seconds" in said
    wait_until(lambda: "logger ends" in init.happened(), "nothing of it is left")
    assert "boot-cause stop" in init.happened()
    assert init("status")[0] == 3
    assert init.started() == 1


def test_a_restart_is_no_end_of_the_boot(init: Init) -> None:
    init.configure("APPLICATION=/bin/product")
    init("start")
    wait_until(lambda: init.started() == 1, "the supervisor runs")
    assert init("restart")[0] == 0
    wait_until(lambda: init.started() == 2, "it was started again")
    assert "boot-cause stop" not in init.happened()


def test_without_an_application_nothing_is_started(init: Init) -> None:
    for line in ("", "APPLICATION="):
        init.configure(line)
        status, said = init("start")
        assert status == 0
        assert "names no application" in said
    assert init.happened() == []


def test_a_start_that_failed_is_tried_again(init: Init) -> None:
    init.configure("APPLICATION=/bin/product")
    init.tool("sleep", f'echo "sleep $1" >>{init.events}')
    init.supervisor(f"[ $(grep -c '^watchdog' {init.events}) -ge 3 ] || exit 1; exit 2")
    init("start")
    wait_until(lambda: "logger ends" in init.happened(), "it has given up")
    assert init.started() == 3
    assert init.happened().count("sleep 5") == 2


def test_a_single_run_is_not_repeated(init: Init) -> None:
    init.configure("APPLICATION=/bin/product", "OPTIONS='--logTime --singleRun'")
    init.supervisor("exit 1")
    init("start")
    wait_until(lambda: "logger ends" in init.happened(), "it has ended")
    assert init.started() == 1


def waits_after_a_failed_start(init: Init) -> Path:
    """Bring the script to its wait for the next try, which ends at a line in the file returned."""
    init.configure("APPLICATION=/bin/product")
    go_on = init.directory / "go-on"
    os.mkfifo(go_on)
    init.tool("sleep", f"echo waits >>{init.events}; read -r _ <{go_on}")
    init.supervisor("exit 1")
    init("start")
    wait_until(lambda: "waits" in init.happened(), "it waits")
    return go_on


def test_a_stop_ends_the_wait_for_the_next_try(init: Init) -> None:
    go_on = waits_after_a_failed_start(init)
    assert init("stop")[0] == 0
    go_on.write_text("\n", "ascii")
    wait_until(lambda: "logger ends" in init.happened(), "it has ended")
    assert init.started() == 1


def test_a_restart_during_the_wait_leaves_one_supervisor(init: Init) -> None:
    go_on = waits_after_a_failed_start(init)
    init.supervisor(f"read -r _ <{init.directory}/end; exit 2")
    os.mkfifo(init.directory / "end")
    assert init("restart")[0] == 0
    wait_until(lambda: init.started() == 2, "it was started again")
    go_on.write_text("\n", "ascii")
    wait_until(lambda: "logger ends" in init.happened(), "the first one has ended")
    assert init.started() == 2
    (init.directory / "end").write_text("\n", "ascii")
    wait_until(lambda: init.happened().count("logger ends") == 2, "the second one has ended")


def test_the_supervisor_runs_where_its_number_cannot_be_kept(init: Init) -> None:
    init.configure("APPLICATION=/bin/product")
    init.supervisor("exit 2")
    pid_file = init.directory / "run/pynx-watchdog.pid"
    pid_file.mkdir()
    init("start")
    wait_until(lambda: "logger ends" in init.happened(), "it has ended")
    assert init.started() == 1


@pytest.mark.parametrize("arguments", [[], ["other"]])
def test_wrong_usage(init: Init, arguments: list[str]) -> None:
    assert init(*arguments)[0] == 2
