# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The completion of command lines, in a real bash."""

from __future__ import annotations

import json
import re
import subprocess
from collections.abc import Callable
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
# Completes the last of its arguments as bash would, and prints what may stand in its place.
SCRIPT = """
. /usr/share/bash-completion/bash_completion
. "$completion"
product_completion() { [[ $2 == --p* ]] && COMPREPLY=(--port); }
complete -F product_completion product
# Outside of a key press, bash refuses to change the options of a completion.
compopt() { :; }
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMP_LINE=$* COMP_POINT=${#COMP_LINE} COMPREPLY=()
function=$(complete -p "$1" | sed 's/.*-F //; s/ .*//')
"$function" "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
printf '%s\\n' "${COMPREPLY[@]}"
"""
SUPERVISOR = {"--app", "--logfileName", "--logfileSize", "--logfileSizeConf", "--logTime",
              "--rotateOnly", "--singleRun", "--user"}
DOCUMENTS = {path.name for path in (ROOT / "settings-default").glob("*.json")}

Complete = Callable[..., set[str]]


@pytest.fixture
def complete(tmp_path: Path, build_directory: Path) -> Complete:
    """complete("pynx-watchdog", "--us"): what bash offers for the last word."""
    for name in ("bin", "settings", "settings-default", "here"):
        (tmp_path / name).mkdir()
    (tmp_path / "watchdog").touch(0o755)
    (tmp_path / "bin/pynx-watchdog").symlink_to("../watchdog")
    for name in ("pynx-watchdog-check", "pynx-watchdog-guard"):
        (tmp_path / "bin" / name).symlink_to(build_directory / name)
    (tmp_path / "bin/product").touch(0o755)

    def call(*words: str) -> set[str]:
        file = words[0] if words[0] == "pynx-watchdog-guard" else "pynx-watchdog"
        result = subprocess.run(
            ["/bin/bash", "--norc", "-c", SCRIPT, "bash", *words], cwd=tmp_path / "here",
            capture_output=True, text=True, check=False, stdin=subprocess.DEVNULL,
            env={"PATH": f"{tmp_path}/bin:/usr/bin:/bin", "HOME": str(tmp_path),
                 "completion": str(ROOT / "packaging/completion" / file)})
        assert result.stderr == ""
        return set(result.stdout.split("\n")) - {""}

    return call


def sizes(*names: str) -> str:
    return json.dumps({"$schema": "text", "value": {
        "type": "sizes", "sizes": {**dict.fromkeys(names, "1M"), "_note": "text"}}})


def test_the_supervisors_options_are_those_of_the_program() -> None:
    source = (ROOT / "app/commandline.cpp").read_text("utf-8")
    assert set(re.findall(r'QStringLiteral\("(--\w+)"\)', source)) == SUPERVISOR


@pytest.mark.parametrize("front", [
    ["pynx-watchdog"], ["pynx-watchdog-check", "--"],
    ["pynx-watchdog-check", "--strict", "x.json", "--", "--logTime", "--logfileName", "--app"]])
def test_the_supervisors_options_are_offered(complete: Complete, front: list[str]) -> None:
    assert complete(*front, "") == SUPERVISOR
    assert complete(*front, "--logf") == {"--logfileName", "--logfileSize", "--logfileSizeConf"}


@pytest.mark.parametrize("front", [["pynx-watchdog"], ["pynx-watchdog-check", "--board", "--"]])
def test_after_the_application_its_own_completion_counts(complete: Complete,
                                                         front: list[str]) -> None:
    assert "product" in complete(*front, "--logTime", "--app", "prod")
    assert complete(*front, "--user", "x", "--app", "product", "--p") == {"--port"}
    assert complete(*front, "--app", "product", "--logTime", "--l") == set()


def test_values_of_the_supervisors_options(complete: Complete, tmp_path: Path) -> None:
    (tmp_path / "here/product.log").touch()
    assert complete("pynx-watchdog", "--logfileName", "prod") == {"product.log"}
    assert complete("pynx-watchdog", "--logfileSize", "") == set()
    assert "root" in complete("pynx-watchdog", "--user", "ro")


def test_the_names_of_sizes_come_from_the_settings_in_force(complete: Complete,
                                                            tmp_path: Path) -> None:
    name = "SystemManagerLogFilesSizeConfig.json"
    assert complete("pynx-watchdog", "--logfileSizeConf", "") == set()
    (tmp_path / "settings-default" / name).write_text(sizes("default", "a$(touch run)"), "utf-8")
    assert "default" in complete("pynx-watchdog", "--logfileSizeConf", "")
    assert not (tmp_path / "here/run").exists()
    (tmp_path / "settings" / name).write_text(sizes("default", "service"), "utf-8")
    assert complete("pynx-watchdog", "--logfileSizeConf", "") == {"default", "service"}
    assert complete("pynx-watchdog-check", "--program-dir", str(tmp_path), "--",
                    "--logfileSizeConf", "s") == {"service"}


def test_the_options_of_the_check(complete: Complete) -> None:
    assert complete("pynx-watchdog-check", "--") == {
        "--board", "--explain", "--help", "--json", "--program-dir", "--strict", "--version"}
    assert complete("pynx-watchdog-check", "--program-dir", "../se") == {
        "../settings", "../settings-default"}


def test_of_all_files_the_check_takes_settings(complete: Complete, tmp_path: Path) -> None:
    for name in (*DOCUMENTS, "other.json", "text"):
        (tmp_path / "here" / name).touch()
    (tmp_path / "here/directory").mkdir()
    assert complete("pynx-watchdog-check", "") == DOCUMENTS | {"directory"}
    assert complete("pynx-watchdog-check", "./WatchdogM") == {"./WatchdogMemoryReportingConf.json"}


def test_the_options_of_the_guard(complete: Complete) -> None:
    assert complete("pynx-watchdog-guard", "--restart-on", "3", "-") == {
        "--", "--grace", "--help", "--restart-on", "--stacks", "--startup", "--timeout",
        "--version"}
    assert complete("pynx-watchdog-guard", "--timeout", "") == set()


def test_the_guard_writes_stacks_to_a_directory(complete: Complete, tmp_path: Path) -> None:
    (tmp_path / "here/stacks.txt").touch()
    (tmp_path / "here/stacks").mkdir()
    assert complete("pynx-watchdog-guard", "--stacks", "st") == {"stacks"}


@pytest.mark.parametrize("front", [["--"], ["--stacks", "", "--"], ["--timeout", "30"]])
def test_after_the_guard_the_applications_own_completion_counts(complete: Complete,
                                                                front: list[str]) -> None:
    assert "product" in complete("pynx-watchdog-guard", *front, "prod")
    assert complete("pynx-watchdog-guard", *front, "product", "--p") == {"--port"}
