# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The simulator in a plain chroot and for an ordinary user."""

import os
import shutil
import stat
import subprocess
import tempfile
from collections.abc import Iterator
from pathlib import Path

import pytest

from marks import AS_ROOT

_PROJECT = Path(__file__).resolve().parents[2]
_NOBODY = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]

_RUN = """
import sys
sys.path.insert(0, {project!r})
from simulator import Device, SimulatorError
try:
    with Device({place!r} + "/program", {place!r} + "/device", watchdog_device=False) as running:
        print(running.wait_end()["status"], running.stdout.decode(), end="")
        print(running.run(["id", "-u"]).stdout.decode(), end="")
        running.set_read_only_root(True)
except SimulatorError as error:
    sys.exit(str(error))
"""

pytestmark = AS_ROOT  # to become somebody else


@pytest.fixture
def place() -> Iterator[Path]:
    """A directory for all users, with a program and a script that runs it on a device."""
    directory = Path(tempfile.mkdtemp(prefix="simulator-"))
    directory.chmod(0o1777)
    program = directory / "program"
    program.write_text("#!/bin/sh\ncat /proc/1/comm\nexit 4\n", encoding="utf-8")
    program.chmod(0o755)
    yield directory
    shutil.rmtree(directory)


def write_run(path: Path, place: str) -> None:
    path.write_text(_RUN.format(project=str(_PROJECT), place=place), encoding="utf-8")


def is_readable_by_all(path: Path) -> bool:
    return all(os.stat(parent).st_mode & stat.S_IXOTH for parent in [path, *path.parents])


def is_in_plain_chroot() -> bool:
    mounts = Path("/proc/self/mountinfo").read_text(encoding="utf-8").splitlines()
    return all(mount.split()[4] != "/" for mount in mounts)


outside_a_chroot = pytest.mark.skipif(
    is_in_plain_chroot(), reason="runs in a plain chroot already, with all the other tests")


def in_chroot(place: Path, command: list[str]) -> subprocess.CompletedProcess[str]:
    """Run a command in a root directory that is no mount point and shows the host's files.

    The mounts for it are made in a mount namespace of the command and end with it.
    """
    root = place / "root"
    shown = ["usr", "etc", "proc", "sys", "dev", _PROJECT.parts[1]]
    for name in [*shown, "tmp"]:
        (root / name).mkdir(parents=True)
    (root / "tmp").chmod(0o1777)
    for name in ("bin", "sbin", "lib", "lib64"):
        if Path("/", name).is_symlink():
            (root / name).symlink_to(os.readlink(f"/{name}"))
    shutil.copy2(place / "program", root / "tmp")
    write_run(root / "tmp" / "run.py", "/tmp")
    mounts = "".join(f"mount --rbind /{name} {root}/{name} && " for name in shown)
    try:
        return subprocess.run(
            ["unshare", "--mount", "sh", "-c", f'{mounts} exec chroot {root} "$@"', "sh", *command],
            capture_output=True, text=True, check=False, timeout=120)
    finally:
        for name in shown:
            (root / name).rmdir()  # fails and deletes nothing if the host's files are still there


@outside_a_chroot
def test_root_needs_no_user_namespace_so_a_plain_chroot_will_do(place: Path) -> None:
    completed = in_chroot(place, ["/usr/bin/python3", "-B", "/tmp/run.py"])
    assert (completed.returncode, completed.stdout, completed.stderr) == (0, "4 python3\n0\n", "")


@outside_a_chroot
def test_a_refused_user_namespace_is_named(place: Path) -> None:
    """In a chroot the kernel refuses a user namespace to an ordinary user."""
    if not is_readable_by_all(_PROJECT):
        pytest.skip("the project lies where an ordinary user cannot read it")
    completed = in_chroot(place, [*_NOBODY, "/usr/bin/python3", "-B", "/tmp/run.py"])
    assert completed.returncode == 1
    assert completed.stdout == ""
    assert completed.stderr.startswith("cannot create a user namespace for the box")
    assert completed.stderr.endswith("Operation not permitted (unshare)\n")


def test_an_ordinary_user_becomes_root_of_the_box(place: Path) -> None:
    if not is_readable_by_all(_PROJECT):
        pytest.skip("the project lies where an ordinary user cannot read it")
    if subprocess.run([*_NOBODY, "unshare", "--user", "true"], check=False).returncode != 0:
        pytest.skip("this kernel has no user namespaces for ordinary users")
    write_run(place / "run.py", str(place))
    completed = subprocess.run([*_NOBODY, "/usr/bin/python3", "-B", str(place / "run.py")],
                               capture_output=True, text=True, check=False, timeout=120)
    assert (completed.returncode, completed.stdout, completed.stderr) == (0, "4 python3\n0\n", "")
