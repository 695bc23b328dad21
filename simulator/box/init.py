# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""PID 1 of the box.

It is the boot loader, the system logger, the watchdog device and the server of the tools, and it
starts the supervisor. It has one thread and one loop, and waits only for the next event.
"""

from __future__ import annotations

import os
import selectors
import signal
import socket
import time
from dataclasses import asdict
from typing import Any

from simulator.box import kernel, processes, root, supervisor
from simulator.box.boot_loader import BootLoader
from simulator.box.system_log import SystemLogServer
from simulator.box.tools import Outcome, ToolServer, killall
from simulator.box.watchdog_driver import Driver
from simulator.box.watchdog_server import WatchdogServer
from simulator.common import control, paths
from simulator.common.account import (
    BOOT_LOADER, CHECK, SIMULATOR, WATCHDOG_DEVICE, AccountWriter)
from simulator.common.configuration import Configuration


class Init:
    """The board from power-on to power-off."""

    def __init__(self, configuration: Configuration, boot_loader: BootLoader, log: AccountWriter,
                 out_fd: int, err_fd: int, connection: socket.socket) -> None:
        self._configuration = configuration
        self._boot_loader = boot_loader
        self._account = log
        self._selector = selectors.DefaultSelector()
        self._reset_reason = ""
        self._ended = False
        self._powered = True
        self._runs = processes.Runs()
        os.makedirs(paths.RUN, exist_ok=True)
        self._driver = Driver()
        self._watchdog = WatchdogServer(self._selector, log, self._driver)
        self._system_log = SystemLogServer(self._selector, log)
        self._tools = ToolServer(self._selector, log, {
            "reboot": self._reboot,
            "killall": killall,
            "sfuflags": boot_loader.sfuflags,
            "fw_setenv": boot_loader.fw_setenv,
        }, configuration.tools)
        self._supervisor = supervisor.Supervisor(configuration, (
            supervisor.Channel("stdout", out_fd, self._selector, log),
            supervisor.Channel("stderr", err_fd, self._selector, log)), log)
        self._control = control.Server(self._selector, connection, {
            "ping": lambda request, descriptors: None,
            "stop": self._stop,
            "reset": self._press_reset,
            "processes": self._list_processes,
            "signal": self._signal,
            "open": self._open,
            "run": self._run,
            "set_tool": self._set_tool,
            "set_read_only_root": self._set_read_only_root,
        }, self._power_off)
        if configuration.read_only_root:
            kernel.set_read_only(paths.HOME, True)

    def run(self) -> None:
        """Boot, and go on until the power is switched off."""
        self._notice_ended_children()
        kernel.limit_capabilities()
        self._boot()
        while self._powered:
            dispatch(self._selector, self._seconds_to_expiry())
            self._check_watchdog()
            if self._reset_reason:
                self._reset()
        self._kill_everything()

    # -- boot and reset ------------------------------------------------------------------------

    def _boot(self) -> None:
        self._account.boot += 1
        decision = self._boot_loader.decide()
        self._account.record(BOOT_LOADER, decision.text, starts=decision.boots)
        if not decision.boots:
            self._end("fallback", "the simulation ends: the board would run its fallback system")
            return
        try:
            for place in self._configuration.directories:
                os.makedirs(place, exist_ok=True)
            if self._configuration.checked and self._account.boot == 1:
                for line in supervisor.check(self._configuration):
                    self._account.record(CHECK, line)
            self._supervisor.start()
        except OSError as error:
            self._end("supervisor",
                      f"the simulation ends: the supervisor cannot be started: {error}",
                      status=127)

    def _reset(self) -> None:
        reason, self._reset_reason = self._reset_reason, ""
        self._account.record(SIMULATOR, f"board reset: {reason}", reset=reason)
        self._kill_everything()
        self._supervisor.forget()
        self._system_log.drain()
        self._tools.drop_connections()
        self._watchdog.drop_connections()
        self._driver.reset()
        root.empty_volatile()
        if self._ended:
            return
        if self._account.boot == self._configuration.boots:
            self._end("boots", f"the simulation ends after boot {self._account.boot}, as wanted")
        else:
            self._boot()

    def _end(self, why: str, text: str, **fields: Any) -> None:
        self._ended = True
        self._account.record(SIMULATOR, text, end=why, **fields)

    def _kill_everything(self) -> None:
        while True:
            try:
                os.kill(-1, signal.SIGKILL)
            except ProcessLookupError:
                pass  # only this process is left, perhaps with ended children
            try:
                self._reap(*os.waitpid(-1, 0), by_reset=True)
            except ChildProcessError:
                return

    # -- the watchdog device -------------------------------------------------------------------

    def _seconds_to_expiry(self) -> float | None:
        deadline = self._driver.deadline
        return None if deadline is None else max(0.0, deadline - time.monotonic())

    def _check_watchdog(self) -> None:
        if self._seconds_to_expiry() != 0.0:
            return
        seconds = time.monotonic() - self._driver.last_feed
        self._account.record(
            WATCHDOG_DEVICE, f"expired: last fed {seconds:.1f} s ago, the limit was "
            f"{self._driver.timeout} s", operation="expired", since_feed=seconds,
            timeout=self._driver.timeout)
        self._reset_reason = WATCHDOG_DEVICE

    # -- children ------------------------------------------------------------------------------

    def _notice_ended_children(self) -> None:
        read_fd, write_fd = os.pipe()
        os.set_blocking(read_fd, False)
        os.set_blocking(write_fd, False)
        signal.signal(signal.SIGCHLD, lambda number, frame: None)
        signal.set_wakeup_fd(write_fd, warn_on_full_buffer=False)
        self._selector.register(read_fd, selectors.EVENT_READ, lambda: self._reap_all(read_fd))

    def _reap_all(self, wakeup_fd: int) -> None:
        os.read(wakeup_fd, 4096)
        while True:
            try:
                pid, status = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return
            if pid == 0:
                return
            self._reap(pid, status)

    def _reap(self, pid: int, wait_status: int, by_reset: bool = False) -> None:
        status = os.waitstatus_to_exitcode(wait_status)
        if self._runs.ended(pid, status):
            return
        if pid == self._supervisor.pid and not by_reset:
            self._supervisor_ended(status)

    def _supervisor_ended(self, status: int) -> None:
        self._supervisor.ended(status)
        self._system_log.drain()
        self._watchdog.drain()
        how = f"exit status {status}" if status >= 0 else f"signal {_signal_name(-status)}"
        self._account.record(SIMULATOR, f"supervisor ended by itself: {how}", status=status)
        seconds = self._seconds_to_expiry()
        if seconds is None:
            self._end("supervisor",
                      f"the simulation ends: supervisor ended, {how}", status=status)
        else:
            self._account.record(SIMULATOR, "the watchdog device goes on counting down: reset in "
                                 f"{seconds:.1f} s")

    # -- tools ---------------------------------------------------------------------------------

    def _reboot(self, arguments: list[str]) -> Outcome:
        self._reset_reason = "reboot"
        return Outcome(None, "resets the board")

    # -- requests ------------------------------------------------------------------------------

    def _power_off(self) -> None:
        self._powered = False

    def _stop(self, request: dict[str, Any], descriptors: list[int]) -> None:
        self._account.record(SIMULATOR, "switched off")
        self._power_off()

    def _press_reset(self, request: dict[str, Any], descriptors: list[int]) -> None:
        self._reset_reason = "reset button"

    def _list_processes(self, request: dict[str, Any], descriptors: list[int]) -> control.Answer:
        listed = [asdict(process) for process in processes.list_processes() if process.pid != 1]
        return control.Answer({"processes": listed, "supervisor": self._supervisor.pid}, [])

    def _signal(self, request: dict[str, Any], descriptors: list[int]) -> None:
        os.kill(request["pid"], request["number"])

    def _open(self, request: dict[str, Any], descriptors: list[int]) -> control.Answer:
        return control.Answer({}, [os.open(request["path"], os.O_RDONLY | os.O_NONBLOCK)])

    def _run(self, request: dict[str, Any], descriptors: list[int]) -> control.Answer:
        environment = supervisor.board_environment(self._configuration)
        return control.Answer(
            {"pid": self._runs.start(request["arguments"], environment, descriptors)}, [])

    def _set_tool(self, request: dict[str, Any], descriptors: list[int]) -> None:
        self._tools.set_behaviour(request["name"], request["behaviour"])

    def _set_read_only_root(self, request: dict[str, Any], descriptors: list[int]) -> None:
        kernel.set_read_only(paths.HOME, request["read_only"])


def dispatch(selector: selectors.BaseSelector, seconds: float | None) -> None:
    """Wait at most `seconds` for events and call the function that is registered for each.

    A call may remove other descriptors from the selector: the end of the supervisor, for instance,
    closes its connections. Events of removed descriptors in the same round are skipped.
    """
    for key, _ in selector.select(seconds):
        if selector.get_map().get(key.fd) is key:
            key.data()


def _signal_name(number: int) -> str:
    try:
        return signal.Signals(number).name
    except ValueError:
        return str(number)
