# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The scripts for packages and boards: wrong command lines, and what they do not change."""

from __future__ import annotations

import os
import subprocess
from pathlib import Path

import pytest

from tools import ROOT

SCRIPTS = ["bill-of-materials", "build-packages", "prepare-arm64-sysroot", "with-arm64-programs"]


def call(script: str, *arguments: str | Path,
         **environment: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run([ROOT / "scripts" / script, *arguments], capture_output=True, text=True,
                          check=False, stdin=subprocess.DEVNULL, env={**os.environ, **environment})


@pytest.mark.parametrize("script", SCRIPTS)
def test_help(script: str) -> None:
    result = call(script, "--help")
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.lower().startswith("usage: ") and script in result.stdout.splitlines()[0]


@pytest.mark.parametrize(("script", "arguments", "message"), [
    ("bill-of-materials", [], "error: the following arguments are required: package"),
    ("build-packages", ["mips"], "build-packages: unknown argument: mips"),
    ("build-packages", ["--output"], "build-packages: --output needs a value"),
    ("prepare-arm64-sysroot", ["here"], "error: unrecognized arguments: here"),
    ("prepare-arm64-sysroot", ["--directory"], "argument --directory: expected one argument"),
    ("with-arm64-programs", [], "Usage: scripts/with-arm64-programs "),
])
def test_wrong_usage(script: str, arguments: list[str], message: str) -> None:
    result = call(script, *arguments)
    assert (result.returncode, result.stdout) == (2, "")
    assert message in result.stderr


def test_a_bill_of_what_is_no_package(tmp_path: Path) -> None:
    result = call("bill-of-materials", tmp_path)
    assert (result.returncode, result.stdout) == (1, "")
    assert f"bill-of-materials: {tmp_path} is not a Debian package" in result.stderr


def test_a_directory_of_somebody_else_is_left_alone(tmp_path: Path) -> None:
    (tmp_path / "photographs").mkdir()
    (tmp_path / "photographs/one").touch()
    result = call("prepare-arm64-sysroot", "--directory", tmp_path / "photographs")
    assert (result.returncode, result.stdout) == (2, "")
    assert "holds something else than a sysroot" in result.stderr
    assert [path.name for path in (tmp_path / "photographs").iterdir()] == ["one"]


@pytest.fixture
def sysroot(tmp_path: Path) -> Path:
    """A directory that prepare-arm64-sysroot takes for one that it has made."""
    names = ("libdw1", "libqt5core5a", "libqt5test5", "libstdc++6", "qtbase5-dev", "qt5-qmake",
             "rapidjson-dev", "libvalijson-dev", "libdw-dev", "libelf-dev")
    directory = tmp_path / "sysroot"
    (directory / "DEBIAN").mkdir(parents=True)
    (directory / "DEBIAN/packages").write_text(
        "".join(f"{name}_1_arm64.deb\n" for name in names), "ascii")
    return directory


def test_a_sysroot_that_is_there_is_taken(sysroot: Path) -> None:
    result = call("prepare-arm64-sysroot", PYNX_ARM64_SYSROOT=str(sysroot))
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout == f"{sysroot}\n"
    assert [path.name for path in (sysroot / "DEBIAN").iterdir()] == ["packages"]


def test_a_sysroot_that_lacks_a_package_is_made_again(sysroot: Path, tmp_path: Path) -> None:
    listed = sysroot / "DEBIAN/packages"
    earlier = listed.read_text("ascii").replace("rapidjson-dev_1_arm64.deb\n", "")
    listed.write_text(earlier, "ascii")
    apt = tmp_path / "apt-get"
    apt.write_text("#!/bin/sh\necho no network >&2; exit 100\n", "ascii")
    apt.chmod(0o755)
    result = call("prepare-arm64-sysroot", PYNX_ARM64_SYSROOT=str(sysroot),
                  PATH=f"{tmp_path}:{os.environ['PATH']}")
    assert (result.returncode, result.stdout) == (1, "")
    assert f"making the arm64 sysroot {sysroot}" in result.stderr and "no network" in result.stderr
    assert listed.read_text("ascii") == earlier


def test_the_presets_need_a_sysroot(tmp_path: Path) -> None:
    result = subprocess.run(["cmake", "-S", ROOT, "-B", tmp_path / "build",
                             f"-DCMAKE_TOOLCHAIN_FILE={ROOT}/cmake/arm64-toolchain.cmake"],
                            capture_output=True, text=True, check=False,
                            env={**os.environ, "PYNX_ARM64_SYSROOT": "/nowhere"})
    assert result.returncode != 0
    assert "run scripts/prepare-arm64-sysroot first" in " ".join(result.stderr.split())


def test_the_status_is_that_of_the_command() -> None:
    if call("with-arm64-programs", "true").returncode == 125:
        pytest.skip("this kernel or user cannot have an emulation of its own")
    assert call("with-arm64-programs", "sh", "-c", "exit 7").returncode == 7


@pytest.mark.parametrize(("apt_status", "status"), [(0, 0), (100, 1)])
def test_checking_dependencies_installs_nothing(tmp_path: Path, apt_status: int,
                                                status: int) -> None:
    for tool, script in {
            "dpkg-checkbuilddeps": "echo 'error: Unmet build dependencies: a-package' >&2; exit 1",
            "apt-get": f'echo "$*" >>{tmp_path}/asked; exit {apt_status}',
            "id": "echo 0"}.items():
        (tmp_path / tool).write_text(f"#!/bin/sh\n{script}\n")
        (tmp_path / tool).chmod(0o755)
    result = call("install-dependencies", "--check", "device",
                  PATH=f"{tmp_path}:{os.environ['PATH']}")
    assert (result.returncode, result.stdout) == (status, "")
    assert ("these packages cannot be had: a-package" in result.stderr) == (status != 0)
    asked = (tmp_path / "asked").read_text().splitlines()
    assert all("update" in line or "--simulate" in line for line in asked)
