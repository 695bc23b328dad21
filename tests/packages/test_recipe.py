# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The Yocto layer, as far as it can be checked without the tool that builds it."""

from __future__ import annotations

import hashlib
import re
import subprocess
from pathlib import Path
from string import Template

import pytest

from tools import ROOT, SdkBuild, files_below

LAYER = ROOT / "packaging/yocto/meta-pynx-watchdog"
# The values that the tool gives to a recipe with systemd.
VARIABLES = {"PN": "pynx-watchdog", "BP": "pynx-watchdog-0.1.0", "D": "/image", "S": "/sources",
             "sysconfdir": "/etc", "nonarch_libdir": "/usr/lib", "PTEST_PATH": "/ptest",
             "systemd_system_unitdir": "/lib/systemd/system", "LAYERDIR": str(LAYER), "BBPATH": ""}
# The files that the tool packages by default.
BY_DEFAULT = ["/usr/bin", "/usr/lib/pynx-watchdog", "/etc", "/usr/share/man", "/usr/share/doc",
              "/usr/share/bash-completion"]  # the last by its class bash-completion


def read(path: Path) -> dict[str, str]:
    """The assignments with variables replaced. An unknown variable fails the test."""
    code = re.sub("(?m)^#.*\n", "", path.read_text("utf-8")).replace("\\\n", "")
    return dict(re.findall(r'(?m)^(\S+) [?+.]*= "(.*)"$', Template(code).substitute(VARIABLES)))


@pytest.fixture
def path(version: str) -> Path:
    return LAYER / f"recipes-core/pynx-watchdog/pynx-watchdog_{version}.bb"


@pytest.fixture
def recipe(path: Path) -> dict[str, str]:
    return read(path)


def test_every_installed_file_is_packaged(recipe: dict[str, str], sdk_build: SdkBuild) -> None:
    # The reader is for a PC, so the recipe leaves it out.
    installed = {f"/{name}" for name in files_below(sdk_build.root)
                 if not name.startswith("usr/share/pynx-watchdog-evidence/")}
    units = {f"/lib/systemd/system/{unit}"
             for unit in recipe["SYSTEMD_SERVICE:pynx-watchdog"].split()}
    assert {*units, *recipe["CONFFILES:pynx-watchdog"].split()} <= installed
    places = [*BY_DEFAULT, *recipe["FILES:pynx-watchdog"].split()]
    below = tuple(f"{place}/" for place in places)
    assert [name for name in installed - units if not name.startswith(below)] == []


def test_its_options_are_the_projects(recipe: dict[str, str]) -> None:
    texts = (recipe[name] for name in ("EXTRA_OECMAKE", "PACKAGECONFIG[check]",
                                       "PACKAGECONFIG[guard]"))
    options = set(re.findall(r"-D(\w+)=", "".join(texts)))
    sources = "".join(path.read_text("utf-8") for path in ROOT.glob("*/CMakeLists.txt"))
    assert {"BUILD_TESTING", "WATCHDOG_CHECK", "WATCHDOG_GUARD"} < options
    for option in options - {"BUILD_TESTING"}:
        assert re.search(rf"\b(set|option)\({option} ", sources)


def test_licence(recipe: dict[str, str]) -> None:
    digest = hashlib.md5((ROOT / "LICENSES/MIT.txt").read_bytes()).hexdigest()
    assert recipe["LIC_FILES_CHKSUM"] == f"file://LICENSES/MIT.txt;md5={digest}"


def test_the_files_it_names_are_there(path: Path, recipe: dict[str, str]) -> None:
    own = re.findall(r"file://(\S+)", recipe["SRC_URI"])
    assert own
    for name in own:
        assert (path.parent / "files" / name).is_file()
    assert (ROOT / f"packaging/init/{recipe['INITSCRIPT_NAME']}.in").is_file()
    named = set(re.findall(r"\${S}/(debian/tests/\S+)", path.read_text("utf-8")))
    there = {str(test.relative_to(ROOT)) for test in (ROOT / "debian/tests").iterdir()}
    assert named == there - {"debian/tests/control"}


def test_it_suits_old_and_new_releases(path: Path, recipe: dict[str, str]) -> None:
    # The sources lie where S is by default. Newer releases refuse another S in WORKDIR, and have
    # no SRCPV. A commit that is not fixed needs the network whenever recipes are read.
    assert "destsuffix=pynx-watchdog-0.1.0" in recipe["SRC_URI"]
    assert not {"S", "PV"} & set(recipe)
    assert not re.search(r"WORKDIR|SRCPV|AUTOREV", path.read_text("utf-8"))
    assert re.fullmatch("[0-9a-f]{40}", recipe["SRCREV"])


def test_the_layer_finds_the_recipe(path: Path) -> None:
    layer = read(LAYER / "conf/layer.conf")
    assert path in [found for pattern in layer["BBFILES"].split()
                    for found in LAYER.glob(str(Path(pattern).relative_to(LAYER)))]
    assert layer["BBFILE_COLLECTIONS"] == "pynx-watchdog"
    assert re.match(layer["BBFILE_PATTERN_pynx-watchdog"], str(path))
    assert {"kirkstone", "scarthgap"} < set(layer["LAYERSERIES_COMPAT_pynx-watchdog"].split())


def test_run_ptest_tells_each_result(path: Path, tmp_path: Path) -> None:
    script = tmp_path / "run-ptest"
    script.write_bytes((path.parent / "files/run-ptest").read_bytes())
    script.chmod(0o755)
    (tmp_path / "tests").mkdir()
    for name, status in (("bad", 3), ("good", 0)):
        test = tmp_path / "tests" / name
        test.write_text(f'#!/bin/sh\ntouch "$AUTOPKGTEST_TMP/file" && exit {status}\n', "ascii")
        test.chmod(0o755)
    result = subprocess.run([script], capture_output=True, text=True, check=False)
    assert (result.returncode, result.stdout) == (1, "FAIL: bad\nPASS: good\n")
