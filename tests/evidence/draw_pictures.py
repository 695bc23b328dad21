#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Draws the pictures of docs/evidence.md, in Chromium.

Runs an application on the simulated device for four minutes: it asks for reports, is too busy, and
crashes until the board reboots. The pictures are those of the page of this run.

Exit status: 0 drawn, 1 something failed, 2 wrong usage.
"""

from __future__ import annotations

import argparse
import json
import os
import subprocess
import sys
import tempfile
from pathlib import Path

from browser import Browser

PROJECT = Path(__file__).resolve().parents[2]
PICTURES = PROJECT / "docs/pictures"
READER = PROJECT / "tools/evidence/pynx-watchdog-evidence"
APPLICATION = [
    "sample-application", "name", "renderer", "print", r"display: ready\n", "sleep", "12",
    "print", r"==Report==user asked for one\n", "print", r"display: scene with 400 objects\n",
    "burn", "2", "30", "sleep", "28", "print", r"display: frame lost\n", "signal", "11"]
WIDTH = 1200  # pixels


def main() -> int:
    argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter).parse_args()
    with tempfile.TemporaryDirectory() as work:
        os.chdir(work)  # so that the page names short paths
        subprocess.run(
            [PROJECT / "simulate", "--packaged", "--reports", "--watch", "renderer=20", "--logTime",
             "--duration", "4m", "--device-dir", "board", *APPLICATION],
            check=True, stdout=subprocess.DEVNULL)
        subprocess.run([READER, "--html", "page.html", "board"], check=True)
        events = subprocess.run([READER, "--jsonl", "board"], check=True, stdout=subprocess.PIPE)
        kinds = [json.loads(line)["kind"] for line in events.stdout.splitlines()]
        draw(Path("page.html").resolve(), kinds.index("alarm"))
    return 0


def draw(page: Path, event: int) -> None:
    """Draw the whole page, and what it shows of the moment of an event."""
    browser = Browser()
    try:
        browser.colours("light")
        browser.resize(WIDTH, 920)
        browser.open(page)
        browser.driver.save_screenshot(str(PICTURES / "page.png"))
        browser.open(page, f"#e{event}")
        browser.js("document.getElementById('search-section').scrollIntoView()")
        browser.driver.save_screenshot(str(PICTURES / "moment.png"))
    finally:
        browser.driver.quit()


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (OSError, subprocess.CalledProcessError, ValueError) as error:
        sys.exit(f"draw-pictures: {error}")
