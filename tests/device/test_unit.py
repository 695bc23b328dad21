# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The package's systemd units, where systemd is PID 1."""

from __future__ import annotations

import pytest

from emulated_board import SAMPLE, WATCHDOG_SECONDS, NewBoard, supervise
from qmp import RESET, WATCHDOG
from simulator import wait_until

_SLOW_SECONDS = 40
"""How long another unit takes to stop; longer than the watchdog device waits."""
_SLOW_FILES = {
    "etc/systemd/system/slow.service": f"""\
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=/bin/true
ExecStop=/bin/sh -c 'sleep {_SLOW_SECONDS}; echo the slow unit has stopped >/dev/console'
""",
    "etc/systemd/system.conf.d/reboot-watchdog.conf": f"""\
[Manager]
RebootWatchdogSec={WATCHDOG_SECONDS}s
"""}


@pytest.mark.takes(60)
def test_without_application_nothing_starts_and_a_failed_start_is_tried_again(
        new_emulated_board: NewBoard) -> None:
    board = new_emulated_board([], systemd=True)  # as the package's installation leaves it

    def unit(name: str) -> str:
        return board.check(f"systemctl show --property={name} --value pynx-watchdog")

    assert board.check("systemctl is-enabled pynx-watchdog") == "enabled"
    assert (unit("ActiveState"), unit("Result")) == ("inactive", "exec-condition")
    assert board.check("cat /sys/class/watchdog/watchdog0/state") == "inactive"
    assert board.boots[-1].events == []

    directory = "/var/log/not-there-yet"
    arguments = " ".join(supervise(log=f"{directory}/application.log"))
    options, application = arguments.split(" --app ")
    board.check(f"echo 'OPTIONS=\"{options}\"\nAPPLICATION=\"{application}\"' "
                ">/etc/default/pynx-watchdog")
    board.check("systemctl start pynx-watchdog")
    wait_until(lambda: int(unit("NRestarts")) >= 2, "two more starts", 120)
    wait_until(lambda: unit("ExecMainStatus") == "1", "an end with status 1")  # not in a start
    assert board.check("cat /sys/class/watchdog/watchdog0/state") == "inactive"

    board.check(f"mkdir {directory}")
    assert board.application(SAMPLE)
    board.wait_for_feeds(2, timeout=120)
    assert unit("ActiveState") == "active"
    assert board.hardware() == []


@pytest.mark.takes(90)
@pytest.mark.parametrize("fed", [False, True], ids=["unfed", "fed"])
def test_a_slow_shutdown_is_cut_off_unless_the_device_is_fed_meanwhile(
        new_emulated_board: NewBoard, fed: bool) -> None:
    board = new_emulated_board(supervise(log="/tmp/log/application.log"), systemd=True,
                               files=_SLOW_FILES)
    board.check("systemctl start slow")
    if fed:
        board.check("systemctl enable pynx-watchdog-shutdown")
    board.wait_for_feeds(1, timeout=120)
    board.run_last("systemctl reboot")
    board.wait_for_hardware(RESET, timeout=300)
    assert board.hardware() == ([RESET] if fed else [WATCHDOG, RESET])
    assert ("the slow unit has stopped" in board.console.text()) == fed
    board.wait_until_up()
    told = board.cause()
    assert told["cause"] == ("orderly" if fed else "reset by the watchdog device")
    assert any("orderly shutdown" in sentence for sentence in told["concluded_from"])
