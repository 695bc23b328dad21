# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""pynx-watchdog-check(1) has every rule and option, and no other."""

from __future__ import annotations

import re
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PAGE = (ROOT / "packaging/man/pynx-watchdog-check.1.in").read_text("utf-8").replace("\\-", "-")
SOURCES = [path.read_text("utf-8") for path in (ROOT / "tools/check").glob("*.cpp")]
# How the sources name a rule: as the argument after the place, or beforehand.
PLACE = r'(?:\{[^{}]*\}|[^"{}])*?'
RULES = (rf'\b(error|warning|level|refuse)\({PLACE},\s*QStringLiteral\("([a-z-]+)"\)',
         r'\b(boardError|boardWarning)\(\s*"([a-z-]+)"',
         r'\b(rule) = QStringLiteral\("([a-z-]+)"\)',
         r'\b(checkSpace)\(board, "([a-z-]+)"')


def test_every_rule_is_explained() -> None:
    explained = dict(re.findall(r'(?m)^\.BR ([a-z-]+) " \((.*)\)"$', PAGE))
    found = [rule for text in SOURCES for pattern in RULES for rule in re.findall(pattern, text)]
    assert {rule for _, rule in found} == explained.keys()
    assert set(explained.values()) == {"error", "warning", "error or warning"}
    for function, rule in found:
        level = function.lower().removeprefix("board")
        if level in ("error", "warning"):
            assert level in explained[rule], rule


def test_every_option_is_explained(build_directory: Path) -> None:
    shown = subprocess.run([build_directory / "pynx-watchdog-check", "--help"],
                           capture_output=True, text=True, check=True).stdout
    options = PAGE.split(".SH OPTIONS", 1)[1].split(".SH ", 1)[0]
    explained = set(re.findall(r"(?m)^\.B.*(--[a-z-]+)", options))
    assert explained == set(re.findall(r"--[a-z]\S*", shown))
