# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The supervisor's main work with a program that knows nothing of it: busybox's web server."""

from __future__ import annotations

import os
import shutil
import signal
import urllib.error
import urllib.request

import pytest

from starting import Start
from logs import OLD_LOG, content
from simulator import wait_until

BUSYBOX = shutil.which("busybox") or ""


@pytest.fixture
def address() -> str:
    """An address of the loopback network that only this test process uses."""
    pid = os.getpid()
    return f"127.{128 + (pid >> 16)}.{pid >> 8 & 255}.{pid & 255}:8080"


def ask(address: str) -> bool:
    """Whether the web server answers; "no such page" is an answer too."""
    try:
        urllib.request.urlopen(f"http://{address}/no-such-page", timeout=10)
    except urllib.error.HTTPError:
        return True
    except OSError:
        return False
    return True


@pytest.mark.skipif(not BUSYBOX, reason="busybox is not installed")
def test_a_web_server_is_logged_restarted_and_rebooted(start: Start, address: str) -> None:
    running = start(application=[BUSYBOX, "httpd", "-f", "-vv", "-p", address], log_size="2k",
                    bad_boots=2)

    # The log has its output.
    wait_until(lambda: ask(address), "the web server answers")
    wait_until(lambda: b"response:404" in content(running), "its line is in the log")

    # The log is rotated at the limit.
    def filled() -> bool:
        return ask(address) and content(running, OLD_LOG) != b""
    wait_until(filled, "the log is rotated")
    assert len(content(running, OLD_LOG)) >= 2048

    # After a kill from outside it is started again.
    killed = running.application()
    running.signal(killed.pid, signal.SIGKILL)
    running.wait_for("system log", "Restarting process: exit code:9, exist status:1")
    again = running.application(unlike=killed)
    wait_until(lambda: ask(address), "the restarted web server answers")

    # At the third end the board is rebooted, and the web server runs again.
    running.signal(again.pid, signal.SIGTERM)
    running.wait_for("system log", "Restarting process: exit code:15, exist status:1")
    third = running.application(unlike=again)
    running.signal(third.pid, signal.SIGKILL)
    running.wait_for("tool", "reboot -f")
    assert b"Critical FW error, rebooting.\n" in running.stderr
    running.wait_for("boot loader", starts=True, count=2)
    wait_until(lambda: ask(address), "the web server answers after the reboot")
