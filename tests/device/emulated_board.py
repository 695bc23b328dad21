# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""A 64-bit Arm board with a hardware watchdog, emulated by QEMU."""

from __future__ import annotations

import json
import os
import socket
import subprocess
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Protocol

import boot_environment
import feeds
from qmp import RESET, WATCHDOG, HardwareEvent, Monitor
from recording import Recording
from remote_control import BoardGone, Completed, RemoteControl
from simulator import SimulatorError, wait_until

EMULATOR = "qemu-system-aarch64"
LOG = "/var/log/application/application.log"
SAMPLE = "/usr/bin/sample-application"

BOOT_TIMEOUT = 900.0
"""Seconds for a board to come up. It takes about ten on a machine that is not busy."""

WATCHDOG_SECONDS = 30
"""The time-out that the supervisor gives the watchdog device."""


def supervise(*application: str, log: str = LOG, log_size: str = "1M") -> list[str]:
    """The supervisor's arguments for an application; by default the sample, which then waits."""
    return ["--logfileName", log, "--logfileSize", log_size, "--app",
            *(application or (SAMPLE, "wait"))]


@dataclass(frozen=True)
class Images:
    """The files that a board boots from. Boards share them and do not write to them."""

    boot_loader: Path
    """Flash chip 0: U-Boot itself."""
    boot_loader_settings: Path
    """Flash chip 1: U-Boot's built-in environment, with the script that it runs."""
    boot: Path
    """Disk 0: kernel and initial RAM file system."""
    root: Path
    """Disk 2, of which every board takes a copy. Busybox is PID 1."""
    systemd_root: Path
    """The same with systemd as PID 1."""


