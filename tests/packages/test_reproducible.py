# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The same sources give the same packages, and the sources are what git tracks."""

from __future__ import annotations

import os
import shutil
from pathlib import Path

import pytest

from tools import ROOT, files_below, run

BUILT = ROOT / "build/packages"


@pytest.fixture
def sources(packages: dict[str, Path], version: str, tmp_path: Path) -> Path:
    """The unpacked source package."""
    directory = tmp_path / "a place with another name" / "sources"
    directory.parent.mkdir()
    run("dpkg-source", "--no-check", "--extract", BUILT / f"pynx-watchdog_{version}.dsc", directory)
    return directory


def test_another_build_gives_the_same_bytes(sources: Path, tmp_path: Path) -> None:
    for path in sources.rglob("*"):
        os.utime(path, (10 ** 9, 10 ** 9), follow_symlinks=False)
    output = tmp_path / "output"
    machine = run("dpkg", "--print-architecture").strip()
    # The other build took place under these settings: TZ and the umask of whoever ran the tests.
    run("sh", "-c", 'umask 077; exec "$@"', "sh",
        sources / "scripts/build-packages", "--output", output, machine,
        environment={"TZ": "Pacific/Kiritimati", "LC_ALL": "C.UTF-8", "LANGUAGE": "de",
                     "HOME": str(tmp_path)})
    # The other two kinds of file say when and where they were made.
    same = [path.name for path in output.iterdir()
            if path.suffix not in (".log", ".buildinfo", ".changes")]
    assert {Path(name).suffix for name in same} == {".deb", ".dsc", ".xz", ".json"}
    different = [name for name in same
                 if (output / name).read_bytes() != (BUILT / name).read_bytes()]
    if different and shutil.which("diffoscope"):
        print(run("sh", "-c", 'diffoscope "$@" || true', "sh",
                  BUILT / different[0], output / different[0]))
    assert not different


def test_what_git_does_not_track_is_left_out(sources: Path, packages: dict[str, Path],
                                             tmp_path: Path) -> None:
    tracked = set(files_below(sources))
    run("git", "init", "--quiet", sources)
    run("git", "-C", sources, "add", "--all", "--force")
    (sources / "photographs").mkdir()
    (sources / "photographs/one").touch()
    # In place of the build: note the sources, and leave a package behind.
    machine = run("dpkg", "--print-architecture").strip()
    tool = tmp_path / "bin/dpkg-buildpackage"
    tool.parent.mkdir()
    tool.write_text(f"#!/bin/sh\nfind . ! -type d -printf '%P\\n' >'{tmp_path}/packed'\n"
                    f"cp '{packages[machine]}' ..\n")
    tool.chmod(0o755)
    run(sources / "scripts/build-packages", "--output", tmp_path / "output", machine,
        environment={"PATH": f"{tool.parent}:{os.environ['PATH']}"})
    assert set((tmp_path / "packed").read_text("utf-8").splitlines()) == tracked
