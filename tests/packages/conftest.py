# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Gives the packages of scripts/build-packages, and builds with a mock SDK."""

from __future__ import annotations

import os
from collections.abc import Callable
from pathlib import Path

import pytest

from tools import ROOT, SdkBuild, run


@pytest.fixture(scope="session")
def version() -> str:
    """The project's version, from CMakeLists.txt."""
    for line in (ROOT / "CMakeLists.txt").read_text(encoding="utf-8").splitlines():
        if line.startswith("project("):
            words = line.split()
            return words[words.index("VERSION") + 1]
    raise AssertionError("CMakeLists.txt names no version")


@pytest.fixture(scope="session")
def evidence(packages: dict[str, Path], version: str) -> Path:
    """The package file of pynx-watchdog-evidence."""
    return packages["amd64"].with_name(f"pynx-watchdog-evidence_{version}_all.deb")


@pytest.fixture(scope="session")
def packages(version: str) -> dict[str, Path]:
    """The package file of each architecture."""
    directory = ROOT / "build" / "packages"
    found = {name: directory / f"pynx-watchdog_{version}_{name}.deb" for name in ("amd64", "arm64")}
    for path in found.values():
        if not path.exists():
            pytest.exit(f"{path} is missing: run scripts/build-packages first", returncode=4)
    return found


@pytest.fixture(scope="session")
def guards(packages: dict[str, Path]) -> dict[str, Path]:
    """The package file of pynx-watchdog-guard of each architecture."""
    return {architecture: path.with_name(path.name.replace("watchdog_", "watchdog-guard_"))
            for architecture, path in packages.items()}


@pytest.fixture
def unpacked(packages: dict[str, Path], tmp_path: Path) -> Callable[[str], Path]:
    """unpacked("arm64"): a directory with the files that this package installs."""
    def unpack(architecture: str) -> Path:
        directory = tmp_path / architecture
        run("dpkg-deb", "--extract", packages[architecture], directory)
        return directory
    return unpack


@pytest.fixture(scope="session")
def sdk_build(tmp_path_factory: pytest.TempPathFactory) -> SdkBuild:
    """The project built with a mock SDK, for the paths that the packages and the recipe use."""
    def build(source: Path, prefix: Path | str, *options: str) -> Path:
        tree = tmp_path_factory.mktemp("build")
        run("cmake", "-S", source, "-B", tree, f"-DCMAKE_INSTALL_PREFIX={prefix}", *options)
        run("cmake", "--build", tree, "--parallel", str(os.cpu_count()))
        return tree

    sdk = tmp_path_factory.mktemp("sdk")
    run("cmake", "--install", build(Path(__file__).parent / "mocksdk", sdk))
    tree = build(ROOT, "/usr", f"-DPYNX_SDK_ROOT={sdk}", "-DBUILD_TESTING=OFF",
                 "-DWATCHDOG_EVIDENCE=ON",
                 "-DCMAKE_INSTALL_LIBDIR=lib", "-DWATCHDOG_SYSTEMD_UNIT_DIR=/lib/systemd/system")
    root = tmp_path_factory.mktemp("root")
    run("cmake", "--install", tree, environment={"DESTDIR": str(root)})
    return SdkBuild(sdk, tree, root)