class EmulatedBoard:
    """An emulated board in a directory, from power-on (`start`) to power-off (`stop`).

    directory
        Holds the records of all resets and power cycles: console.log, hardware (the emulator's
        events), emulator.log, host/journal (the system log), host/feeds (the kernel's events of the
        watchdog device and of the application). Holds the disks until `discard`.
    arguments
        The supervisor's arguments, with --app and what follows it. With systemd no argument holds a
        blank, and without arguments the board is as the package's installation leaves it.
    systemd
        Whether systemd is PID 1, or busybox.
    settings
        Payloads of the site's settings by the names of their documents; for example True or a list.
    variables
        What /etc/default/pynx-watchdog sets beside the arguments; only with systemd.
    files
        Texts of further files by their paths on the root, which are written at each boot.
    tools
        Shell scripts that replace the board's tools of the same names.
    root_options
        How the root file system is mounted.
    state_disk
        Whether /var/lib/pynx-watchdog is a file system of its own.
    """

    def __init__(self, directory: Path, images: Images, arguments: Sequence[str], *,
                 systemd: bool = False,
                 settings: Mapping[str, Any] | None = None,
                 variables: Mapping[str, str] | None = None,
                 files: Mapping[str, str] | None = None,
                 tools: Mapping[str, str] | None = None,
                 root_options: str = "rw,errors=remount-ro",
                 state_disk: bool = False) -> None:
        self.directory = directory
        self._images = images
        self.systemd = systemd
        self._variables = variables or {}
        self.host = directory / "host"  # this directory is /host on the board
        for name in ("files", "tools"):
            (self.host / name).mkdir(parents=True)
        self.console = Recording(directory / "console.log")
        self.journal = Recording(self.host / "journal")
        self.monitor = Monitor(directory / "hardware")
        self._environment_disk = directory / "environment.img"
        self.root_disk = directory / "root.ext4"
        self._state_disk = directory / "state.ext4" if state_disk else None
        self._emulator: subprocess.Popen[bytes] | None = None
        self._control: RemoteControl | None = None
        self._seen_boots = 0
        (self.host / "application").write_text(SAMPLE, encoding="utf-8")
        if arguments:
            self.set_arguments(arguments)
        (self.host / "root-options").write_text(root_options, encoding="utf-8")
        for name, value in (settings or {}).items():
            self.add_file(f"etc/pynx-watchdog/{name}.json",
                          json.dumps({"value": {"type": "test", "test": value}}))
        for name, text in (files or {}).items():
            self.add_file(name, text)
        for name, script in (tools or {}).items():
            _write(self.host / ("files/usr/local/sbin" if systemd else "tools") / name,
                   f"#!/bin/sh\n{script}\n")

    # -- set-up ----------------------------------------------------------------------------------

    def set_arguments(self, arguments: Sequence[str]) -> None:
        """Set the supervisor's arguments from the next boot on."""
        program = arguments[arguments.index("--app") + 1]
        (self.host / "application").write_text(program, encoding="utf-8")
        if self.systemd:
            options, application = " ".join(arguments).split(" --app ")
            variables = {"OPTIONS": options, "APPLICATION": application, **self._variables}
            self.add_file("etc/default/pynx-watchdog", "".join(
                f'{name}="{value}"\n' for name, value in variables.items()))
        else:
            (self.host / "supervisor").write_text("".join(f"{word}\n" for word in arguments),
                                                  encoding="utf-8")

    def add_file(self, name: str, text: str) -> None:
        """Write a file to this path of the root from the next boot on; scripts are executable."""
        _write(self.host / "files" / name.lstrip("/"), text)

    def renew_environment(self) -> None:
        """Give the boot loader the environment of a new board. Call it while the board is off."""
        self._environment_disk.write_bytes(boot_environment.pack(boot_environment.FRESH))

    def mend_tool(self, name: str) -> None:
        """Take the script for a tool away, so that a board with busybox has its own tool again."""
        (self.host / "tools" / name).unlink()
        self.check(f"rm /run/tools/{name}")

    # -- power -----------------------------------------------------------------------------------

    def start(self) -> None:
        """Switch the board on."""
        if self._emulator is not None:
            raise SimulatorError("the board is switched on already")
        if not self.root_disk.exists():
            _copy_sparse(self._images.systemd_root if self.systemd else self._images.root,
                         self.root_disk)
            if self._state_disk is not None:
                subprocess.run(["/sbin/mke2fs", "-q", "-t", "ext4", self._state_disk, "16M"],
                               check=True)
            self.renew_environment()
        control, boards_control = socket.socketpair()
        monitor, boards_monitor = socket.socketpair()
        with boards_control, boards_monitor:
            descriptors = (boards_control.fileno(), boards_monitor.fileno())
            with (self.directory / "emulator.log").open("ab") as log:
                self._emulator = subprocess.Popen(
                    self._command(*descriptors), stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                    cwd=self.directory, pass_fds=descriptors)
        self.monitor.note("power on")
        self.monitor.attach(monitor)
        self._control = RemoteControl(control)
        self._seen_boots = 0

    def power_cut(self) -> None:
        """Cut the power. What the board has not written to its disks is lost."""
        if self._emulator is None or self._control is None:
            raise SimulatorError("the board is switched off already")
        self._emulator.kill()
        self._emulator.wait()
        self.monitor.note("power cut")
        self._control.close()
        self._emulator = self._control = None

    def wait_until_off(self, timeout: float = BOOT_TIMEOUT) -> None:
        """Wait until the board has switched itself off."""
        if self._emulator is None:
            raise SimulatorError("the board is switched off already")
        try:
            self._emulator.wait(timeout)
        except subprocess.TimeoutExpired as error:
            raise SimulatorError(f"not within {timeout} s: the board is off") from error
        self.power_cut()

    def stop(self) -> None:
        """Switch the board off if it is on; nothing of it is left running."""
        if self._emulator is not None:
            self.power_cut()

    def discard(self) -> None:
        """Switch the board off and delete its disks. The records stay."""
        self.stop()
        for disk in (self.root_disk, self._environment_disk, self._state_disk):
            if disk is not None:
                disk.unlink(missing_ok=True)

    # -- what happens ----------------------------------------------------------------------------

    def wait_until_up(self, timeout: float = BOOT_TIMEOUT) -> None:
        """Wait for the boot after the one that the last call has waited for."""
        self._seen_boots += 1
        self._on().wait_for_boot(self._seen_boots, timeout)

    def wait_for_hardware(self, name: str, after: int = 0, timeout: float = 90.0) -> HardwareEvent:
        """Wait for the first event of this name whose index is not less than `after`."""
        return self.monitor.wait_for(name, after, timeout)

    def hardware(self, after: int = 0) -> list[str]:
        """The names of the resets and expiries whose index is not less than `after`."""
        return [event.name for event in self.monitor.events[after:]
                if event.name in (RESET, WATCHDOG)]

    @property
    def boots(self) -> list[feeds.BootTrace]:
        """The kernel's events of the watchdog device and of the application, by boot."""
        return feeds.parse(Recording(self.host / "feeds").text())

    def wait_for_feeds(self, count: int, timeout: float) -> list[float]:
        """Wait until this boot has `count` feeds; returns their times on the board's clock."""
        return wait_until(lambda: found if len(found := self.boots[-1].feeds) >= count else [],
                          f"{count} feeds", timeout)

    @property
    def environment(self) -> dict[str, str]:
        """The boot loader's flags and variables as they are stored now."""
        return boot_environment.unpack(
            self._environment_disk.read_bytes()[:boot_environment.SIZE])

    @property
    def flags(self) -> tuple[int, int]:
        """The boot flags "fail" and "boot_count"."""
        return int(self.environment["fail"]), int(self.environment["boot_count"])

    # -- on the board ----------------------------------------------------------------------------

    def run(self, script: str, timeout: float = BOOT_TIMEOUT) -> Completed:
        """Run a shell script as root."""
        return self._on().run(script, timeout)

    def check(self, script: str, timeout: float = BOOT_TIMEOUT) -> str:
        """Run a script and return its output; raises SimulatorError if it fails."""
        completed = self.run(script, timeout)
        if completed.status != 0:
            raise SimulatorError(f"exit status {completed.status} of {script}: {completed.text}")
        return completed.text

    def run_last(self, script: str) -> None:
        """Run a script that may end the board before it has ended itself."""
        self.monitor.note("ended by", script=script)
        try:
            self.run(script)
        except BoardGone:
            pass

    def read(self, path: str) -> bytes:
        """The content of a file."""
        completed = self.run(f"cat '{path}'")
        if completed.status != 0:
            raise SimulatorError(completed.text)
        return completed.output

    def cause(self) -> dict[str, Any]:
        """What the board has concluded about the cause of this boot."""
        told: dict[str, Any] = json.loads(self.read("/tmp/log/boot").splitlines()[-1])
        return told

    def supervisor(self) -> int:
        """The supervisor's process id; waits until there is one."""
        return int(wait_until(lambda: self.run("pgrep --oldest --exact '.*watchdog'").text,
                              "the supervisor's process"))

    def application(self, program: str = SAMPLE, unlike: int = 0) -> int:
        """The application's process id; waits for one that is not `unlike`."""
        def look() -> int:
            words = self.run(f"pgrep --parent {self.supervisor()} --full {program}").text.split()
            return next((int(word) for word in words if int(word) != unlike), 0)

        return wait_until(look, "an application's process")

    def _on(self) -> RemoteControl:
        if self._control is None:
            raise SimulatorError("the board is switched off")
        return self._control

    def _command(self, control: int, monitor: int) -> list[str]:
        """The emulator's command line. With setpriv the kernel kills the emulator with its parent.

        The processor is always emulated in software, so that the board is the same everywhere.
        """
        def disk(name: str, file: Path, slot: int, options: str = "") -> list[str]:
            # cache=unsafe: the host need not flush, because what the board has written to its disk
            # survives the end of the emulator.
            return ["-drive", f"if=none,id={name},format=raw,file={file},cache=unsafe{options}",
                    "-device", f"virtio-blk-pci,drive={name},addr={slot:#x}"]

        images = self._images
        memory = "512" if self.systemd else "256"
        state = [] if self._state_disk is None else disk("state", self._state_disk, 10)
        return [
            "setpriv", "--pdeathsig", "KILL", EMULATOR, "-nodefaults", "-display", "none",
            "-machine", "virt", "-accel", "tcg", "-cpu", "cortex-a53", "-smp", "2", "-m", memory,
            "-drive", f"if=pflash,unit=0,format=raw,readonly=on,file={images.boot_loader}",
            "-drive", f"if=pflash,unit=1,format=raw,readonly=on,file={images.boot_loader_settings}",
            *disk("boot", images.boot, 4, ",readonly=on"),
            *disk("environment", self._environment_disk, 5),
            *disk("root", self.root_disk, 6), *state,
            "-device", "i6300esb,addr=0x7", "-action", "watchdog=reset",
            "-fsdev", f"local,id=host,path={self.host},security_model=none",
            "-device", "virtio-9p-pci,fsdev=host,mount_tag=host,addr=0x8",
            "-device", "virtio-serial-pci,addr=0x9", "-chardev", f"socket,id=control,fd={control}",
            "-device", "virtserialport,chardev=control,name=control",
            "-chardev", "file,id=console,path=console.log,append=on", "-serial", "chardev:console",
            "-chardev", f"socket,id=monitor,fd={monitor}", "-mon", "chardev=monitor,mode=control",
        ]


def _write(file: Path, text: str) -> None:
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(text, encoding="utf-8")
    if text.startswith("#!"):
        file.chmod(0o755)


def _copy_sparse(source: Path, target: Path) -> None:
    subprocess.run(["cp", "--sparse=always", os.fspath(source), os.fspath(target)], check=True)


class NewBoard(Protocol):
    """Switches on an emulated board and waits until it is up, unless told not to wait."""

    def __call__(self, arguments: list[str] | None = None, *, wait: bool = True,
                 **options: Any) -> EmulatedBoard: ...
