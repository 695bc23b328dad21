# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The page: what is in the file, and how it looks and acts in a real browser without a network."""

from __future__ import annotations

import base64
import gzip
import io
import json
import re
import tarfile
import tracemalloc
from html.parser import HTMLParser
from pathlib import Path
from typing import Any
from unittest.mock import Mock

import pytest
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from browser import Browser, accessibility_rules
from fleets import pack
from pynx_watchdog_evidence import archives, page, sources
from pynx_watchdog_evidence.cli import main
from pynx_watchdog_evidence.sentence import MOST_SENTENCES, Sentence
from pynx_watchdog_evidence.sources import Log

HOSTILE = "</script><script>window.hostile = 1</script><img src=x onerror='window.hostile = 1'>"
"""What would set a variable of the page if it became HTML anywhere."""

TOP = """\
top - 10:00:24 up 1 min,  0 users,  load average: 1.50, 0.50, 0.20

    PID USER      PR  NI    VIRT    RES    SHR S  %CPU  %MEM     TIME+ COMMAND
      9 root      20   0    2592   1696   1588 S   9.5   0.0   0:00.10 nine
    100 root      20   0    2592   1696   1588 R  80.5   0.0   0:09.00 render
     12 root      20   0    2592   1696   1588 S   0.0   0.0   0:00.00 {hostile}

"""


def alarm(second: int, process: str, *loads: str) -> str:
    """The lines of an alarm: a load each second, the last one at `second`."""
    def time(at: int) -> str:
        return f"2026-11-22 10:00:{at:02}.000"

    lines = [f"{time(second)} Process:{process} (77) cpu load is : 40 for {len(loads)} seconds "]
    for at, load in enumerate(loads, second - len(loads) + 1):
        lines += [f"{time(at)} Time between two invocations:1000ms",
                  f"{time(at)} {process} cpu load:{load}%",
                  f"{time(at)} {process} total thread load:60%",
                  f"{time(at)}  thread name:decode load:31%",
                  f"{time(at)}  thread name:draw load:29%"]
    return "\n".join(lines) + "\n"


LOG = f"""\
-- Time: Sun Nov 22 09:00:00 2026 GMT
2026-11-22 10:00:00.100 Watchdog: Starting app: /usr/bin/render --first\x20
==Report==on request
{HOSTILE}
{alarm(8, "render", "61.5", "62", "63")}\
2026-11-22 10:00:09.000 == MEMORY USAGE == Free: 204800 kB, Buffers+Cache: 102400 kB
the last line of the first run
2026-11-22 10:00:20.000 Watchdog: Starting app: /usr/bin/render --second\x20
{alarm(28, "render", "70", "4.6e+18", "71")}\
{alarm(29, HOSTILE, "50", "51")}\
2026-11-22 10:00:30.000 == MEMORY USAGE == Free: 102400 kB, Buffers+Cache: 204800 kB
"""

SYSTEM_LOG = f"""\
2026-11-22T10:00:19.000+01:00 board pynx_watchdog[7]: Restarting process: exit code:11, \
exist status:1, uptime:19 sec
2026-11-22T10:00:40.000+01:00 board pynx_watchdog[7]: Critical FW error, rebooting.
2026-11-22T10:00:41.000+01:00 board pynx_watchdog[7]: {HOSTILE}
"""


def write_evidence(directory: Path) -> Path:
    """What a device has left behind: a log, a text of the system log, and an archive."""
    directory.mkdir()
    (directory / "application.log").write_text(LOG, encoding="utf-8")
    (directory / "syslog").write_text(SYSTEM_LOG, encoding="utf-8")
    with tarfile.open(directory / "report-main-1795338025000.tar.gz", "w:gz") as archive:
        for name, text in (
                ("manifest.json", '{"time": "2026-11-22T10:00:25+0100", "uptime_s": NaN}'),
                (f"tmp/log/{HOSTILE.replace('/', '-')}", TOP.format(hostile=HOSTILE))):
            member = tarfile.TarInfo(name)
            member.size = len(text.encode())
            archive.addfile(member, io.BytesIO(text.encode()))
    return directory


