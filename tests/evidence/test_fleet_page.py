# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The page of a fleet: what it counts, and how it acts in a real browser without a network."""

from __future__ import annotations

import base64
import json
from collections import Counter
from pathlib import Path

import pytest
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from browser import Browser, accessibility_rules
from fleets import Facts, make_fleet, pack
from test_command_line import run
from test_page import (
    HOSTILE, alarm, assert_refers_to_nothing_outside, data_of, write_page)
from pynx_watchdog_evidence import fleetpage
from pynx_watchdog_evidence.store import DIMENSIONS

CRASH = "crash by signal 11 (SIGSEGV)"
MISSING = "Process {name} with args [] doesn't appear for 30 seconds\n"


@pytest.fixture(name="happened", scope="module")
def fixture_happened(tmp_path_factory: pytest.TempPathFactory) -> tuple[Path, Counter[Facts]]:
    """The page of a generated fleet, and what happened to it."""
    place = tmp_path_factory.mktemp("fleet")
    found = make_fleet(place / "archives", 300)
    return write_page(place / "archives", place / "page.html"), found


@pytest.fixture(name="browser")
def fixture_browser(chromium: Browser, happened: tuple[Path, Counter[Facts]]) -> Browser:
    """A browser with the page of the fleet in it."""
    chromium.open(happened[0])
    return chromium


def write_odd_fleet(place: Path) -> Path:
    """The page of two devices, of which one tells hostile texts."""
    for device in "one", HOSTILE:
        log = ("2026-11-22 10:00:00.100 Watchdog: Starting app: /usr/bin/render \n"
               + alarm(9, HOSTILE, "50") + MISSING.format(name=HOSTILE))
        pack(place / f"report-on request-{1795341605000 + len(device)}.tar.gz", {
            "manifest.json": json.dumps({"machine": device, "package_version": HOSTILE}),
            "tmp/log/application.log": log})
    return write_page(place, place / "page.html")


def rows(browser: Browser, dimension: str) -> dict[str, list[str]]:
    """The rows of a table, by their values."""
    found = browser.js("return [...document.querySelectorAll(arguments[0])]"
                       ".map(row => [...row.cells].map(cell => cell.textContent))",
                       f"#by-{dimension} tbody tr")
    return {value: cells for value, *cells in found}


def choose(browser: Browser, dimension: str, value: str) -> None:
    """Press the button of a value."""
    browser.click(f"//div[@id='by-{dimension}']//button[.='{value}']")


def total(browser: Browser) -> int:
    """How many incidents are shown."""
    return int(browser.text("#found").split(" ", maxsplit=1)[0].replace(",", ""))


def test_the_file_refers_to_nothing_outside(happened: tuple[Path, Counter[Facts]]) -> None:
    assert_refers_to_nothing_outside(happened[0])


def test_opens_without_a_complaint_or_a_request(
        chromium: Browser, happened: tuple[Path, Counter[Facts]]) -> None:
    chromium.open(happened[0])
    assert chromium.requests() == [happened[0].as_uri()]
    assert chromium.complaints() == []


def test_the_tables_have_all_that_happened(
        browser: Browser, happened: tuple[Path, Counter[Facts]]) -> None:
    assert total(browser) == happened[1].total()
    for place, dimension in enumerate(DIMENSIONS):
        browser.js("document.querySelector(arguments[0]).nextSibling.click()", f"#by-{dimension}")
        expected = Counter[str]()
        devices: dict[str, set[str]] = {}
        for facts, number in happened[1].items():
            expected[facts[place]] += number
            devices.setdefault(facts[place], set()).add(facts[DIMENSIONS.index("device")])
        assert {value: (int(cells[0]), int(cells[1])) for value, cells in
                rows(browser, dimension).items()} == {
            value: (number, len(devices[value])) for value, number in expected.items()}


