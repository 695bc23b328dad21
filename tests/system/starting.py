# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The types and values of the fixture `start`."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, Protocol

from simulator import SimulatorError, wait_until
from simulator.device import Device

from logs import OLD_LOG, content

ATTEMPTS = 4
"""The largest number of attempts to start a supervisor; see `missed_the_start_limit`."""

STARTED = f"""
# started NAME COMMAND...: runs COMMAND, a supervisor, in the background as $supervisor until its
# application, which is called NAME, is there.
started() {{
    local name=$1
    shift
    for attempt in $(seq {ATTEMPTS}); do
        "$@" >/tmp/out &
        supervisor=$!
        while kill -0 $supervisor 2>/dev/null; do
            pgrep -P $supervisor -x "$name" >/tmp/pid && return
            sleep 0.005
        done
        wait $supervisor
        [ $? -eq 1 ] || return 1
        echo "the application was not up within 500 ms" >&2
    done
    return 1
}}
"""
"""A bash function for scripts that start supervisors themselves."""


class Start(Protocol):
    """Switches on a device whose supervisor runs the sample application with the behaviours."""

    def __call__(self, *behaviours: str, options: Sequence[str] = (), log_size: str = "1M",
                 application: Sequence[str] | None = None, **device_options: Any) -> Device: ...


def missed_the_start_limit(running: Device) -> bool:
    """Whether the supervisor has ended because its application did not start within 500 ms.

    That happens on a busy machine, and no test is about it. After the first event of the watchdog
    device or the first flush of the log it cannot happen any more.
    """
    def is_known() -> bool:
        return bool(running.events("watchdog device") or content(running)
                    or running.host_path(OLD_LOG).exists()
                    or running.events("simulator", "supervisor ended"))

    try:
        wait_until(is_known, "the supervisor has started its application or ended", timeout=2)
    except SimulatorError:
        return False  # its log cannot be read from the host
    return bool(running.events("simulator", "supervisor ended", status=1)
                and running.events("system log", "during process startup, code: 2"))
