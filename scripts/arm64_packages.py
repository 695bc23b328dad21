# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Debian's arm64 packages, for the cross build and for the emulated boards.

An apt with a state of its own fetches them from the machine's package sources. So the machine's
package management does not learn of a second architecture, and no root's rights are needed.
"""

from __future__ import annotations

import os
import re
import subprocess
from collections.abc import Iterable, Sequence
from pathlib import Path

ARCHITECTURE = "arm64"

_LEFT_OUT = ("debconf", "debianutils", "dpkg", "init-system-helpers", "initramfs-tools", "kmod",
             "linux-base", "perl", "perl-base", "shared-mime-info", "usrmerge")
"""Packages that others need only while they are installed or upgraded."""


class ToolError(Exception):
    """A tool is missing or has failed."""


def cache_directory() -> Path:
    """The directory that keeps downloads and what is made of them."""
    base = os.environ.get("XDG_CACHE_HOME") or os.path.expanduser("~/.cache")
    return Path(base) / "pynx-watchdog"


class Packages:
    """Packages in a directory. A package that is there already is not downloaded again.

    left_out
        Packages that are not fetched although others need them.
    """

    def __init__(self, state: Path, left_out: Iterable[str] = _LEFT_OUT) -> None:
        self._state = state
        self._archives = state / "archives"
        for name in ("lists/partial", "archives/partial"):
            (state / name).mkdir(parents=True, exist_ok=True)
        (state / "status").write_text("".join(
            f"Package: {name}\nStatus: install ok installed\nArchitecture: {ARCHITECTURE}\n"
            f"Multi-Arch: foreign\nVersion: 99:99\nMaintainer: nobody\nDescription: left out\n\n"
            for name in left_out), encoding="utf-8")
        options = {
            "APT::Architecture": ARCHITECTURE,
            "APT::Architectures": ARCHITECTURE,
            "APT::Install-Recommends": "false",
            "APT::Sandbox::User": "",
            "Dir::Etc::main": "/dev/null",  # leaves out the machine's hooks
            "Dir::Etc::parts": "/dev/null",
            "Dir::State": state,
            "Dir::State::status": state / "status",
            "Dir::Cache": state,
        }
        # These settings, such as proxies, say how the machine reaches the archive.
        ways_out = [line for line in run(["apt-config", "dump"]).splitlines()
                    if line.startswith("Acquire::")]
        (state / "apt.conf").write_text("\n".join(
            [*(f'{name} "{value}";' for name, value in options.items()), *ways_out, ""]),
            encoding="utf-8")

    def update(self) -> None:
        """Read the archive's lists of packages again."""
        self._apt(self._state, "update")

    def fetch(self, names: Iterable[str], files: Iterable[Path] = ()) -> list[Path]:
        """Fetch the named packages and those in these files, with all that they depend on."""
        given = [file.resolve() for file in files]
        return self._obtain("install", [*names, *map(str, given)]) + given

    def fetch_alone(self, names: Iterable[str]) -> list[Path]:
        """Fetch the named packages without what they depend on."""
        return self._obtain("download", list(names))

    def _obtain(self, action: str, wanted: Sequence[str]) -> list[Path]:
        try:
            return self._obtain_listed(action, wanted)
        except ToolError:
            # There are no lists yet, or the archive has changed since they were read.
            self.update()
            return self._obtain_listed(action, wanted)

    def _obtain_listed(self, action: str, wanted: Sequence[str]) -> list[Path]:
        # With an empty cache apt names all files, also those that were downloaded before.
        named = self._apt(self._state, "--print-uris", "--option",
                          f"Dir::Cache::archives={self._state}/none", action, *wanted)
        files = [self._archives / name
                 for name in re.findall(r"^'(?!file:)\S+' (\S+)", named, re.MULTILINE)]
        if not all(file.exists() for file in files):
            self._apt(self._archives, "--download-only", action, *wanted)
        return files

    def _apt(self, directory: Path, *arguments: str) -> str:
        return run(["apt-get", "--yes", *arguments], directory,
                   APT_CONFIG=str(self._state / "apt.conf"))


def unpack(packages: Iterable[Path], tree: Path, left_out: Iterable[str] = ()) -> Path:
    """Unpack packages into a new tree, and return it."""
    for name in ("bin", "sbin", "lib"):
        (tree / "usr" / name).mkdir(parents=True)
        (tree / name).symlink_to(f"usr/{name}")
    for package in packages:
        run(["sh", "-c", 'dpkg-deb --fsys-tarfile "$0" | tar --extract "$@"', package,
             "--keep-directory-symlink", "--no-same-owner", f"--directory={tree}",
             *(f"--exclude={name}" for name in left_out)])
    return tree


def run(command: Sequence[str | Path], directory: Path | None = None, **environment: str) -> str:
    """Run a tool and return its standard output. ToolError has all that a failed tool printed."""
    everything = {**os.environ, "PATH": f"{os.environ['PATH']}:/usr/sbin:/sbin", "LC_ALL": "C"}
    try:
        result = subprocess.run(command, cwd=directory, stdin=subprocess.DEVNULL,
                                capture_output=True, encoding="utf-8", errors="replace",
                                check=False, env={**everything, **environment})
    except FileNotFoundError as error:
        raise ToolError(f"{command[0]} is missing; see scripts/install-dependencies") from error
    if result.returncode != 0:
        raise ToolError(f"{' '.join(map(str, command))}:\n"
                        f"{result.stdout[-2000:]}{result.stderr[-2000:]}")
    return result.stdout