def test_the_tables_are_those_that_are_printed(
        browser: Browser, happened: tuple[Path, Counter[Facts]]) -> None:
    printed = run(happened[0].parent / "archives").stdout.split("\n\n")[1].splitlines()[1:]
    shown = rows(browser, "cause")
    assert list(shown) == [line.split("  ")[0] for line in printed]
    for line, (value, cells) in zip(printed, shown.items()):
        expected = line[len(value):].replace("-", "−").split()
        assert [cell.replace("-", "−") for cell in cells[:7]] == expected[:7]


def test_a_choice_narrows_the_page_and_is_in_the_address(
        browser: Browser, happened: tuple[Path, Counter[Facts]]) -> None:
    everything = total(browser)
    choose(browser, "cause", CRASH)
    crashes = sum(number for facts, number in happened[1].items() if facts[0] == CRASH)
    browser.wait(lambda: total(browser) == crashes)
    assert browser.js("return document.activeElement.textContent") == CRASH
    choose(browser, "firmware", "Sample OS 1.1")
    both = {facts: number for facts, number in happened[1].items()
            if facts[0] == CRASH and facts[2] == "Sample OS 1.1"}
    browser.wait(lambda: total(browser) == sum(both.values()))
    # A table is narrowed by the others only, so that another of its values can be chosen.
    assert len(rows(browser, "cause")) > 5 and len(rows(browser, "firmware")) == 3
    assert sum(int(cells[0]) for cells in rows(browser, "application").values()) == \
        sum(both.values())
    assert set(browser.texts("#incident-rows td:nth-child(2)")) == {CRASH}

    address = browser.driver.current_url
    browser.open(happened[0], address[address.index("#"):])
    assert total(browser) == sum(both.values())
    browser.click("//*[@id='chosen']/button[starts-with(., 'firmware')]")
    browser.wait(lambda: total(browser) == crashes)
    browser.driver.back()
    browser.wait(lambda: total(browser) == sum(both.values()))
    browser.click("//*[@id='all']")
    browser.wait(lambda: total(browser) == everything)


def test_a_week_is_chosen_in_the_chart(
        browser: Browser, happened: tuple[Path, Counter[Facts]]) -> None:
    browser.click("//*[@id='weeks']/*[@data-week='2']")
    week = browser.text("#chosen button").split()[1]
    assert week == sorted({facts[5] for facts in happened[1]})[2]
    assert total(browser) == sum(
        number for facts, number in happened[1].items() if facts[5] == week)


def test_tables_can_be_sorted(browser: Browser) -> None:
    assert [int(cells[0]) for cells in rows(browser, "cause").values()] == sorted(
        (int(cells[0]) for cells in rows(browser, "cause").values()), reverse=True)
    browser.click("//div[@id='by-cause']//th/button[.='cause']")
    browser.wait(lambda: list(rows(browser, "cause")) == sorted(rows(browser, "cause")))
    assert browser.js("return document.activeElement.textContent") == "cause"
    assert browser.text("#by-cause [aria-sort=ascending]") == "cause"


def test_search_finds_incidents(browser: Browser, happened: tuple[Path, Counter[Facts]]) -> None:
    words = browser.driver.find_element(By.ID, "words")
    words.send_keys("sigSEGV")
    crashes = sum(number for facts, number in happened[1].items() if facts[0] == CRASH)
    browser.wait(lambda: total(browser) >= crashes and len(rows(browser, "cause")) < 8)
    assert int(rows(browser, "cause")[CRASH][0]) == crashes
    assert "words=sigSEGV" in browser.driver.current_url
    words.clear()
    words.send_keys("no such text")
    browser.wait(lambda: total(browser) == 0)
    assert browser.complaints() == []


def test_the_list_is_turned_page_by_page(
        browser: Browser, happened: tuple[Path, Counter[Facts]]) -> None:
    first = browser.texts("#incident-rows td:first-child")
    assert len(first) == 100 and first == sorted(first, reverse=True)
    browser.click("//*[@id='older']")
    browser.wait(lambda: browser.text("#incidents-facts").startswith("101 to 200 of "))
    assert max(browser.texts("#incident-rows td:first-child")) <= first[-1]
    assert browser.text("#incidents-facts").endswith(f" {happened[1].total()} incidents")


