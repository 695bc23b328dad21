# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What pynx-watchdog-check finds in the settings of the site and the factory together."""

from __future__ import annotations

import os
import shutil
import subprocess
import tempfile
from pathlib import Path

import pytest

from checked import TIME_LIMIT, Check
from markers import enveloped, without_marks
from marks import AS_ROOT

ROOT = Path(__file__).resolve().parents[2]
FACTORY = ROOT / "settings-default"
SWITCH = "WatchdogAutomaticReporting.json"
UPLOAD = "WatchdogAutomaticReportingConf.json"
FILES = "SystemManagerLogReportConfig.json"
SIZES = "SystemManagerLogFilesSizeConfig.json"
WATCH_LIST = "WatchdogWatchProcessList.json"

ON = enveloped("true")
PLACE = enveloped('{"uploadPath": "/media/reports", "uploadFilePrefix": "board"}')


@pytest.fixture
def program_dir(tmp_path: Path) -> Path:
    """A directory with the factory's settings and an empty one for the site's."""
    directory = tmp_path / "program"
    (directory / "settings").mkdir(parents=True)
    (directory / "settings-default").mkdir()
    for document in FACTORY.glob("*.json"):
        shutil.copy(document, directory / "settings-default")
    return directory


def test_the_factory_settings_are_right(check: Check, program_dir: Path) -> None:
    assert check("--strict", "--program-dir", program_dir).text == ""
    (program_dir / "settings").rmdir()
    assert check("--strict", "--program-dir", program_dir).text == ""


def test_the_settings_beside_the_tool_are_checked(check: Check, build_directory: Path) -> None:
    beside = check("--strict")
    assert beside == check("--strict", "--program-dir", build_directory)
    assert (beside.status, beside.text) == (0, "")


def test_each_factory_document_has_to_be_there(check: Check, program_dir: Path) -> None:
    for document in sorted((program_dir / "settings-default").iterdir()):
        content = document.read_bytes()
        document.unlink()
        found = check("--program-dir", program_dir)
        assert [(finding.file, finding.level, finding.rule) for finding in found.findings] == [
            (str(document), "warning", "missing-document")]
        document.write_bytes(content)


def test_the_factory_directory_has_to_be_there(check: Check, tmp_path: Path) -> None:
    found = check("--program-dir", tmp_path)
    assert [(finding.file, finding.level, finding.rule) for finding in found.findings] == [
        (f"{tmp_path}/settings-default", "error", "missing-directory")]


def test_a_link_to_the_site_directory_has_to_lead_somewhere(check: Check,
                                                            program_dir: Path) -> None:
    settings = program_dir / "settings"
    settings.rmdir()
    settings.symlink_to(program_dir / "etc")
    found = check("--program-dir", program_dir)
    assert [(finding.file, finding.level, finding.rule) for finding in found.findings] == [
        (str(settings), "error", "missing-directory")]
    (program_dir / "etc").mkdir()
    assert check("--program-dir", program_dir).findings == []


# The site's documents, and the findings with their documents.
SITES: list[tuple[dict[str, str], list[tuple[str, str]]]] = [
    ({SWITCH: ON, UPLOAD: PLACE}, []),
    ({UPLOAD: PLACE}, [(UPLOAD, "warning no-effect")]),
    ({SWITCH: enveloped("false"), FILES: enveloped('{"files": []}')},
     [(FILES, "warning no-effect")]),
    # the switch is malformed, so that the factory's counts
    ({SWITCH: ON + "¶,", UPLOAD: PLACE},
     [(SWITCH, "error not-json"), (UPLOAD, "warning no-effect")]),
    ({"WatchdogWatchProcesList.json": ON},
     [("WatchdogWatchProcesList.json", "error unknown-document")]),
    ({WATCH_LIST + ".txt": ON}, [(WATCH_LIST + ".txt", "error unknown-document")]),
    ({"mine.json": ON}, [("mine.json", "error unknown-document")]),
    ({"README": "The settings of this board.", "notes.txt": ""}, []),
]


