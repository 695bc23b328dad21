# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What scripts/build-packages has built, and what `cmake --install` lays down."""

from __future__ import annotations

import os
import subprocess
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parent.parent.parent


def run(*command: str | Path, environment: dict[str, str] | None = None,
        directory: Path | None = None) -> str:
    """What the command says on standard output; the test fails, with all it said, if it fails."""
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True,
                            check=False, cwd=directory, stdin=subprocess.DEVNULL,
                            env={**os.environ, "LC_ALL": "C.UTF-8", **(environment or {})})
    if result.returncode != 0:
        pytest.fail(f"{' '.join(map(str, command))} ended with {result.returncode}:\n"
                    f"{result.stdout[-4000:]}{result.stderr[-4000:]}")
    return result.stdout


@pytest.fixture(scope="session")
def version() -> str:
    """The project's version, from the one place that has it."""
    for line in (ROOT / "CMakeLists.txt").read_text(encoding="utf-8").splitlines():
        if line.startswith("project("):
            words = line.split()
            return words[words.index("VERSION") + 1]
    raise AssertionError("CMakeLists.txt names no version")


@pytest.fixture(scope="session")
def packages(version: str) -> dict[str, Path]:
    """The package of each architecture."""
    directory = ROOT / "build" / "packages"
    found = {name: directory / f"pynx-watchdog_{version}_{name}.deb" for name in ("amd64", "arm64")}
    for path in found.values():
        if not path.exists():
            pytest.exit(f"{path} is missing: run scripts/build-packages first", returncode=4)
    return found


def files_below(directory: Path) -> dict[str, str]:
    """Everything but directories, by its path from the directory; for a link, where it leads."""
    return {str(path.relative_to(directory)): os.readlink(path) if path.is_symlink() else ""
            for path in directory.rglob("*") if path.is_symlink() or not path.is_dir()}


@pytest.fixture
def unpacked(packages: dict[str, Path], tmp_path: Path) -> Callable[[str], Path]:
    """unpacked("arm64"): a directory that holds what that package lays down."""
    def unpack(architecture: str) -> Path:
        directory = tmp_path / architecture
        run("dpkg-deb", "--extract", packages[architecture], directory)
        return directory
    return unpack


@dataclass(frozen=True)
class SdkBuild:
    """The program built with the maker's SDK, or what stands in for it."""

    sdk: Path
    """The SDK's prefix."""
    tree: Path
    """The build tree."""
    root: Path
    """What `cmake --install` lays down, below this directory."""


@pytest.fixture(scope="session")
def sdk_build(tmp_path_factory: pytest.TempPathFactory) -> SdkBuild:
    """The project built with a mock SDK, for the places that the packages and the recipe use."""
    def build(source: Path, prefix: Path | str, *options: str) -> Path:
        tree = tmp_path_factory.mktemp("build")
        run("cmake", "-S", source, "-B", tree, f"-DCMAKE_INSTALL_PREFIX={prefix}", *options)
        run("cmake", "--build", tree, "--parallel", str(os.cpu_count()))
        return tree

    sdk = tmp_path_factory.mktemp("sdk")
    run("cmake", "--install", build(Path(__file__).parent / "mocksdk", sdk))
    tree = build(ROOT, "/usr", f"-DPYNX_SDK_ROOT={sdk}", "-DBUILD_TESTING=OFF",
                 "-DCMAKE_INSTALL_LIBDIR=lib", "-DWATCHDOG_SYSTEMD_UNIT_DIR=/lib/systemd/system")
    root = tmp_path_factory.mktemp("root")
    run("cmake", "--install", tree, environment={"DESTDIR": str(root)})
    return SdkBuild(sdk, tree, root)
