# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The external tree for Buildroot, in a stand-in of Buildroot's infrastructure."""

from __future__ import annotations

import re
from pathlib import Path

import kconfiglib  # type: ignore[import]
import pytest

from tools import ROOT, files_below, run

TREE = ROOT / "packaging/buildroot"
# What the tree uses of Buildroot's menu.
SYMBOLS = ["BR2_USE_MMU", "BR2_USE_WCHAR", "BR2_TOOLCHAIN_HAS_THREADS",
           *(f"BR2_PACKAGE_{name}" for name in (
               "BUSYBOX_SHOW_OTHERS", "QT5", "GZIP", "PROCPS_NG", "PSMISC", "TAR", "RAPIDJSON",
               "VALIJSON", "ELFUTILS"))]
# Configures the package as Buildroot does, and calls its commands.
INFRASTRUCTURE = """
INSTALL = install
PYNX_WATCHDOG_PKGDIR = $(BR2_EXTERNAL_PYNX_WATCHDOG_PATH)/package/pynx-watchdog/
define cmake-package
all:
\tcmake -S $$(PYNX_WATCHDOG_SITE) -B $$(PYNX_WATCHDOG_BUILDDIR) -DCMAKE_INSTALL_PREFIX=/usr \\
\t\t-DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF $$(PYNX_WATCHDOG_CONF_OPTS)
\t$$(PYNX_WATCHDOG_INSTALL_INIT_SYSV)
\t$$(PYNX_WATCHDOG_INSTALL_INIT_SYSTEMD)
value-%:
\t@echo '$$(PYNX_WATCHDOG_$$*)'
endef
include $(BR2_EXTERNAL_PYNX_WATCHDOG_PATH)/external.mk
"""


@pytest.fixture
def make(tmp_path: Path) -> list[str]:
    """The command that makes a target in the stand-in."""
    (tmp_path / "Makefile").write_text(INFRASTRUCTURE, "ascii")
    return ["make", "--silent", f"--file={tmp_path}/Makefile",
            f"BR2_EXTERNAL_PYNX_WATCHDOG_PATH={TREE}", f"TARGET_DIR={tmp_path}/target",
            f"PYNX_WATCHDOG_BUILDDIR={tmp_path}/build"]


def test_description() -> None:
    lines = (TREE / "external.desc").read_text("utf-8").splitlines()
    assert lines[0] == "name: PYNX_WATCHDOG"
    assert re.fullmatch("desc: .{1,40}", lines[1])


def test_menu(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    menu = tmp_path / "Config.in"
    menu.write_text("".join(f'config {name}\n\tbool "{name}"\n' for name in SYMBOLS)
                    + f'source "{TREE}/Config.in"\n', "ascii")
    monkeypatch.setenv("BR2_EXTERNAL_PYNX_WATCHDOG_PATH", str(TREE))
    tree = kconfiglib.Kconfig(str(menu), warn_to_stderr=False)
    tree.warn_assign_undef = True
    package = tree.syms["BR2_PACKAGE_PYNX_WATCHDOG"]
    full_tools = tree.syms["BR2_PACKAGE_PYNX_WATCHDOG_FULL_TOOLS"]
    package.set_value("y")
    full_tools.set_value("y")
    for name in ("PACKAGE_PYNX_WATCHDOG_CHECK", "PACKAGE_PYNX_WATCHDOG_GUARD", "USE_WCHAR",
                 "TOOLCHAIN_HAS_THREADS"):
        tree.syms[f"BR2_{name}"].set_value("y")
    assert (package.str_value, full_tools.str_value) == ("n", "n")
    tree.syms["BR2_PACKAGE_QT5"].set_value("y")
    tree.syms["BR2_USE_MMU"].set_value("y")
    assert (package.str_value, full_tools.str_value) == ("y", "n")
    tree.syms["BR2_PACKAGE_BUSYBOX_SHOW_OTHERS"].set_value("y")
    assert full_tools.str_value == "y"
    assert {tree.syms[name].str_value for name in SYMBOLS} == {"y"}
    used = {name for node in tree.node_iter() for name in re.findall(r"BR2_\w+", str(node))}
    assert used == {"BR2_PACKAGE_PYNX_WATCHDOG", "BR2_PACKAGE_PYNX_WATCHDOG_FULL_TOOLS",
                    "BR2_PACKAGE_PYNX_WATCHDOG_CHECK", "BR2_PACKAGE_PYNX_WATCHDOG_GUARD",
                    "BR2_STATIC_LIBS", *SYMBOLS}
    assert not tree.warnings


def test_version_and_licence(make: list[str], version: str) -> None:
    assert run(*make, "value-VERSION") == f"{version}\n"
    assert (ROOT / run(*make, "value-LICENSE_FILES").strip()).is_file()
    assert Path(run(*make, "value-SITE").strip()).resolve() == ROOT


@pytest.mark.parametrize("chosen", [True, False])
@pytest.mark.parametrize(("tool", "needs"), [
    ("CHECK", {"rapidjson", "valijson"}), ("GUARD", {"elfutils"})])
def test_a_tool_is_built_where_it_is_chosen(make: list[str], tool: str, needs: set[str],
                                            chosen: bool) -> None:
    choice = [f"BR2_PACKAGE_PYNX_WATCHDOG_{tool}=y"] if chosen else []
    options = run(*make, *choice, "value-CONF_OPTS").split()
    assert f"-DWATCHDOG_{tool}={'ON' if chosen else 'OFF'}" in options
    needed = run(*make, *choice, "value-DEPENDENCIES").split()
    assert (needs <= set(needed)) == chosen


def test_its_options_and_commands_work(make: list[str], tmp_path: Path) -> None:
    said = run("sh", "-c", '"$@" 2>&1', "sh", *make, "all")
    assert "Manually-specified variables were not used" not in said
    target = tmp_path / "target"
    assert set(files_below(target)) == {"etc/init.d/S99pynx-watchdog",
                                        "usr/lib/systemd/system-preset/50-pynx-watchdog.preset"}
    script = (target / "etc/init.d/S99pynx-watchdog").read_text("utf-8")
    assert "\nprogram_dir=/usr/lib/pynx-watchdog\n" in script