@pytest.mark.parametrize("site, expected", SITES, ids=str)
def test_site(check: Check, program_dir: Path, site: dict[str, str],
              expected: list[tuple[str, str]]) -> None:
    places = []
    for name, marked in site.items():
        text, found_at = without_marks(marked)
        (program_dir / "settings" / name).write_text(text, "utf-8")
        places += found_at
    found = check("--program-dir", program_dir)
    assert [(Path(finding.file).name, f"{finding.level} {finding.rule}")
            for finding in found.findings] == expected
    assert [(finding.line, finding.column) for finding in found.findings
            if finding.line is not None] == places
    assert all(finding.file.startswith(f"{program_dir}/settings/") for finding in found.findings)


def test_a_factory_document_without_content_has_no_other_to_count(check: Check,
                                                                  program_dir: Path) -> None:
    for directory, message in (("settings", "the factory's counts"),
                               ("settings-default", "goes on without the document")):
        document = program_dir / directory / WATCH_LIST
        document.write_text("{}", "ascii")
        (finding,) = check(document).findings
        assert message in finding.message


def test_a_member_of_the_factory_that_the_site_hides(check: Check, program_dir: Path) -> None:
    (program_dir / "settings-default" / SIZES).write_text(
        enveloped('{"default": "1M", "service": "8M", "_": "a comment"}'), "ascii")
    site = program_dir / "settings" / SIZES
    text, places = without_marks(enveloped('¶{"default": "2M"}'))
    site.write_text(text, "ascii")
    found = check("--program-dir", program_dir)
    assert found.places == [(*places[0], "warning hidden-member")]
    assert (found.findings[0].file, '"service"' in found.findings[0].message) == (str(site), True)
    site.write_text(enveloped('{"default": "2M", "service": "1M"}'), "ascii")
    assert check("--program-dir", program_dir).findings == []


def test_an_entry_of_the_factory_that_the_site_hides(check: Check, program_dir: Path) -> None:
    entry = '{"name": "%s", "maxLoad": 80, "period": 10, "maxReports": 3}'
    (program_dir / "settings-default" / WATCH_LIST).write_text(
        enveloped(f"[{entry % 'decoder'}, {entry % 'player'}]"), "ascii")
    site = program_dir / "settings" / WATCH_LIST
    text, places = without_marks(enveloped(f"¶[{entry % 'player'}]"))
    site.write_text(text, "ascii")
    found = check("--program-dir", program_dir)
    assert found.places == [(*places[0], "warning hidden-member")]
    assert '"decoder"' in found.findings[0].message
    site.write_text(enveloped(f"[{entry % 'player'}, {entry % 'decoder'}]"), "ascii")
    assert check("--program-dir", program_dir).findings == []


def test_a_document_that_would_be_waited_for_does_not_stop_the_check(check: Check,
                                                                     program_dir: Path) -> None:
    pipe = program_dir / "settings" / SWITCH
    pipe.parent.joinpath(UPLOAD).write_text(PLACE, "ascii")
    os.mkfifo(pipe)
    found = check("--program-dir", program_dir)
    assert (str(pipe), "not-a-file") in [(finding.file, finding.rule)
                                         for finding in found.findings]


ORDINARY = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]


@AS_ROOT
@pytest.mark.parametrize("closed, mode, sizes_are_known", [
    (f"settings/{SIZES}", 0o000, False),
    ("settings", 0o000, False),
    ("settings", 0o711, True),  # it may be entered, and not be listed
    ("settings-default", 0o000, True),
])
def test_what_only_the_supervisor_may_read_is_not_judged(
        build_directory: Path, closed: str, mode: int, sizes_are_known: bool) -> None:
    with tempfile.TemporaryDirectory() as name:  # pytest's own directories are root's
        directory = Path(name)
        directory.chmod(0o755)
        tool = shutil.copy(build_directory / "pynx-watchdog-check", directory)
        shutil.copytree(FACTORY, directory / "settings-default")
        (directory / "settings").mkdir()
        (directory / "settings" / SIZES).write_text(enveloped('{"default": "2M"}'), "ascii")

        def said(*arguments: str) -> str:
            return subprocess.run([*ORDINARY, tool, *arguments], check=False, text=True,
                                  capture_output=True, timeout=TIME_LIMIT).stdout

        assert said() == ""
        (directory / closed).chmod(mode)
        refused = (f"{directory / closed}: error: cannot be read by this account and was not "
                   "checked [unreadable]\n")
        assert said() == refused
        explained = said("--explain", "--", "--logfileSizeConf", "x", "--app", "/bin/sh")
        assert ("start: not known\n" in explained) != sizes_are_known
