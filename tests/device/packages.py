# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Debian's arm64 packages, fetched by an apt of their own.

That apt has its own state beside the downloads, so the machine's package management neither learns
of a second architecture nor has to be asked for rights. It uses the machine's sources.
"""

from __future__ import annotations

import re
import subprocess
from collections.abc import Iterable, Sequence
from pathlib import Path

ARCHITECTURE = "arm64"

_LEFT_OUT = ("debconf", "debianutils", "dpkg", "init-system-helpers", "perl", "perl-base",
             "shared-mime-info", "usrmerge")
"""What packages want for being installed and upgraded, and no program needs on the board."""


class PackageError(Exception):
    """A package cannot be had."""


class Packages:
    """The packages below a cache directory; whatever is there already is not downloaded again."""

    def __init__(self, cache: Path) -> None:
        self._state = cache / "apt"
        self.archives = self._state / "archives"
        """Where the downloaded packages are."""

    def fetch(self, names: Iterable[str], files: Iterable[Path] = ()) -> list[Path]:
        """The packages of these names and in these files with all that they depend on.

        The result is in the order in which they would be installed. Raises PackageError.
        """
        wanted = [*names, *(str(file.resolve()) for file in files)]
        if not self._lists_are_there():
            self._update()
        try:
            return self._install(wanted)
        except PackageError:
            # The archive has moved on since the lists were read.
            self._update()
            return self._install(wanted)

    def kernel(self) -> Path:
        """The newest kernel image package that is not one of the cloud flavour."""
        if not self._lists_are_there():
            self._update()
        depends = self._run("apt-cache", ["depends", f"linux-image-{ARCHITECTURE}"])
        found = re.search(rf"linux-image-[0-9.]+-\d+-{ARCHITECTURE}", depends)
        if found is None:
            raise PackageError(f"no kernel in the dependencies of linux-image-{ARCHITECTURE}")
        return self._download(found[0])

    def download(self, name: str) -> Path:
        """One package without what it depends on."""
        if not self._lists_are_there():
            self._update()
        return self._download(name)

    def _download(self, name: str) -> Path:
        try:
            return self._download_one(name)
        except PackageError:
            self._update()
            return self._download_one(name)

    def _download_one(self, name: str) -> Path:
        uris = self._run("apt-get", ["download", "--print-uris", name])
        file = self.archives / _file_names(uris)[0]
        if not file.exists():
            self._run("apt-get", ["download", name], directory=self.archives)
        return file

    def _install(self, wanted: Sequence[str]) -> list[Path]:
        plan = self._run("apt-get", ["--simulate", "install", *wanted])
        self._run("apt-get", ["--download-only", "--yes", "install", *wanted])
        given = {str(Path(name)): Path(name) for name in wanted if "/" in name}
        files = []
        for name, version, architecture in re.findall(r"^Inst (\S+) \((\S+) .*?\[(\w+)\]\)?",
                                                      plan, re.MULTILINE):
            file = self.archives / f"{name}_{version.replace(':', '%3a')}_{architecture}.deb"
            if file.exists():
                files.append(file)
            elif not any(Path(path).name.startswith(name + "_") for path in given):
                raise PackageError(f"{name} was not downloaded")
        return files + list(given.values())

    def _lists_are_there(self) -> bool:
        return any((self._state / "lists").glob("*_Packages*"))

    def _update(self) -> None:
        self._run("apt-get", ["--quiet", "update"])

    def _run(self, program: str, arguments: Sequence[str], directory: Path | None = None) -> str:
        if not self.archives.exists():
            self._prepare()
        result = _command([program, *arguments], directory,
                          APT_CONFIG=str(self._state / "apt.conf"))
        if result.returncode != 0:
            raise PackageError(f"{program} {' '.join(arguments)}:\n{result.stdout[-2000:]}"
                               f"{result.stderr[-2000:]}")
        return result.stdout

    def _prepare(self) -> None:
        """An apt that knows one architecture, nothing installed and no hooks of the machine's."""
        for name in ("lists/partial", "archives/partial"):
            (self._state / name).mkdir(parents=True, exist_ok=True)
        (self._state / "status").write_text("".join(
            f"Package: {name}\nStatus: install ok installed\nArchitecture: {ARCHITECTURE}\n"
            f"Multi-Arch: foreign\nVersion: 99:99\nMaintainer: nobody\nDescription: left out\n\n"
            for name in _LEFT_OUT), encoding="utf-8")
        ways_out = [line for line in _command(["apt-config", "dump"]).stdout.splitlines()
                    if line.startswith("Acquire::")]  # proxies among them
        options = {
            "APT::Architecture": ARCHITECTURE,
            "APT::Architectures": ARCHITECTURE,
            "APT::Install-Recommends": "false",
            "APT::Sandbox::User": "",
            "Dir::Etc::main": "/dev/null",
            "Dir::Etc::parts": "/dev/null",
            "Dir::State": self._state,
            "Dir::State::lists": self._state / "lists",
            "Dir::State::status": self._state / "status",
            "Dir::Cache": self._state,
            "Dir::Cache::archives": self.archives,
        }
        (self._state / "apt.conf").write_text("\n".join(
            [*(f'{name} "{value}";' for name, value in options.items()), *ways_out, ""]),
            encoding="utf-8")


def _command(command: Sequence[str], directory: Path | None = None,
             **environment: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run(command, cwd=directory, capture_output=True, stdin=subprocess.DEVNULL,
                          encoding="utf-8", errors="replace", check=False,
                          env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C",
                               "DEBIAN_FRONTEND": "noninteractive", **environment})


def _file_names(uris: str) -> list[str]:
    return re.findall(r"^'\S+' (\S+)", uris, re.MULTILINE)
