# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The root file system of the box: the host's, read-only, with the board's own places in it.

The new root is assembled on a tmpfs. All trees that go into it are taken first, as detached copies,
because the tmpfs hides the place where it is mounted. That place is /proc, which is a mount point
on every running system. In a plain chroot "/" is no mount point. A mount point can be made private,
so that no mount below it appears on the host.
"""

from __future__ import annotations

import os
import shutil
import stat
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass

from simulator.box import kernel
from simulator.common import SimulatorError, paths
from simulator.common.configuration import Bind, Configuration

NEW_ROOT = "/proc"

_OWN = ("proc", "dev", "run", "tmp", "home", "lost+found")
_DEVICES = ("null", "zero", "full", "random", "urandom", "tty")
_DEVICE_LINKS = {"fd": "/proc/self/fd", "stdin": "fd/0", "stdout": "fd/1", "stderr": "fd/2",
                 "ptmx": "pts/ptmx"}
# Through these, root in the box could change the machine if they were writable.
_READ_ONLY_PROC = ("bus", "fs", "irq", "sys")
_HIDDEN_PROC = ("kcore", "sysrq-trigger")
_VOLATILE = ("/run", "/dev/shm")


@dataclass
class _Tree:
    """A detached tree and its place in the box; `name` is for messages."""

    name: str
    target: str
    descriptor: int
    is_directory: bool


@contextmanager
def step(what: str) -> Iterator[None]:
    """Add to an error of the kernel what was being done."""
    try:
        yield
    except OSError as error:
        subject = f" ({error.filename.removeprefix(NEW_ROOT)})" if error.filename else ""
        raise SimulatorError(f"cannot {what}: {error.strerror}{subject}") from error


def build(configuration: Configuration) -> None:
    """Assemble the box's root on NEW_ROOT, without /proc; needs a mount namespace of its own."""
    with step("take the host's file system into the box"):
        links, trees = _host_trees()
    with step("take the device directory into the box"):
        trees += _device_trees(configuration)
    with step("make the mounts of the box private"):
        kernel.make_private(NEW_ROOT)
    with step("mount the root file system of the box"):
        kernel.mount("tmpfs", NEW_ROOT, kernel.MS_NODEV, "mode=755")
        _make_own_directories()
        for name, target in links.items():
            os.symlink(target, f"{NEW_ROOT}/{name}")
    for tree in trees:
        _place(tree)
    for place, size in configuration.spaces.items():
        with step(f"mount a file system of {size} bytes at {place}"):
            os.makedirs(NEW_ROOT + place, exist_ok=True)
            kernel.mount("tmpfs", NEW_ROOT + place, kernel.MS_NODEV, f"mode=1777,size={size}")


def enter() -> None:
    """Mount /proc for the namespace of this process and change to the new root."""
    with step("mount the box's /proc"):
        kernel.mount("proc", NEW_ROOT + "/proc",
                     kernel.MS_NOSUID | kernel.MS_NODEV | kernel.MS_NOEXEC)
        for name in _READ_ONLY_PROC:
            _cover(f"{NEW_ROOT}/proc/{name}", f"{NEW_ROOT}/proc/{name}")
        for name in _HIDDEN_PROC:
            _cover(f"{NEW_ROOT}/dev/null", f"{NEW_ROOT}/proc/{name}")
    with step("enter the root file system of the box"):
        kernel.set_read_only(NEW_ROOT, True)
        os.chroot(NEW_ROOT)
        os.chdir("/")


def empty_volatile() -> None:
    """Remove files that a board loses at a reset, but not the simulator's own.

    /tmp stays, although a real board loses it too: an engineer wants to see its logs and archives
    after a reset.
    """
    for directory in _VOLATILE:
        for entry in os.scandir(directory):
            if entry.path == paths.RUN:
                continue
            if entry.is_dir(follow_symlinks=False):
                shutil.rmtree(entry.path, ignore_errors=True)
            else:
                os.unlink(entry.path)


def _host_trees() -> tuple[dict[str, str], list[_Tree]]:
    links: dict[str, str] = {}
    trees: list[_Tree] = []
    for entry in os.scandir("/"):
        if entry.name in _OWN:
            continue
        if entry.is_symlink():
            links[entry.name] = os.readlink(entry.path)
        else:
            trees.append(_take(entry.path, entry.path))
    if os.path.isdir("/home"):
        for entry in os.scandir("/home"):
            if entry.is_symlink():
                links[f"home/{entry.name}"] = os.readlink(entry.path)
            elif entry.name != "root":
                trees.append(_take(entry.path, entry.path))
    trees += [_take(f"/dev/{name}", f"/dev/{name}", read_only=False) for name in _DEVICES]
    return links, trees


def _device_trees(configuration: Configuration) -> list[_Tree]:
    trees = [_take(f"{configuration.directory}/{name}", place,
                   read_only=place == paths.PROGRAM_DIRECTORY)
             for place, name in paths.KEPT_DIRECTORIES.items()]
    return trees + [_take_bind(bind) for bind in configuration.binds]


def _take_bind(bind: Bind) -> _Tree:
    with step(f"make {bind.source} visible in the box"):
        return _take(bind.source, bind.target)


def _take(source: str, target: str, *, read_only: bool = True) -> _Tree:
    return _Tree(source, target, kernel.clone_tree(source, read_only=read_only),
                 stat.S_ISDIR(os.stat(source).st_mode))


def _place(tree: _Tree) -> None:
    with step(f"show {tree.name} at {tree.target} of the box"):
        target = NEW_ROOT + tree.target
        if not os.path.lexists(target):
            os.makedirs(target if tree.is_directory else os.path.dirname(target), exist_ok=True)
            if not tree.is_directory:
                os.close(os.open(target, os.O_CREAT | os.O_CLOEXEC, 0o644))
        kernel.attach_tree(tree.descriptor, target)


def _make_own_directories() -> None:
    for name in ("dev", "home", "proc", "run", "supervisor", "tmp"):
        os.mkdir(f"{NEW_ROOT}/{name}", 0o755)
    os.mkdir(f"{NEW_ROOT}/home/root", 0o755)
    kernel.mount("tmpfs", f"{NEW_ROOT}/run", kernel.MS_NODEV | kernel.MS_NOSUID, "mode=755")
    kernel.mount("tmpfs", f"{NEW_ROOT}/dev", kernel.MS_NOSUID, "mode=755")
    for name, target in _DEVICE_LINKS.items():
        os.symlink(target, f"{NEW_ROOT}/dev/{name}")
    os.mkdir(f"{NEW_ROOT}/dev/shm")
    kernel.mount("tmpfs", f"{NEW_ROOT}/dev/shm", kernel.MS_NODEV | kernel.MS_NOSUID, "mode=1777")
    os.mkdir(f"{NEW_ROOT}/dev/pts")
    kernel.mount("devpts", f"{NEW_ROOT}/dev/pts", kernel.MS_NOSUID | kernel.MS_NOEXEC,
                 "newinstance,mode=620,ptmxmode=666")


def _cover(source: str, target: str) -> None:
    if os.path.exists(target):
        kernel.attach_tree(kernel.clone_tree(source, read_only=True), target)
