# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The calls to the Linux kernel that Python's library does not have.

Mounts are handled as descriptors of detached trees (open_tree, move_mount). A tree that was taken
before the new root is built stays reachable, also when its old place is hidden by another mount.
"""

from __future__ import annotations

import ctypes
import errno
import os
import struct

CLONE_NEWNS = 0x00020000
CLONE_NEWUTS = 0x04000000
CLONE_NEWIPC = 0x08000000
CLONE_NEWUSER = 0x10000000
CLONE_NEWPID = 0x20000000

MS_NOSUID = 0x2
MS_NODEV = 0x4
MS_NOEXEC = 0x8
_MS_REC = 0x4000
_MS_PRIVATE = 1 << 18

_AT_FDCWD = -100
_AT_RECURSIVE = 0x8000
_AT_EMPTY_PATH = 0x1000
_OPEN_TREE_CLONE = 1
_MOVE_MOUNT_F_EMPTY_PATH = 0x4
_MOUNT_ATTR_RDONLY = 0x1

# These three numbers are the same on every architecture.
_SYS_OPEN_TREE = 428
_SYS_MOVE_MOUNT = 429
_SYS_MOUNT_SETATTR = 442

_PR_SET_PDEATHSIG = 1
_PR_CAPBSET_DROP = 24

# A program on the board needs files of any owner, other accounts and real-time priority. Left out
# are mounts, devices, the clock, modules, the network set-up and the control of the box's PID 1.
# They reach beyond the box: root in the box is root of the machine when root runs the simulator.
_CAPABILITIES = frozenset({
    0,   # CHOWN
    1,   # DAC_OVERRIDE
    3,   # FOWNER
    4,   # FSETID
    5,   # KILL
    6,   # SETGID
    7,   # SETUID
    10,  # NET_BIND_SERVICE
    13,  # NET_RAW
    14,  # IPC_LOCK
    15,  # IPC_OWNER
    23,  # SYS_NICE
    24,  # SYS_RESOURCE
})

_libc = ctypes.CDLL(None, use_errno=True)


def _check(result: int, subject: str) -> int:
    if result < 0:
        number = ctypes.get_errno()
        raise OSError(number, os.strerror(number), subject)
    return result


def unshare(flags: int) -> None:
    """Move this process into new namespaces; for CLONE_NEWPID, its next child."""
    _check(_libc.unshare(ctypes.c_int(flags)), "unshare")


def mount(filesystem: str, target: str, flags: int = 0, options: str = "") -> None:
    """Mount a new file system that has no device, such as a tmpfs."""
    _check(_libc.mount(filesystem.encode(), target.encode(), filesystem.encode(),
                       ctypes.c_ulong(flags), options.encode()), target)


def make_private(mount_point: str) -> None:
    """Stop mounts below a mount point from appearing elsewhere, and the other way round."""
    _check(_libc.mount(b"none", mount_point.encode(), None,
                       ctypes.c_ulong(_MS_REC | _MS_PRIVATE), None), mount_point)


def clone_tree(path: str, *, read_only: bool) -> int:
    """Return a descriptor of a detached copy of the mounts at and below `path`."""
    flags = _OPEN_TREE_CLONE | os.O_CLOEXEC | _AT_RECURSIVE
    tree = _check(_libc.syscall(_SYS_OPEN_TREE, _AT_FDCWD, path.encode(), flags), path)
    _set_attributes(tree, b"", _AT_EMPTY_PATH | _AT_RECURSIVE, path,
                    set_=_MOUNT_ATTR_RDONLY if read_only else 0, propagation=_MS_PRIVATE)
    return tree


def attach_tree(tree: int, target: str) -> None:
    """Mount a detached tree at `target` and close its descriptor."""
    try:
        _check(_libc.syscall(_SYS_MOVE_MOUNT, tree, b"", _AT_FDCWD, target.encode(),
                             _MOVE_MOUNT_F_EMPTY_PATH), target)
    finally:
        os.close(tree)


def set_read_only(mount_point: str, read_only: bool) -> None:
    """Make a mount read-only or writable; EBUSY while a file there is open for writing."""
    _set_attributes(_AT_FDCWD, mount_point.encode(), 0, mount_point,
                    set_=_MOUNT_ATTR_RDONLY if read_only else 0,
                    clear=0 if read_only else _MOUNT_ATTR_RDONLY)


def _set_attributes(directory: int, path: bytes, flags: int, subject: str, *,
                    set_: int = 0, clear: int = 0, propagation: int = 0) -> None:
    attributes = struct.pack("=QQQQ", set_, clear, propagation, 0)
    _check(_libc.syscall(_SYS_MOUNT_SETATTR, directory, path, flags, attributes,
                         ctypes.c_size_t(len(attributes))), subject)


def die_with_parent(signal_number: int) -> None:
    """Have the kernel send this process a signal when its parent dies."""
    _check(_libc.prctl(_PR_SET_PDEATHSIG, ctypes.c_ulong(signal_number), 0, 0, 0), "prctl")


def limit_capabilities() -> None:
    """Limit what programs executed from now on may do to the box."""
    number = 0
    while True:
        if number not in _CAPABILITIES:
            try:
                _check(_libc.prctl(_PR_CAPBSET_DROP, ctypes.c_ulong(number), 0, 0, 0), "prctl")
            except OSError as error:
                if error.errno == errno.EINVAL:
                    return  # the kernel knows no further capability
                raise
        number += 1
