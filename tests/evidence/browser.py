# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""A browser without a network, for the tests of the page."""

from __future__ import annotations

import hashlib
import json
import shutil
import subprocess
import tarfile
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest
from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.support.wait import WebDriverWait

BOUND = 60  # seconds; for what takes a moment on an idle machine

# The rules of accessibility are the newest that were tried.
AXE = "axe-core@4.10.3"
AXE_SHA256 = "880970c081707360e64f34cea25ff91892f5bc95675b0776925b9709dd8a68bb"


class Browser:
    """Chromium, driven by Debian's chromedriver."""

    def __init__(self) -> None:
        options: Any = webdriver.ChromeOptions()  # Any: Debian's selenium has types in parts only
        # Chromium has no sandbox for root, whom the tests may run as.
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver: Any = webdriver.Chrome(service=Service("/usr/bin/chromedriver"),
                                            options=options)
        self.driver.set_script_timeout(BOUND)
        self.command("Network.enable")
        self.command("Network.emulateNetworkConditions", offline=True, latency=0,
                     downloadThroughput=0, uploadThroughput=0)

    def command(self, name: str, **parameters: Any) -> Any:
        """Give a command of the DevTools protocol."""
        return self.driver.execute_cdp_cmd(name, parameters)

    def resize(self, width: int, height: int = 1000) -> None:
        """Give the page this size, in pixels."""
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=height,
                     deviceScaleFactor=1, mobile=width < 500)

    def fits(self, width: int) -> None:
        """Give the page this width, and wait until nothing of it is wider."""
        self.resize(width)
        self.wait(lambda: self.js("return innerWidth") == width)
        self.wait(lambda: self.js("return document.documentElement.scrollWidth") <= width)

    def colours(self, scheme: str, media: str = "") -> None:
        """Say which colours the user prefers, "light" or "dark"."""
        self.command("Emulation.setEmulatedMedia", media=media, features=[
            {"name": "prefers-color-scheme", "value": scheme}])

    def open(self, file: Path, fragment: str = "") -> None:
        """Open a page afresh, and wait until all of it is there."""
        self.driver.get("about:blank")
        self.driver.get_log("browser")  # forgets what was said until now
        self.driver.get_log("performance")
        self.driver.get(file.as_uri() + fragment)
        self.wait(lambda: self.js("return document.documentElement.dataset.ready === ''"))

    def js(self, script: str, *arguments: Any) -> Any:
        """What the script returns."""
        return self.driver.execute_script(script, *arguments)

    def wait(self, condition: Callable[[], Any]) -> Any:
        """Wait until the condition is met, and return what it returned."""
        return WebDriverWait(self.driver, BOUND, 0.05).until(lambda _: condition())

    def click(self, path: str) -> None:
        """Click the first element that the XPath finds."""
        def clicked() -> bool:
            try:
                self.driver.find_element("xpath", path).click()
            except StaleElementReferenceException:  # it was drawn anew meanwhile
                return False
            return True

        self.wait(clicked)

    def drag(self, x: float, y: float, by: int) -> None:
        """Press the mouse's button at this place, move by so many pixels to the right, release."""
        for kind, place in ("mousePressed", x), ("mouseMoved", x + by), ("mouseReleased", x + by):
            self.command("Input.dispatchMouseEvent", type=kind, x=place, y=y, button="left",
                         buttons=1, clickCount=1)

    def text(self, selector: str) -> str:
        """All text of the first element that the selector finds."""
        return str(self.js("return document.querySelector(arguments[0]).textContent", selector))

    def texts(self, selector: str) -> list[str]:
        """The text of each element that the selector finds."""
        return list(self.js("return [...document.querySelectorAll(arguments[0])]"
                            ".map(element => element.textContent)", selector))

    def shows(self, selector: str) -> bool:
        """Whether the element can be seen."""
        return bool(self.js("return document.querySelector(arguments[0]).checkVisibility()",
                            selector))

    def violations(self, rules: str) -> list[tuple[str, str, list[str]]]:
        """What the rules of accessibility find wrong with the page: rule, impact and elements."""
        self.js(rules)
        result = self.driver.execute_async_script(
            "const done = arguments[arguments.length - 1];"
            "axe.run().then(result => done(result), error => done(String(error)))")
        assert isinstance(result, dict), result
        assert len(result["passes"]) > 20
        return [(finding["id"], finding["impact"], [node["html"] for node in finding["nodes"]])
                for finding in result["violations"]]

    def complaints(self) -> list[str]:
        """What the browser has written to its console."""
        return [entry["message"] for entry in self.driver.get_log("browser")]

    def requests(self) -> list[str]:
        """The addresses that the page has asked for."""
        said = [json.loads(entry["message"])["message"]
                for entry in self.driver.get_log("performance")]
        return [message["params"]["request"]["url"] for message in said
                if message["method"] == "Network.requestWillBeSent"]


def accessibility_rules(place: Path) -> str:
    """The script of axe-core, which npm fetches once into `place`. Skips the test without it."""
    script = place / "axe.min.js"
    if not script.is_file():
        npm = shutil.which("npm")
        if npm is None:
            pytest.skip(f"{AXE} is fetched with npm, which is not here")
        place.mkdir(parents=True, exist_ok=True)
        done = subprocess.run([npm, "pack", AXE], cwd=place, capture_output=True, text=True,
                              timeout=300)
        if done.returncode:
            pytest.skip(f"npm could not fetch {AXE}: {done.stderr.strip()[-300:]}")
        with tarfile.open(place / (AXE.replace("@", "-") + ".tgz")) as archive:
            member = archive.extractfile("package/axe.min.js")
            assert member
            script.write_bytes(member.read())
    assert hashlib.sha256(script.read_bytes()).hexdigest() == AXE_SHA256, f"this is not {AXE}"
    return script.read_text(encoding="utf-8")