def test_all_can_be_done_with_the_keyboard(browser: Browser) -> None:
    reached = set()
    chosen = False
    for _ in range(150):
        browser.driver.switch_to.active_element.send_keys(Keys.TAB)
        reached.add(browser.js("return document.activeElement.id"))
        assert browser.js("const style = getComputedStyle(document.activeElement);"
                          "return document.activeElement === document.body ||"
                          " style.outlineStyle !== 'none'"), "the focus cannot be seen"
        if not chosen and browser.js("return document.activeElement.textContent") == CRASH:
            chosen = True
            browser.driver.switch_to.active_element.send_keys(Keys.SPACE)
            browser.wait(lambda: browser.texts("#chosen button"))
            assert browser.js("return document.activeElement.textContent") == CRASH
    assert chosen
    assert reached >= {"words", "all", "incidents", *(f"by-{name}" for name in DIMENSIONS)}


def test_hostile_text_is_shown_and_does_not_run(chromium: Browser, tmp_path: Path) -> None:
    file = write_odd_fleet(tmp_path)
    text = file.read_text(encoding="utf-8")
    assert "hostile" not in text and "window.hostile" in data_of(text)
    chromium.open(file)
    assert HOSTILE in rows(chromium, "device") and HOSTILE in rows(chromium, "version")
    choose(chromium, "device", "one")
    chromium.wait(lambda: chromium.texts("#chosen button"))
    chromium.js("location.hash = '#cause=<img src=x onerror=alert(1)>&week=99&words=%00'")
    chromium.wait(lambda: total(chromium) == 0)
    assert chromium.js("return window.hostile === undefined && document.images.length === 0")
    assert chromium.complaints() == []


def test_a_fleet_without_incidents_has_a_page(chromium: Browser, tmp_path: Path) -> None:
    for device in "one", "two":
        pack(tmp_path / f"{device}.tar.gz", {"manifest.json": json.dumps({"machine": device})})
    chromium.open(write_page(tmp_path, tmp_path / "page.html"))
    assert "0 incidents on 2 devices, told by 2 reports" in chromium.text("#facts")
    assert chromium.complaints() == [] and not chromium.shows("#problem")


def test_of_very_many_incidents_the_newest_are_kept(
        chromium: Browser, happened: tuple[Path, Counter[Facts]], tmp_path: Path,
        monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(fleetpage, "MOST_INCIDENTS", 50)
    chromium.open(write_page(happened[0].parent / "archives", tmp_path / "page.html"))
    assert total(chromium) == 50
    assert "This page has only the newest 50 incidents" in chromium.text("#facts")
    latest = max(facts[5] for facts in happened[1])
    assert latest in rows(chromium, "week")


def test_on_paper_are_the_tables(browser: Browser) -> None:
    browser.colours("dark", media="print")
    assert browser.js("return getComputedStyle(document.body).backgroundColor") == \
        "rgb(255, 255, 255)"
    for selector in "#weeks", "#by-cause", "#incident-rows tr:last-child":
        assert browser.shows(selector)
    assert not browser.shows("#words") and not browser.shows("#older")
    browser.colours("light")
    assert base64.b64decode(browser.driver.print_page()).startswith(b"%PDF")


@pytest.mark.parametrize("width", [1300, 390])
def test_fits_the_width_of_the_screen(browser: Browser, width: int) -> None:
    browser.fits(width)


@pytest.mark.parametrize(("width", "scheme"), [(1300, "light"), (1300, "dark"), (390, "light")])
def test_is_accessible(browser: Browser, happened: tuple[Path, Counter[Facts]], width: int,
                       scheme: str) -> None:
    rules = accessibility_rules(Path(__file__).parents[2] / "build/axe-core")
    browser.resize(width)
    browser.colours(scheme)
    browser.open(happened[0], "#firmware=Sample+OS+1.1")
    assert browser.violations(rules) == []
