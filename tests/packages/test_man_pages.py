# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The man pages as far as sources can tell: what they name is there, and all of it."""

from __future__ import annotations

import re
from pathlib import Path

import pytest

from tools import ROOT, SdkBuild, run

FLOORS = ("app", "common", "health", "load", "logging", "platform", "report")
# The scripts that write to the system log, and how.
SCRIPTS = {"packaging/board-tools/tar": "say",
           "packaging/boot/boot-cause": "logger -t pynx_watchdog"}
PAGES = ("man8/pynx-watchdog.8", "man5/pynx-watchdog-settings.5", "man1/pynx-watchdog-check.1",
         "man1/pynx-watchdog-evidence.1", "man1/pynx-watchdog-guard.1")


def sections(sdk_build: SdkBuild) -> dict[str, str]:
    """The text of each section of pynx-watchdog(8), with single blanks."""
    shown = run("man", "--local-file", sdk_build.root / "usr/share/man" / PAGES[0],
                environment={"MANWIDTH": "1000"})
    parts = re.split(r"(?m)^([A-Z][A-Z ]+)$", shown)
    return {name: " ".join(text.split()) for name, text in zip(parts[1::2], parts[2::2])}


def messages() -> list[list[str]]:
    """The fixed parts of each message to standard error or to the system log."""
    found = []
    for floor in FLOORS:
        for source in (ROOT / floor).glob("*.cpp"):
            calls = re.findall(r"(?s)(?:(?<!void )writeErrorLine|::syslog)\((.*?)\);",
                               source.read_text("utf-8"))
            for call in calls:
                literals = re.findall(r'"((?:[^"\\]|\\.)*)"', call)
                parts = [part.strip() for literal in literals
                         for part in re.split(r"%\w|\\n", literal)]
                found.append([part for part in parts if part])
    for script, command in SCRIPTS.items():
        texts = re.findall(rf'\b{command} "([^"]*)"', (ROOT / script).read_text("utf-8"))
        assert texts
        found += [[part.strip() for part in re.split(r"\$\w+", text)] for text in texts]
    return found


def test_it_explains_every_message(sdk_build: SdkBuild) -> None:
    shown = sections(sdk_build)["DIAGNOSTICS"]
    found = messages()
    # Only the lines of the usage come from a list.
    assert found.count([]) == 1 and len(found) > 15
    missing = [part for parts in found for part in parts if part not in shown]
    assert not missing


def test_it_names_every_variable_of_the_configuration(sdk_build: SdkBuild) -> None:
    text = (ROOT / "packaging/systemd/environment").read_text("utf-8")
    variables = set(re.findall(r"(?m)^#?([A-Z_]+)=", text))
    assert {"APPLICATION", "OPTIONS"} <= variables
    shown = sections(sdk_build)["ENVIRONMENT"].replace(",", " ").split()
    assert not variables - set(shown)


def test_the_guides_it_names_are_installed(sdk_build: SdkBuild) -> None:
    guides = re.findall(r"[\w-]+\.md", sections(sdk_build)["SEE ALSO"])
    assert guides
    for guide in guides:
        assert (sdk_build.root / "usr/share/doc/pynx-watchdog" / guide).is_file()


@pytest.mark.parametrize("page", PAGES)
def test_another_reader_of_man_pages_has_nothing_to_say(sdk_build: SdkBuild, page: str) -> None:
    assert run("mandoc", "-T", "lint", sdk_build.root / "usr/share/man" / page) == ""


@pytest.mark.parametrize("page", PAGES)
def test_no_line_is_long(page: str) -> None:
    source = ROOT / "packaging/man" / f"{Path(page).name}.in"
    assert not [line for line in source.read_bytes().splitlines() if len(line) > 80]
