# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Each cause of a boot, produced for real, and what the next boot says of it."""

from __future__ import annotations

import pytest

from boot_environment import BAD_BOOTS
from emulated_board import EmulatedBoard, NewBoard, supervise
from images import PROJECT
from qmp import RESET, WATCHDOG
from simulator import wait_until

_LOG = "/tmp/log/application.log"
_STORAGE = "/var/lib/archives"
_REPORTING = {"WatchdogAutomaticReporting": True,
              "WatchdogAutomaticReportingConf": {"uploadPath": _STORAGE,
                                                 "uploadFilePrefix": "report"}}
_APPLICATION = "/usr/lib/application"
_JOURNAL_OF_LAST_BOOT = "journalctl --boot=-1 --identifier=pynx_watchdog --output=cat"
_JOURNAL_CONF = PROJECT / "packaging/systemd/examples/journal.conf"


def _patient_tool() -> dict[str, str]:
    """The package's reboot, but with more time to save things, as this machine may be busy."""
    tool = (PROJECT / "packaging/board-tools/reboot").read_text(encoding="utf-8")
    patient = tool.replace("\nseconds=5\n", "\nseconds=18\n")
    assert patient != tool
    return {"/usr/lib/pynx-watchdog/tools/reboot": patient}


def _archives(board: EmulatedBoard, name: str) -> list[str]:
    """The finished archives of this name; raises if one is not whole."""
    files = board.check(f"ls {_STORAGE}/report-{name}-*.tar.gz").split()
    for file in files:
        board.check(f"tar --list --gzip --file {file}")
    return files


def _end(board: EmulatedBoard) -> None:
    """End the application three times."""
    application = 0
    for _ in range(3):
        application = board.application(unlike=application)
        board.check(f"kill {application}")


@pytest.mark.takes(110)
def test_a_power_cut_a_panic_and_an_orderly_reboot_are_told_apart(
        new_emulated_board: NewBoard) -> None:
    board = new_emulated_board(supervise(log=_LOG), systemd=True)
    assert board.cause()["cause"] == "unknown"  # nothing is known before the first boot

    board.power_cut()
    board.start()
    board.wait_until_up()
    assert board.cause()["cause"] == "power loss"

    # Without a confirmed boot among these the boot loader would start the fallback system.
    wait_until(lambda: board.flags == (0, 0), "cleared flags", 120)
    board.run_last("echo c >/proc/sysrq-trigger")
    board.wait_until_up()
    assert board.cause()["cause"] == "panic"

    board.run_last("systemctl reboot")
    board.wait_until_up()
    told = board.cause()
    assert told["cause"] == "orderly"  # the panic's record is still there
    assert board.run("grep -l '^Panic#' -r /sys/fs/pstore /var/lib/systemd/pstore").text
    assert f"Cause of this boot: {told['cause']}\n" in board.read("/tmp/log/boot").decode()
    assert WATCHDOG not in board.hardware()


@pytest.mark.takes(100)
def test_a_third_end_and_a_reset_by_the_device_are_told_apart(new_emulated_board: NewBoard) -> None:
    board = new_emulated_board(supervise(log=_LOG), systemd=True, files={
        **_patient_tool(), f"/etc/systemd/journald.conf.d/{_JOURNAL_CONF.name}":
            _JOURNAL_CONF.read_text(encoding="utf-8")})
    _end(board)
    board.wait_until_up()
    assert board.hardware() == [RESET]
    assert board.cause()["cause"] == "third end"
    said = board.check(_JOURNAL_OF_LAST_BOOT)
    assert said.count("Restarting process: exit code:15, exist status:1") == 2
    assert "Critical FW error, rebooting." in said.splitlines()

    board.wait_for_feeds(1, timeout=120)
    board.check(f"kill -STOP {board.supervisor()}")
    board.wait_for_hardware(WATCHDOG)
    board.wait_until_up()
    assert board.cause()["cause"] == "reset by the watchdog device"
    # The device gives nobody time to write; the journal had written this before.
    assert "Cause of this boot: third end" in board.check(_JOURNAL_OF_LAST_BOOT).splitlines()


@pytest.mark.takes(90)
def test_a_read_only_root_is_told_at_the_next_boot(new_emulated_board: NewBoard) -> None:
    # The state is on another file system, because it could not be written on this root. While the
    # flag tool fails, the supervisor looks at the root 10 s after each start of the application.
    board = new_emulated_board(supervise(log=_LOG), systemd=True, state_disk=True,
                               files=_patient_tool(), tools={"sfuflags": "exit 1"})
    board.journal.wait_for("Error occured during process startup, code: 5")
    board.check("echo 1 >/sys/fs/ext4/vdc/trigger_fs_error")
    assert board.run("touch /home/root/after").status != 0
    board.check(f"kill {board.application()}")
    board.wait_for_hardware(RESET)
    board.wait_until_up()
    assert board.cause()["cause"] == "read-only root"
    assert board.hardware() == [RESET]


@pytest.mark.takes(120)
def test_a_crash_loop_leaves_archives_and_a_boot_line_that_tells_the_story(
        new_emulated_board: NewBoard) -> None:
    board = new_emulated_board(supervise(_APPLICATION, log=_LOG), wait=False, systemd=True,
                               settings=_REPORTING, files={
                                   _APPLICATION: "#!/bin/sh\necho here I am; exit 5",
                                   **_patient_tool()})
    board.console.wait_for("fallback system: running", timeout=900)
    assert board.hardware() == [RESET] * BAD_BOOTS
    assert board.flags == (1, BAD_BOOTS)

    # What a repair in the fallback system would do.
    board.power_cut()
    board.renew_environment()
    board.set_arguments(supervise(log=_LOG))
    board.start()
    board.wait_until_up()
    assert board.cause()["cause"] == "third end"
    # One for each boot, but those that take the tool too long on a busy machine are left out.
    archives = _archives(board, "third-end")
    assert len(archives) <= BAD_BOOTS
    for archive in archives:
        unpack = f"tar --extract --to-stdout --file {archive}"
        assert board.check(f"{unpack} tmp/log/application.log").count("here I am") == 3
        assert board.check(f"{unpack} tmp/log/boot").startswith("Cause of this boot: ")
