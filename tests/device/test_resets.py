# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""A supervisor that has ended or stands still, and an application that always ends."""

from __future__ import annotations

import time

import pytest

from boot_environment import BAD_BOOTS, FRESH
from emulated_board import SAMPLE, WATCHDOG_SECONDS, NewBoard, supervise
from qmp import RESET, WATCHDOG

_BOOT_STATUS = "cat /sys/class/watchdog/watchdog0/bootstatus"
_BY_WATCHDOG = "32"
"""The boot status after a reset by the watchdog device (WDIOF_CARDRESET)."""


@pytest.mark.takes(70)
@pytest.mark.parametrize(("signal", "not_before"), [
    # The kernel feeds the device once more when it is closed.
    pytest.param("KILL", WATCHDOG_SECONDS - 1, id="killed"),
    # The last feed may be ten seconds ago.
    pytest.param("STOP", WATCHDOG_SECONDS - 11, id="stopped"),
])
def test_the_device_resets_a_board_without_supervisor(new_emulated_board: NewBoard, signal: str,
                                                      not_before: float) -> None:
    board = new_emulated_board()
    assert board.check(_BOOT_STATUS) == "0"
    board.wait_for_feeds(2, timeout=60)
    sent = time.monotonic()
    board.check(f"kill -{signal} {board.supervisor()}")
    expired = board.wait_for_hardware(WATCHDOG)
    assert expired.data == {"action": "reset"}
    assert expired.time - sent > not_before

    reset = board.wait_for_hardware(RESET, expired.index)
    board.wait_until_up()
    assert board.application()
    assert board.check(_BOOT_STATUS) == _BY_WATCHDOG
    assert board.hardware(reset.index) == [RESET]
    # The supervisor did not write the magic character, which would disarm the device.
    assert "write" not in {event.name for boot in board.boots for event in boot.events}


@pytest.mark.takes(60)
@pytest.mark.leaves_no_evidence("the fallback system runs no commands")
def test_the_boot_loader_gives_up_an_application_that_dies_at_every_boot(
        new_emulated_board: NewBoard) -> None:
    board = new_emulated_board(supervise(SAMPLE, "exit", "5"), wait=False)
    board.console.wait_for("Critical FW error, rebooting.\n")
    board.wait_for_hardware(RESET)
    first_boot = board.journal.text().split("syslogd started")[1]
    # At the third end the board is rebooted and the application not restarted.
    assert first_boot.count("Restarting process: exit code:5, exist status:0") == 2

    board.console.wait_for("boot loader: last boot not confirmed, "
                           "sets fail=1 boot_count=2 and starts the system")
    board.console.wait_for("fallback system: running", timeout=120)
    console = board.console.text()
    assert f"the flags were not cleared in {BAD_BOOTS} boots, more than {BAD_BOOTS} " \
           "are not allowed: the fallback system starts now" in console
    assert console.count("Critical FW error, rebooting.\n") == BAD_BOOTS
    assert board.hardware() == [RESET] * BAD_BOOTS  # by the command, not by the watchdog device
    assert board.flags == (1, BAD_BOOTS)
    assert "fw_setenv" not in board.journal.text()
    assert board.environment["update_url_cache"] == FRESH["update_url_cache"]
