# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the guide and the examples beside it say of the check is so."""

from __future__ import annotations

import os
import re
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


def test_the_drop_in_tells_of_a_mistake(build_directory: Path) -> None:
    drop_in = (ROOT / "packaging/systemd/examples/check.conf").read_text("utf-8")
    # systemd also divides the values of these variables into words.
    command = re.findall("^ExecStartPre=-(.*)$", drop_in, re.MULTILINE)[0]
    result = subprocess.run(
        ["sh", "-c", command], capture_output=True, text=True, check=False,
        env={"PATH": f"{build_directory}:{os.environ['PATH']}",
             "OPTIONS": "--logTyme --logTime", "APPLICATION": "/bin/true --with"})
    assert (result.returncode, result.stderr) == (1, "")
    assert re.match("arguments:1: error: .*--logTyme", result.stdout)
    assert re.search("(?m)^board: error: \"sfuflags\" ", result.stdout)


def test_the_example_of_the_guide_is_so(build_directory: Path, tmp_path: Path) -> None:
    guide = (ROOT / "docs/integration.md").read_text("utf-8")
    entry = re.findall(r"with the entry `({.*?})`", guide)[0]
    document, shown = re.findall(
        r"(?m)^    \$ pynx-watchdog-check (.*)\n((?:    .*\n)+)", guide)[0]
    (tmp_path / document).write_text(
        '{\n  "value": {\n    "type": "list",\n    "list": [\n      ' + entry
        + "\n    ]\n  }\n}\n", "utf-8")
    said = subprocess.run([build_directory / "pynx-watchdog-check", document], cwd=tmp_path,
                          capture_output=True, text=True, check=False).stdout
    assert said.split() == shown.split() != []
