# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The Yocto recipe, as far as it can be checked without the tool that builds from it."""

from __future__ import annotations

import hashlib
import re
from fnmatch import fnmatch

import pytest

from tools import ROOT, SdkBuild, files_below

# The tool's own values, as a recipe with systemd gets them.
VARIABLES = {"PN": "pynx-watchdog", "BPN": "pynx-watchdog", "prefix": "/usr", "bindir": "/usr/bin",
             "libdir": "/usr/lib", "nonarch_libdir": "/usr/lib", "sysconfdir": "/etc",
             "mandir": "/usr/share/man", "systemd_system_unitdir": "/lib/systemd/system",
             "STAGING_DIR_HOST": "/sysroot", "WORKDIR": "/work", "SRCPV": ""}
# What goes into the package, and its documents, without being named; of the tool's list, what
# matters here.
BY_DEFAULT = "${bindir}/* ${sysconfdir} ${libdir}/${BPN}/* ${mandir}"


def expand(text: str) -> str:
    """The text with every ${variable} replaced; an unknown one fails the test."""
    return re.sub(r"\$\{(\w+)\}", lambda found: VARIABLES[found[1]], text)


@pytest.fixture
def recipe() -> dict[str, str]:
    """The recipe's assignments, lines joined, as written."""
    text = (ROOT / "packaging/yocto/pynx-watchdog_git.bb").read_text("utf-8").replace("\\\n", " ")
    lines = [line for line in text.splitlines() if line and not line.startswith(("#", "inherit "))]
    found = {}
    for line in lines:
        assignment = re.fullmatch(r'([\w:${}]+) \+?= "([^"]*)"', line)
        assert assignment, f"this is no assignment: {line}"
        found[assignment[1]] = assignment[2]
    return found


def test_every_installed_file_is_packaged(recipe: dict[str, str], sdk_build: SdkBuild) -> None:
    # The unit is added by the class systemd.
    places = expand(BY_DEFAULT + " " + recipe["FILES:${PN}"]).split()
    places.append(f"{VARIABLES['systemd_system_unitdir']}/{recipe['SYSTEMD_SERVICE:${PN}']}")
    for name in files_below(sdk_build.root):
        assert any(fnmatch(f"/{name}", place) or f"/{name}".startswith(f"{place}/")
                   for place in places), f"/{name} would be left over"


def test_the_unit_and_the_configuration_are_installed(recipe: dict[str, str],
                                                      sdk_build: SdkBuild) -> None:
    installed = {f"/{name}" for name in files_below(sdk_build.root)}
    unit = f"{VARIABLES['systemd_system_unitdir']}/{recipe['SYSTEMD_SERVICE:${PN}']}"
    assert {unit, *expand(recipe["CONFFILES:${PN}"]).split()} <= installed


def test_its_options_are_the_projects(recipe: dict[str, str]) -> None:
    sources = "".join(path.read_text("utf-8") for path in
                      (ROOT / "packaging/CMakeLists.txt", ROOT / "platform/CMakeLists.txt"))
    options = re.findall(r"-D(\w+)=", recipe["EXTRA_OECMAKE"])
    assert options
    for option in options:
        assert option == "BUILD_TESTING" or f"set({option} " in sources


def test_licence_and_version(recipe: dict[str, str], version: str) -> None:
    digest = hashlib.md5((ROOT / "LICENSE").read_bytes()).hexdigest()
    assert recipe["LIC_FILES_CHKSUM"] == f"file://LICENSE;md5={digest}"
    assert recipe["PV"].split("+")[0] == version