def write_page(directory: Path, file: Path) -> Path:
    """The page of what is in a directory."""
    assert main([str(directory), "--html", str(file)]) == 0
    return file


@pytest.fixture(name="written", scope="module")
def fixture_written(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A page of what a device has left behind."""
    place = tmp_path_factory.mktemp("page")
    return write_page(write_evidence(place / "device"), place / "page.html")


@pytest.fixture(name="browser")
def fixture_browser(chromium: Browser, written: Path) -> Browser:
    """A browser with the page in it."""
    chromium.open(written)
    return chromium


# -- what is in the file --------------------------------------------------------------------------


class Elements(HTMLParser):
    """The elements of a page with their attributes, and the content of its scripts and styles."""

    def __init__(self, text: str) -> None:
        super().__init__()
        self.found: list[tuple[str, dict[str, str | None]]] = []
        self.content: dict[str, str] = {}
        self.feed(text)

    def handle_starttag(self, tag: str, attrs: list[tuple[str, str | None]]) -> None:
        self.found.append((tag, dict(attrs)))

    def handle_data(self, data: str) -> None:
        tag, attributes = self.found[-1] if self.found else ("", {})
        if tag in ("script", "style"):
            name = attributes.get("id") or tag
            self.content[name] = self.content.get(name, "") + data


def data_of(text: str, name: str = "data") -> str:
    """The content of one of the page's data blocks."""
    packed = Elements(text).content[name].strip()
    return gzip.decompress(base64.b64decode(packed, validate=True)).decode(errors="replace")


def assert_refers_to_nothing_outside(page_file: Path) -> None:
    """Look through all elements, styles and scripts of a page."""
    elements = Elements(page_file.read_text(encoding="utf-8"))
    assert len(elements.found) > 30
    for tag, attributes in elements.found:
        assert tag not in ("link", "iframe", "img", "object", "embed", "base", "form") \
            or tag == "form" and "action" not in attributes
        assert not {"src", "href", "srcset", "style", "action"} & set(attributes), (tag, attributes)
        assert not [name for name in attributes if name.startswith("on")], (tag, attributes)
    assert not re.search(r"@import|url\((?!#)|@font-face|://", elements.content["style"])
    # What names the kind of an element is no address.
    assert re.findall(r"\w+://[^\s\"']*", elements.content["script"]) == [
        "http://www.w3.org/2000/svg"]


def test_the_file_refers_to_nothing_outside(written: Path) -> None:
    assert_refers_to_nothing_outside(written)


def test_the_policy_lets_only_the_page_itself_run(written: Path) -> None:
    text = written.read_text(encoding="utf-8")
    policy = next(attributes["content"] for tag, attributes in Elements(text).found
                  if attributes.get("http-equiv") == "Content-Security-Policy")
    assert policy
    rules = dict(rule.strip().split(" ", 1) for rule in policy.split(";"))
    assert rules["default-src"] == rules["connect-src"] == "'none'"
    for name in "script-src", "style-src":
        assert re.fullmatch(r"'sha256-[A-Za-z0-9+/]{43}='", rules[name])


def test_no_text_of_a_log_is_in_the_html(written: Path) -> None:
    text = written.read_text(encoding="utf-8")
    assert "hostile" not in text and "/usr/bin/render" not in text
    assert "window.hostile" in data_of(text) and "window.hostile" in data_of(text, "log-0")
    assert data_of(text, "log-0") == LOG


def test_a_page_that_cannot_be_written_is_an_error(
        tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    device = write_evidence(tmp_path / "device")
    assert main([str(device), "--html", str(tmp_path / "none" / "page.html")]) == 1
    assert "No such file or directory" in capsys.readouterr().err


def test_of_very_many_events_the_important_ones_are_kept(
        tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(page, "MOST_EVENTS", 100)
    log = tmp_path / "application.log"
    log.write_text(LOG + "==Report==again and again\n" * 1000)
    data = json.loads(data_of(write_page(log, tmp_path / "page.html").read_text(encoding="utf-8")))
    kinds = [event["kind"] for event in data["events"]]
    assert len(kinds) <= 100 and data["eventsFound"] > 1000
    assert kinds.count("start") == 2 and kinds.count("request") > 50
    busy = next(sentence for sentence in data["verdict"] if "'render' was" in sentence["text"])
    assert [data["events"][number]["line"] for number in busy["evidence"]] == [5, 24]


def test_a_verdict_of_very_many_sentences_is_cut(tmp_path: Path) -> None:
    sentences = [Sentence(f"sentence {number}", "guess") for number in range(1000)]
    page.write_page(tmp_path / "page.html", [], sentences, [], {})
    data = json.loads(data_of((tmp_path / "page.html").read_text(encoding="utf-8")))
    assert len(data["verdict"]) == MOST_SENTENCES and data["sentences"] == 1000
    assert data["verdict"][0]["text"] == "sentence 0"


def test_what_could_not_be_read_is_named(chromium: Browser, tmp_path: Path) -> None:
    log, file = tmp_path / "log", tmp_path / "page.html"
    log.write_text(LOG)
    assert main([str(log), str(tmp_path / HOSTILE), "--html", str(file)]) == 0
    chromium.open(file)
    assert f"{tmp_path / HOSTILE}: it is no file" in chromium.texts("#sources li")
    assert chromium.shows("#sources li") and "Not all could be read" in chromium.text("#facts")


def test_of_very_many_times_only_those_of_the_shown_lines_are_held(
        tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(page, "ROOM", 10_000)
    monkeypatch.setattr("pynx_watchdog_evidence.log.BLOCK", 1 << 16)
    log = tmp_path / "application.log"
    log.write_text("".join(
        f"-- Time: Sun Nov 22 {at // 3600:02}:{at // 60 % 60:02}:{at % 60:02} 2026 GMT\n"
        for at in range(40_000)))
    tracemalloc.start()
    page.write_page(tmp_path / "page.html", [], [], [Log(str(log))], {})
    _, most = tracemalloc.get_traced_memory()
    tracemalloc.stop()
    data = json.loads(data_of((tmp_path / "page.html").read_text(encoding="utf-8")))
    assert len(data["logs"][0]["marks"]) > 50 and most < 5_000_000


def test_an_archive_is_unpacked_once_for_all_its_texts(
        tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    archive = pack(tmp_path / "archive", {f"tmp/{at}": f"line {at}\n" for at in range(3)})
    unpack = Mock(wraps=archives.open_archive)
    monkeypatch.setattr(sources, "open_archive", unpack)
    page.write_page(tmp_path / "page.html", [], [],
                    [Log(f"{archive}!tmp/{at}") for at in range(3)], {})
    data = json.loads(data_of((tmp_path / "page.html").read_text(encoding="utf-8")))
    assert [log["name"].rpartition("/")[2] for log in data["logs"]] == ["0", "1", "2"]
    assert unpack.call_count == 1


def test_a_page_that_is_there_is_replaced(tmp_path: Path) -> None:
    device = write_evidence(tmp_path / "device")
    file = tmp_path / "page.html"
    file.write_text("x" * 1_000_000)
    write_page(device, file)
    assert file.read_text(encoding="utf-8").endswith("</html>\n")
    assert sorted(path.name for path in tmp_path.iterdir()) == ["device", "page.html"]


# -- in the browser -------------------------------------------------------------------------------


def test_opens_without_a_complaint_or_a_request(chromium: Browser, written: Path) -> None:
    chromium.open(written)
    assert chromium.requests() == [written.as_uri()]
    assert chromium.complaints() == []


def test_hostile_text_is_shown_and_does_not_run(browser: Browser, written: Path) -> None:
    number = browser.texts("#event-rows tr td:nth-child(2)").index(HOSTILE)
    places = browser.js("return [...document.querySelectorAll('#event-rows tr')]"
                        ".map(row => row.dataset.event)")
    for fragment in (f"#e{places[number]}", "#l0:4", "#t1795338029000"):
        browser.open(written, fragment)
        assert HOSTILE in "".join(browser.texts("#log .text"))
    assert HOSTILE in browser.texts("#processes td")
    assert any(HOSTILE in text for text in browser.texts(".legend label"))
    assert browser.js("return window.hostile === undefined && document.images.length === 0")
    assert browser.complaints() == []


def test_nothing_else_can_run_in_the_page(browser: Browser) -> None:
    added = browser.js("""
        const script = document.createElement("script");
        script.textContent = "window.hostile = 1";
        const image = document.createElement("div");
        image.innerHTML = "<img src=x onerror='window.hostile = 1'>";
        document.body.append(script, image);
        return script.isConnected && image.isConnected""")
    assert added
    browser.wait(lambda: len([text for text in browser.complaints()
                              if "Content Security Policy" in text]))
    assert browser.driver.execute_async_script(
        "fetch('https://example.org/').catch(() => 'refused').then(arguments[0])") == "refused"
    assert browser.js("return window.hostile === undefined")


def test_says_what_it_takes_where_it_cannot_run(chromium: Browser, written: Path) -> None:
    chromium.command("Emulation.setScriptExecutionDisabled", value=True)
    try:
        chromium.driver.get("about:blank")
        chromium.driver.get(written.as_uri())
        said = chromium.driver.find_element(By.ID, "problem")
        assert said.is_displayed() and "It takes JavaScript" in said.text
    finally:
        chromium.command("Emulation.setScriptExecutionDisabled", value=False)


def test_a_line_of_the_system_log_leads_to_its_time(chromium: Browser, written: Path) -> None:
    chromium.open(written, "#l1:2")
    assert "Critical FW error" in chromium.text(".row[aria-current]")
    assert "/syslog, 2026-11-22 10:00:40.000" in chromium.text("#pointed")


def test_verdict_says_how_sure_it_is_and_leads_to_the_events(browser: Browser) -> None:
    sentence = browser.driver.find_element(By.XPATH, "//li[contains(., 'SIGSEGV')]")
    assert sentence.text.startswith("certain")
    sentence.find_element(By.CSS_SELECTOR, "a").click()
    browser.wait(lambda: "crashed by signal 11" in browser.text("#pointed"))
    assert "crashed by signal 11" in browser.text("tr[aria-current]")


def test_lanes_have_the_boots_runs_and_events(browser: Browser) -> None:
    browser.wait(lambda: browser.js("return document.querySelectorAll('#lanes .item').length"))

    def items(lane: str) -> list[str]:
        return browser.texts(f"#lanes [data-lane='{lane}'] .item > title")

    assert [text.split("\n")[0] for text in items("Runs")] == [
        "crashed by signal 11 (SIGSEGV)", "until the reboot: third end"]
    assert len(items("Boots")) == 2 and "This is a guess." in items("Boots")[0]
    assert "report requested: on request" in items("Reports")[0]
    assert "\n".join(items("Alarms")).count("load of 40 % or more") == 3
    assert "snapshot: load average 1.5 0.5 0.2, busiest render with 80.5 %" in items("Snapshots")[0]
    assert browser.js("return document.querySelector(\"#lanes [data-lane='Runs'] .item\")"
                      ".classList.contains('bad')")


def test_curves_are_drawn_and_can_be_hidden(browser: Browser) -> None:
    labels = browser.texts("[aria-label^=Load] .name")
    assert labels == ["render", HOSTILE, "render: thread decode", f"{HOSTILE}: thread decode",
                      "render: thread draw", f"{HOSTILE}: thread draw"]
    assert browser.texts("[aria-label^=Memory] .name") == ["unused", "buffers and cache"]

    def picture(chart: str) -> Any:
        return browser.js("return document.querySelector(arguments[0]).toDataURL()",
                          f"[data-chart={chart}] canvas")

    for chart, legend in ("load", "Load"), ("memory", "Memory"):
        before = picture(chart)
        browser.js("document.querySelector(arguments[0]).click()", f"[aria-label^={legend}] input")
        browser.wait(lambda: picture(chart) != before)


def test_the_load_of_an_ended_process_is_a_gap(written: Path) -> None:
    curves = json.loads(data_of(written.read_text(encoding="utf-8")))["load"]
    render = next(curve for curve in curves if (curve["name"], curve["kind"]) ==
                  ("render", "process"))
    assert [value for value in render["values"] if value] == [61.5, 62, 63, 70, 71]
    second = 1000
    first = render["times"][1]
    assert [time - first for time in render["times"]] == [
        -1, 0, second, 2 * second, 20 * second - 1, 20 * second, 21 * second, 22 * second]
    assert render["values"][6] is None


def axis_text(browser: Browser) -> str:
    """Which part of time is shown."""
    return browser.text("#span")


def after_change(browser: Browser, before: str) -> str:
    """Which part of time is shown, as soon as it is another one."""
    browser.wait(lambda: axis_text(browser) != before)
    return axis_text(browser)


def seconds(text: str) -> float:
    """How much time is shown."""
    found = re.search(r", ([\d.]+) (ms|s|min|h)", text)
    assert found, text
    return float(found[1]) * {"ms": 0.001, "s": 1, "min": 60, "h": 3600}[found[2]]


def middle_of_axis(browser: Browser) -> tuple[float, float]:
    x, y = browser.js("document.getElementById('axis').scrollIntoView();"
                      "const box = document.getElementById('lanes').getBoundingClientRect();"
                      "return [box.x + box.width / 2, box.y + box.height - 5]")
    return x, y


def test_axis_zooms_and_moves_with_buttons_keys_and_mouse(browser: Browser) -> None:
    whole = browser.wait(lambda: axis_text(browser))
    browser.click("//*[@id='closer']")
    closer = after_change(browser, whole)
    assert seconds(closer) == pytest.approx(seconds(whole) / 2, rel=0.05)
    browser.driver.find_element(By.ID, "axis").send_keys(Keys.ARROW_RIGHT)
    moved = after_change(browser, closer)
    assert seconds(moved) == seconds(closer) and moved > closer
    browser.driver.find_element(By.ID, "axis").send_keys("-")
    assert seconds(after_change(browser, moved)) == pytest.approx(seconds(whole), rel=0.05)
    browser.driver.find_element(By.ID, "axis").send_keys("0")
    browser.wait(lambda: axis_text(browser) == whole)

    x, y = middle_of_axis(browser)
    browser.command("Input.dispatchMouseEvent", type="mouseWheel", x=x, y=y, deltaX=0, deltaY=-400,
                    modifiers=2)  # 2: the Ctrl key
    closer = after_change(browser, whole)
    assert seconds(closer) < seconds(whole) * 0.7
    browser.drag(x, y, 150)
    assert after_change(browser, closer) < closer
    assert browser.driver.current_url.count("#") == 0, "moving the axis has selected a moment"


def test_axis_follows_two_fingers(browser: Browser) -> None:
    whole = browser.wait(lambda: axis_text(browser))
    x, y = middle_of_axis(browser)
    for kind, apart in ("touchStart", 40), ("touchMove", 80), ("touchMove", 160), ("touchEnd", 0):
        browser.command("Input.dispatchTouchEvent", type=kind, touchPoints=[
            {"x": x - apart, "y": y, "id": 0}, {"x": x + apart, "y": y, "id": 1}] if apart else [])
    assert seconds(after_change(browser, whole)) < seconds(whole) * 0.5


def test_a_click_on_the_axis_shows_the_log_of_that_moment(browser: Browser) -> None:
    x, y = middle_of_axis(browser)
    browser.drag(x + 100, y, 0)
    browser.wait(lambda: browser.text("#pointed").startswith("Looking at: 2026-11-22 10:00:2"))
    assert "Starting app: /usr/bin/render --second" in browser.text(".row[aria-current]")
    assert browser.shows("#point")


def test_an_event_leads_to_its_line_and_a_line_to_its_time(browser: Browser) -> None:
    browser.click("//tr[contains(., '--second')]/td[2]")
    browser.wait(lambda: browser.texts(".row[aria-current]"))
    assert "Starting app: /usr/bin/render --second" in browser.text(".row[aria-current]")
    assert "10:00:20.000" in browser.text("#pointed")
    assert "/usr/bin/render --second" in browser.text("#details")

    browser.click("//a[starts-with(., 'line 3, ')]")
    browser.wait(lambda: "==Report==on request" in browser.text(".row[aria-current]"))
    assert browser.js("return document.querySelector('#log-name').selectedOptions[0].text"
                      ).endswith("/application.log")

    browser.click("//*[@class='row'][contains(., 'the last line')]")
    browser.wait(lambda: "the last line" in browser.text(".row[aria-current]"))
    assert "at or after 2026-11-22 10:00:09.000" in browser.text("#pointed")


def test_stacks_are_a_text_that_the_verdict_leads_to(chromium: Browser, tmp_path: Path) -> None:
    fixtures = Path(__file__).parents[1] / "fixtures/guard"
    place = tmp_path / "device"
    place.mkdir()
    pack(place / "report-hang-1795365536000.tar.gz", {
        "manifest.json": '{"time": "2026-11-22T17:38:56+0100"}',
        "tmp/log/guard-panel-31315.txt": (fixtures / "hang.txt").read_text(encoding="utf-8"),
        "tmp/log/application.log":
            "-- Time: Sun Nov 22 16:38:49 2026 GMT\n"
            "2026-11-22 17:38:49.000 Watchdog: Starting app: /opt/panel --hang \n"
            + (fixtures / "hang.stderr").read_text(encoding="utf-8")})
    chromium.open(write_page(place, tmp_path / "page.html"))
    sentence = chromium.driver.find_element(By.XPATH, "//li[contains(., 'hung: no beat for 2 s')]")
    assert "its main thread stood in futex_wait ← Screen::draw" in sentence.text
    sentence.find_elements(By.CSS_SELECTOR, "a")[-1].click()
    chromium.wait(lambda: chromium.text(".row[aria-current] .text") == "hang: no beat for 2 s")
    assert "in futex_wait at ../sysdeps" in chromium.text("#log")
    assert "stacks of a hang: no beat for 2 s" in chromium.text("#pointed")
    chromium.open(tmp_path / "page.html", "#l0:4")
    assert chromium.text(".row[aria-current] .text").startswith("guard: ended: signal 6 (SIGABRT)")
    row = next(text for text in chromium.texts("#event-rows tr") if "guard: ended" in text)
    assert "at or after 17:38:49" in row.replace("2026-11-22 ", "")


def test_an_event_without_a_time_stands_after_what_is_before_it(browser: Browser) -> None:
    row = browser.driver.find_element(By.XPATH, "//tr[contains(., 'report requested')]").text
    assert row.startswith("at or after 10:00:00.100")


def test_an_address_leads_to_an_event_a_line_and_a_moment(chromium: Browser, written: Path) -> None:
    chromium.open(written, "#l0:4")
    assert HOSTILE in chromium.text(".row[aria-current]")
    chromium.open(written, "#t1795338029000")
    assert "2026-11-22 10:00:29.000" in chromium.text("#pointed")
    chromium.open(written, "#e0")
    assert chromium.text("tr[aria-current]")
    chromium.open(written, "#e99999")
    chromium.open(written, "#l7:1")
    chromium.open(written, "#t99999999999999999999")
    assert chromium.complaints() == [] and not chromium.shows("#problem")


def test_search_finds_lines_and_events(browser: Browser) -> None:
    words = browser.driver.find_element(By.ID, "words")
    words.send_keys("STARTING APP")
    browser.wait(lambda: browser.text("#found").startswith("2 lines"))
    words.send_keys(Keys.ENTER)
    browser.wait(lambda: browser.text("#found").startswith("line 1 of 2"))
    assert "--first" in browser.text(".row[aria-current]")
    words.send_keys(Keys.ENTER)
    browser.wait(lambda: "--second" in browser.text(".row[aria-current]"))
    browser.click("//*[@id='find-previous']")
    browser.wait(lambda: "--first" in browser.text(".row[aria-current]"))
    assert browser.texts("mark") == ["Starting app"] * 2
    words.clear()
    words.send_keys("signal 11")
    browser.wait(lambda: browser.text("#found") == "0 lines, 1 event")
    words.clear()
    words.send_keys("(.*[")  # is no pattern
    browser.wait(lambda: browser.text("#found") == "0 lines, 0 events")
    assert browser.complaints() == []


def test_events_can_be_of_one_kind(browser: Browser) -> None:
    browser.click("//select[@id='kind']/option[.='memory']")
    browser.wait(lambda: browser.text("#events-facts") == "2 events")
    assert all("memory: " in text for text in browser.texts("#event-rows tr"))


def test_processes_can_be_sorted(browser: Browser) -> None:
    def column(number: int) -> list[str]:
        return browser.texts(f"#processes td:nth-child({number})")

    def press(name: str) -> None:
        browser.click(f"//div[@id='processes']//button[.='{name}']")

    assert column(2) == ["80.5", "9.5", "0"]
    press("pid")
    assert column(1) == ["9", "12", "100"]
    press("pid")
    assert column(1) == ["100", "12", "9"]
    press("command")
    assert column(12) == [HOSTILE, "nine", "render"]
    assert browser.js("return document.activeElement.textContent") == "command"
    assert browser.js("return document.querySelector('[aria-sort=ascending]').textContent") == \
        "command"


def test_all_can_be_done_with_the_keyboard(browser: Browser) -> None:
    reached = set()
    body = browser.driver.find_element(By.TAG_NAME, "body")
    for _ in range(150):
        body = browser.driver.switch_to.active_element
        body.send_keys(Keys.TAB)
        reached.add(browser.js("return document.activeElement.id"))
        assert browser.js("const style = getComputedStyle(document.activeElement);"
                          "return document.activeElement === document.body ||"
                          " style.outlineStyle !== 'none'"), "the focus cannot be seen"
    assert reached >= {"zone", "earlier", "later", "closer", "farther", "all", "previous", "next",
                       "axis", "words", "find-next", "find-previous", "log-name", "log", "kind",
                       "events", "snapshot", "processes"}
    axis = browser.driver.find_element(By.ID, "axis")
    axis.send_keys("n")
    browser.wait(lambda: browser.texts("tr[aria-current]"))
    first = browser.text("#pointed")
    axis.send_keys("n")
    browser.wait(lambda: browser.text("#pointed") != first)
    axis.send_keys("p")
    browser.wait(lambda: browser.text("#pointed") == first)
    log = browser.driver.find_element(By.ID, "log")
    log.send_keys(Keys.HOME)
    browser.wait(lambda: browser.text(".row[aria-current] .number") == "1")
    log.send_keys(Keys.ARROW_DOWN)
    browser.wait(lambda: browser.text(".row[aria-current] .number") == "2")


def test_times_are_local_or_utc(browser: Browser) -> None:
    assert "local time of the device (UTC+01:00)" in browser.text("#zone")
    assert "10:00:20.000" in browser.text("#event-rows")
    browser.click("//select[@id='zone']/option[.='UTC']")
    browser.wait(lambda: "09:00:20.000" in browser.text("#event-rows"))
    assert "10:00:20.000" not in browser.text("#event-rows")
    browser.wait(lambda: axis_text(browser).startswith("2026-11-22 08:59:"))


def test_colours_follow_the_users(browser: Browser) -> None:
    back = "return getComputedStyle(document.body).backgroundColor"
    assert browser.js(back) == "rgb(255, 255, 255)"
    browser.colours("dark")
    browser.wait(lambda: browser.js(back) == "rgb(15, 20, 25)")


def test_on_paper_are_verdict_and_all_events(browser: Browser) -> None:
    browser.colours("dark", media="print")
    assert browser.js("return getComputedStyle(document.body).backgroundColor") == \
        "rgb(255, 255, 255)"
    for selector in "#verdict", "#lanes", "#event-rows tr:last-child":
        assert browser.shows(selector)
    for selector in "#log", "#charts", "#search", "#closer", "#processes":
        assert not browser.shows(selector)
    browser.colours("light")
    printed = base64.b64decode(browser.driver.print_page())
    assert 1 <= len(re.findall(rb"/Type /Page\n", printed)) <= 2


@pytest.mark.parametrize("width", [1300, 390])
def test_fits_the_width_of_the_screen(browser: Browser, width: int) -> None:
    browser.fits(width)


@pytest.mark.parametrize(("width", "scheme"), [(1300, "light"), (1300, "dark"), (390, "light")])
def test_is_accessible(browser: Browser, written: Path, width: int, scheme: str) -> None:
    rules = accessibility_rules(Path(__file__).parents[2] / "build/axe-core")
    browser.resize(width)
    browser.colours(scheme)
    browser.open(written, "#e3")
    assert browser.violations(rules) == []


# -- odd evidence ---------------------------------------------------------------------------------


def test_a_log_that_is_too_large_is_thinned(
        chromium: Browser, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(page, "ROOM", 100_000)
    device = tmp_path / "device"
    device.mkdir()
    filler = "".join(f"line {number} of the application\n" for number in range(100_000))
    (device / "application.log").write_text(
        f"{filler}2026-11-22 10:00:00.100 Watchdog: Starting app: /usr/bin/render \n{filler}")
    file = write_page(device, tmp_path / "page.html")
    assert len(data_of(file.read_text(encoding="utf-8"), "log-0")) <= 100_000
    chromium.open(file, "#e0")
    assert "the log is too large for a page" in chromium.text("#log-facts")
    assert chromium.text(".row[aria-current] .number") == "100001"
    assert "line 99999 of the application" in chromium.text("#log-rows")
    chromium.driver.find_element(By.ID, "log").send_keys(Keys.END)
    chromium.wait(lambda: "lines left out" in chromium.text("#log-rows .row:last-child"))


def test_many_runs_are_drawn_as_far_as_they_can_be_seen(
        chromium: Browser, tmp_path: Path) -> None:
    log = tmp_path / "application.log"
    log.write_text("".join(
        f"2026-11-{day:02} {hour:02}:{minute:02}:00.000 Watchdog: Starting app: a \n"
        for day in range(1, 8) for hour in range(24) for minute in range(60)))
    chromium.open(write_page(log, tmp_path / "page.html"))
    runs = "#lanes [data-lane=Runs] .item"
    drawn = chromium.wait(lambda: len(chromium.texts(runs)))
    assert 100 < drawn < 1300
    for _ in range(12):
        chromium.driver.find_element(By.ID, "axis").send_keys("+")
    # These are two minutes and a half.
    chromium.wait(lambda: 2 <= len(chromium.texts(runs)) <= 4)


def test_a_long_log_is_scrolled_to_its_very_end(chromium: Browser, tmp_path: Path) -> None:
    log = tmp_path / "application.log"
    log.write_text("2026-11-22 10:00:00.100 Watchdog: Starting app: /usr/bin/render \n"
                   + "\n" * 1_000_000 + "the end")
    chromium.open(write_page(log, tmp_path / "page.html"))
    assert chromium.text("#log-facts") == "1,000,002 lines"
    box = chromium.driver.find_element(By.ID, "log")
    box.send_keys(Keys.END)
    chromium.wait(lambda: "the end" in chromium.text(".row:last-child"))
    box.send_keys(Keys.HOME)
    chromium.wait(lambda: "Starting app" in chromium.text(".row:first-child"))
    chromium.js("arguments[0].scrollTop = arguments[0].scrollHeight", box)
    chromium.wait(lambda: "the end" in chromium.text(".row:last-child"))


@pytest.mark.parametrize("content", [
    b"", b"pYNX: no process found\n", b"\xff\xfe\x00" * 1000,
    b"2026-11-22 10:00:00.100 Watchdog: Starting app: a ",
    b"0001-01-01 00:00:00.000 Watchdog: Starting app: a \n"
    b"9999-12-31 23:59:59.999 Watchdog: Starting app: a \n",
    b"Process a with args [] doesn't appear for 30 seconds\n",
    (alarm(9, "a", "nan", "inf", "-1e300") + alarm(19, "", "1e308", "1e308"))
    .replace("1000ms", f"{10 ** 17}ms").replace("40 for", f"{10 ** 400} for").encode(),
    b"2026-11-22 10:00:09.000 == MEMORY USAGE == Free: 9" + b"9" * 400
    + b" kB, Buffers+Cache: 0 kB\n",
])
def test_shows_a_page_whatever_is_in_the_log(
        chromium: Browser, tmp_path: Path, content: bytes) -> None:
    (tmp_path / "application.log").write_bytes(content)
    chromium.open(write_page(tmp_path / "application.log", tmp_path / "page.html"))
    assert chromium.complaints() == [] and not chromium.shows("#problem")
    assert chromium.text("#verdict")
