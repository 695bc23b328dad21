# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The Yocto recipe, as far as it can be checked without the tool that builds it."""

from __future__ import annotations

import hashlib
import re
from string import Template

import pytest

from tools import ROOT, SdkBuild, files_below

# The values that the tool gives to a recipe with systemd.
VARIABLES = {"PN": "pynx-watchdog", "WORKDIR": "/work", "AUTOREV": "", "SRCPV": "",
             "sysconfdir": "/etc", "nonarch_libdir": "/usr/lib",
             "systemd_system_unitdir": "/lib/systemd/system"}
# The files that the tool packages by default.
BY_DEFAULT = ["/usr/bin", "/usr/lib/pynx-watchdog", "/etc", "/usr/share/man"]


@pytest.fixture
def recipe() -> dict[str, str]:
    """The recipe's assignments with variables replaced. An unknown variable fails the test."""
    text = (ROOT / "packaging/yocto/pynx-watchdog_git.bb").read_text("utf-8")
    code = re.sub("(?m)^#.*\n", "", text).replace("\\\n", "")
    return dict(re.findall(r'(?m)^(\S+) \+?= "(.*)"$', Template(code).substitute(VARIABLES)))


def test_every_installed_file_is_packaged(recipe: dict[str, str], sdk_build: SdkBuild) -> None:
    installed = {f"/{name}" for name in files_below(sdk_build.root)}
    unit = f"/lib/systemd/system/{recipe['SYSTEMD_SERVICE:pynx-watchdog']}"
    assert {unit, *recipe["CONFFILES:pynx-watchdog"].split()} <= installed
    places = [*BY_DEFAULT, *recipe["FILES:pynx-watchdog"].split()]
    below = tuple(f"{place}/" for place in places)
    assert [name for name in installed - {unit} if not name.startswith(below)] == []


def test_its_options_are_the_projects(recipe: dict[str, str]) -> None:
    options = re.findall(r"-D(\w+)=", recipe["EXTRA_OECMAKE"])
    sources = "".join(path.read_text("utf-8") for path in ROOT.glob("*/CMakeLists.txt"))
    assert set(options) > {"BUILD_TESTING"}
    for option in set(options) - {"BUILD_TESTING"}:
        assert f"set({option} " in sources


def test_licence_and_version(recipe: dict[str, str], version: str) -> None:
    digest = hashlib.md5((ROOT / "LICENSE").read_bytes()).hexdigest()
    assert recipe["LIC_FILES_CHKSUM"] == f"file://LICENSE;md5={digest}"
    assert recipe["PV"].split("+")[0] == version
