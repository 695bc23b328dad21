# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What pynx-watchdog-check finds in single settings documents.

A mark in a document stands where a finding is expected, in the order of the findings.
"""

from __future__ import annotations

import json
from pathlib import Path

import pytest

from checked import Check
from markers import enveloped, without_marks

WATCH_LIST = "WatchdogWatchProcessList.json"
SWITCH = "WatchdogAutomaticReporting.json"
MEMORY = "WatchdogMemoryReportingConf.json"
UPLOAD = "WatchdogAutomaticReportingConf.json"
FILES = "SystemManagerLogReportConfig.json"
SIZES = "SystemManagerLogFilesSizeConfig.json"

ENTRY = '{"name": "decoder", "maxLoad": 80, "period": 10, "maxReports": 3}'
PLACE = '{"uploadPath": "/tmp/upload", "uploadFilePrefix": "report"}'
LIMITS = '{"default": "1M", "service": "8M"}'


def entry(old: str, new: str) -> str:
    """A watch list with one entry in which something is replaced."""
    assert old in ENTRY
    return f"[{ENTRY.replace(old, new)}]"


def entries(*more: str) -> str:
    """A watch list whose entries have these names and arguments."""
    return "[\n" + ",\n".join(
        one.replace("}", ', "maxLoad": 80, "period": 10, "maxReports": 3}') for one in more) + "]"


# The wrong content, the right one next to it, and the findings.
CONTENTS = [
    # the watch list
    (WATCH_LIST, entry('"name": "decoder"', '"name": ¶"sixteen-letters-"'),
     entry('"decoder"', '"fifteen-letters"'), "error process-name"),
    (WATCH_LIST, entry('"name": "decoder"', '"name": ¶"décodeur-décode"'),
     entry('"decoder"', '"décodeur-déco"'), "error process-name"),
    (WATCH_LIST, entry('"decoder"', '¶" decoder"'), entry('"decoder"', '"a decoder"'),
     "error process-name"),
    (WATCH_LIST, entry('"decoder"', '¶"decoder\\t"'), f"[{ENTRY}]", "error process-name"),
    (WATCH_LIST, entry('"decoder"', '¶"/bin/decoder"'), entry('"decoder"', '"kworker/0:1"'),
     "warning process-name"),
    (WATCH_LIST, entry('"decoder"', '¶"./decoder"'), entry('"decoder"', '".decoder"'),
     "warning process-name"),
    (WATCH_LIST, entry('"decoder"', '¶""'), f"[{ENTRY}]", "error unusual-value"),
    (WATCH_LIST, entry('"decoder"', '¶null'), f"[{ENTRY}]", "error wrong-type"),
    (WATCH_LIST, entry('"decoder"', '¶["decoder"]'), f"[{ENTRY}]", "error wrong-type"),
    (WATCH_LIST, entry('"decoder"', '¶5'), entry('"decoder"', '"5"'), "warning wrong-type"),
    (WATCH_LIST, entry('{"name": "decoder", ', '¶{'), f"[{ENTRY}]", "error missing-member"),
    (WATCH_LIST, entry(', "period": 10', '').replace("{", "¶{"), f"[{ENTRY}]",
     "warning missing-member"),
    (WATCH_LIST, entry('"maxLoad": 80, ', '').replace("{", "¶{"), f"[{ENTRY}]",
     "warning missing-member"),
    (WATCH_LIST, entry(', "maxReports": 3', '').replace("{", "¶{"), f"[{ENTRY}]",
     "error missing-member"),
    (WATCH_LIST, entry('"maxReports"', '¶"maxReport"').replace("{", "¶{"), f"[{ENTRY}]",
     "error missing-member", "error unknown-member"),
    (WATCH_LIST, entry('3}', '3, ¶"threads": true}'), entry('3}', '3, "threadInfo": true}'),
     "error unknown-member"),
    (WATCH_LIST, entry('3}', '3, ¶"note": 1}'), entry('3}', '3, "_note": 1, "$note": 2}'),
     "error unknown-member"),
    (WATCH_LIST, entry('10', '¶0'), entry('10', '1'), "warning unusual-value"),
    (WATCH_LIST, entry('10', '¶-1'), entry('10', '2147483647'), "warning unusual-value"),
    (WATCH_LIST, entry('10', '¶"10"'), entry('10', '1e1'), "warning wrong-type"),
    (WATCH_LIST, entry('10', '¶"ten"'), entry('10', '10.0'), "error wrong-type"),
    (WATCH_LIST, entry('10', '¶9.5'), f"[{ENTRY}]", "error wrong-type"),
    (WATCH_LIST, entry('10', '¶true'), f"[{ENTRY}]", "error wrong-type"),
    (WATCH_LIST, entry('10', '¶2147483648'), f"[{ENTRY}]", "error wrong-type"),
    (WATCH_LIST, entry('80', '¶0'), entry('80', '1'), "warning unusual-value"),
    (WATCH_LIST, entry('80', '¶101'), entry('80', '100'), "warning unusual-value"),
    (WATCH_LIST, entry('3}', '¶0}'), entry('3}', '1}'), "error unusual-value"),
    (WATCH_LIST, entry('3}', '3, "threadInfo": ¶"yes"}'), entry('3}', '3, "threadInfo": false}'),
     "warning wrong-type"),
    (WATCH_LIST, entry('3}', '3, "threadInfo": ¶"false"}'), f"[{ENTRY}]", "warning wrong-type"),
    (WATCH_LIST, entry('3}', '3, "threadInfo": ¶1}'), f"[{ENTRY}]", "warning wrong-type"),
    (WATCH_LIST, entry('3}', '3, "arguments": ¶"--live"}'),
     entry('3}', '3, "arguments": ["--live"]}'), "error wrong-type"),
    (WATCH_LIST, entry('3}', '3, "arguments": [¶5, ¶null]}'), entry('3}', '3, "arguments": []}'),
     "warning wrong-type", "error wrong-type"),
    (WATCH_LIST, entry('3}', '3, "arguments": ["-a", ¶"--live -v"]}'),
     entry('3}', '3, "arguments": ["--live", "-v", "--title=a b", "a -b"]}'),
     "warning process-argument"),
    (WATCH_LIST, entry('3}', '3, "logFile": ¶{}}'), entry('3}', '3, "logFile": ""}'),
     "error wrong-type"),
    (WATCH_LIST, '[¶"decoder"]', "[]", "error wrong-type"),
    (WATCH_LIST, '¶' + ENTRY, "[]", "error wrong-type"),
    (WATCH_LIST, entry('"period": 10', '¶"period": 10, "period": 20'), f"[{ENTRY}]",
     "error duplicate-member"),
    (WATCH_LIST, entries('{"name": "a"}', '¶{"name": "a"}'),
     entries('{"name": "a"}', '{"name": "b"}'), "warning same-process"),
    (WATCH_LIST, entries('{"name": "a", "arguments": ["x", "y"]}',
                         '¶{"name": "a", "arguments": ["y", "x", "y"]}'),
     entries('{"name": "a", "arguments": ["x", "y"]}', '{"name": "a", "arguments": ["x", "z"]}'),
     "warning same-process"),
    (WATCH_LIST, entries('{"name": "a", "arguments": ["x", "y"]}',
                         '¶{"name": "a", "arguments": ["y"]}'),
     entries('{"name": "a", "arguments": ["x"]}', '{"name": "a", "arguments": ["y"]}'),
     "warning same-process"),
    (WATCH_LIST, entries('{"name": "a"}', '¶{"name": "a", "arguments": ["x"]}',
                         '¶{"name": "a", "arguments": ["y"]}'),
     entries('{"name": "a", "arguments": ["x"]}', '{"name": "b", "arguments": ["x"]}'),
     "warning same-process", "warning same-process"),
    # the switches
    (SWITCH, '¶"true"', "true", "warning wrong-type"),
    (SWITCH, '¶"on"', "true", "warning wrong-type"),
    (SWITCH, '¶"off"', "false", "error wrong-type"),
    (SWITCH, '¶"No"', "false", "error wrong-type"),
    (SWITCH, '¶"0"', "false", "warning wrong-type"),
    (SWITCH, '¶1', "false", "warning wrong-type"),
    (SWITCH, '¶{"enabled": true}', "true", "error wrong-type"),
    (MEMORY, '¶[]', "true", "error wrong-type"),
    (MEMORY, '¶null', "true", "error envelope"),
    # the upload directory
    (UPLOAD, PLACE.replace('"/tmp/upload"', '¶"upload"'), PLACE, "warning upload-path"),
    (UPLOAD, PLACE.replace('"/tmp/upload"', '¶"/proc/self"'),
     PLACE.replace("/tmp/upload", "/process"), "error upload-path"),
    (UPLOAD, PLACE.replace('"/tmp/upload"', '¶"/tmp/../sys/x"'), PLACE, "error upload-path"),
    (UPLOAD, PLACE.replace('"/tmp/upload"', '¶""'), PLACE, "warning unusual-value"),
    (UPLOAD, PLACE.replace('"/tmp/upload"', '¶7'), PLACE, "warning upload-path"),
    (UPLOAD, PLACE.replace('"report"', '¶"a/b"'), PLACE.replace('"report"', '"a-b"'),
     "error upload-prefix"),
    (UPLOAD, PLACE.replace('"report"', '¶""'), PLACE, "warning unusual-value"),
    (UPLOAD, '¶{"uploadFilePrefix": "report"}', PLACE, "warning missing-member"),
    (UPLOAD, '¶¶{}', PLACE, "warning missing-member", "warning missing-member"),
    (UPLOAD, PLACE.replace('{"uploadPath', '¶{¶"uploadpath'), PLACE, "warning missing-member",
     "error unknown-member"),
    # the files of every archive
    (FILES, '{"files": [¶"log", ¶"/proc/meminfo", ¶"/sys/kernel/uevent_seqnum", ¶""]}',
     '{"files": ["/log", "/processes", "/system"]}', "warning report-file", "warning report-file",
     "error report-file", "error report-file"),
    (FILES, '{"files": [¶"/tmp/*.log", ¶"/tmp/log.?"]}', '{"files": ["/tmp/a.log", "/tmp/[a]"]}',
     "warning report-file", "warning report-file"),
    (FILES, '{"files": ¶"/tmp/log"}', '{"files": ["/tmp/log"]}', "error wrong-type"),
    (FILES, '{"files": [¶{}]}', '{"files": []}', "error report-file"),
    (FILES, '¶{}', '{"files": []}', "warning missing-member"),
    (FILES, '¶["/tmp/log"]', '{"files": ["/tmp/log"]}', "error wrong-type"),
    # the limits of logs
    (SIZES, '{"default": "1M", "service": ¶"1000"}', LIMITS, "error size-suffix"),
    (SIZES, '{"default": ¶1000}', '{"default": "1000k"}', "error size-suffix"),
    (SIZES, '{"default": ¶"4096M"}', '{"default": "4095M"}', "error size-range"),
    (SIZES, '{"default": ¶"4194304k"}', '{"default": "4194303k"}', "error size-range"),
    (SIZES, '{"default": ¶"2147483648b"}', '{"default": "1000000000b"}', "error size-range"),
    (SIZES, '{"default": ¶"-1k"}', LIMITS, "error size-range"),
    (SIZES, '{"default": ¶"0k"}', '{"default": "1k"}', "warning size-zero"),
    (SIZES, '{"default": ¶"big"}', LIMITS, "error size-number"),
    (SIZES, '{"default": ¶""}', LIMITS, "error size-empty"),
    (SIZES, '{"default": ¶null}', LIMITS, "error size-empty"),
    (SIZES, '{"default": "1M", "service": ¶["1M"]}', LIMITS, "error size-empty"),
    (SIZES, '{"default": ¶" 5k"}', '{"default": "5k", "_": 5}', "warning unusual-value"),
    (SIZES, '¶{"service": "1M"}', LIMITS, "warning missing-member"),
    (SIZES, '¶"1M"', LIMITS, "error wrong-type"),
]


@pytest.mark.parametrize("name, wrong, right, rules", [
    pytest.param(name, wrong, right, rules, id=f"{name[:-5]}-{wrong}")
    for name, wrong, right, *rules in CONTENTS])
def test_content(check: Check, tmp_path: Path, name: str, wrong: str, right: str,
                 rules: list[str]) -> None:
    text, places = without_marks(enveloped(wrong))
    document = tmp_path / name
    document.write_text(text, "utf-8")
    found = check(document)
    assert found.places == [(*place, rule) for place, rule in zip(places, rules, strict=True)]
    assert {finding.file for finding in found.findings} == {str(document)}
    assert found.status == any(rule.startswith("error") for rule in rules)
    assert check("--strict", document).status == 1

    document.write_text(enveloped(right), "utf-8")
    found = check("--strict", document)
    assert (found.status, found.findings, found.text, found.stderr) == (0, [], "", "")


# The whole document, and the findings.
DOCUMENTS = [
    ('{"value": {"type": "it", "it": true,¶}}', "error not-json"),
    ('{"value": {"type": "it", "it": true}¶', "error not-json"),
    ('{\n  // on\n'.replace("//", "¶//") + '"value": 1}', "error not-json"),
    ('{"value": {"type": "it", "it": true}}\n¶x', "error not-json"),
    ('¶true', "error not-json"),
    ('¶[true]', "error envelope"),
    ('¶{}', "error envelope"),
    ('¶{¶"it": true}', "error envelope", "error unknown-member"),
    ('¶{¶"Value": {"type": "it", "it": true}}', "error envelope", "error unknown-member"),
    ('{"value": ¶true}', "error envelope"),
    ('{"value": ¶{"it": true}}', "error envelope"),
    ('{"value": {"type": ¶"It", "it": true}}', "error envelope"),
    ('{"value": {"type": ¶null, "it": true}}', "error envelope"),
    ('{"value": {"type": ¶["it"], "it": true}}', "error envelope"),
    ('{"value": {"type": ¶5, "5": true}}', "warning wrong-type"),
    ('{"value": {"type": ¶"", "": true}}', "warning unusual-value"),
    ('{"value": ¶{"": true}}', "warning missing-member"),
    ('{"value": {"type": ¶"_it", "_it": true}}', "warning envelope"),
    ('{"value": {"type": "it", "it": ¶null}}', "error envelope"),
    ('{"value": {"type": "it", "it": true, ¶"off": false}}', "warning unread-member"),
    ('{"value": {"type": "it", "it": true}, ¶"note": 1}', "error unknown-member"),
    ('{¶"value": 1, "value": {"type": "it", "it": true}}', "error duplicate-member"),
    ('{"value": {"type": "it", ¶"it": "x", "it": true}}', "error duplicate-member"),
    # what only the supervisor accepts
    ('{"value": {"type": "it", "it": true}, "_": ¶.5}', "warning other-readers"),
    ('{"value": {"type": "it", "it": true}, "_": "a¶\tb"}', "warning other-readers"),
    ('{"_": "a¶¶\0b", "value": {"type": "it", "it": true}}', "warning other-readers",
     "error encoding"),
    ('{"_": "a¶\\u0000b", "value": {"type": "it", "it": true}}', "error encoding"),
    ('{"_": "\\\\¶\\u0000b", "value": {"type": "it", "it": true}}', "error encoding"),
]


@pytest.mark.parametrize("marked, rules", [
    pytest.param(marked, rules, id=repr(marked)) for marked, *rules in DOCUMENTS])
def test_document(check: Check, tmp_path: Path, marked: str, rules: list[str]) -> None:
    text, places = without_marks(marked)
    document = tmp_path / MEMORY
    document.write_text(text, "utf-8")
    found = check(document)
    assert found.places == [(*place, rule) for place, rule in zip(places, rules, strict=True)]


@pytest.mark.parametrize("text, said", [
    ('{"value": {"type": "it", "it": true,\n}}', "the last element must have no comma behind it"),
    ('{"_": [1, ], "value": 1}', "the last element must have no comma behind it"),
    ('{"_": [1, 2 3]}', "Missing a comma or ']' after an array element"),
    ('{"_": ]}', "Invalid value"),
    ('/* on */ {}', "there are no comments"),
    ('# on\n{}', "there are no comments"),
    ("{'value': 1}", "a text stands in double quotes"),
], ids=repr)
def test_why_it_is_not_json(check: Check, tmp_path: Path, text: str, said: str) -> None:
    document = tmp_path / MEMORY
    document.write_text(text, "ascii")
    (finding,) = check(document).findings
    assert finding.message.startswith(f"is not JSON ({said});")


@pytest.mark.parametrize("text", [
    '{"value": {"type": "it", "it": true}}',
    '{"$schema": "x", "_": [1], "value": {"type": "it", "$it": 1, "_it": 2, "it": true}}',
    '{"_": "\\\\u0000 \\u0001", "value": {"type": "it", "it": true}}',
    '{"value":\r\n{"type": "it", "it": true}\r\n}\r\n',
])
def test_a_document_that_is_right(check: Check, tmp_path: Path, text: str) -> None:
    document = tmp_path / MEMORY
    document.write_text(text, "utf-8", newline="")
    assert check("--strict", document).findings == []


def test_a_column_counts_characters(check: Check, tmp_path: Path) -> None:
    document = tmp_path / MEMORY
    text, places = without_marks(
        '{¶"_": "é€😀",\r\n "_": "é€😀", "value": {"type": "it", "it": ¶"off"}}')
    document.write_bytes(text.encode())
    assert check(document).places == [(*places[0], "error duplicate-member"),
                                      (*places[1], "error wrong-type")]


RIGHT = '{"value": {"type": "it", "it": true}}'


@pytest.mark.parametrize("content, places", [
    (RIGHT.encode("utf-8-sig"), [(None, None, "warning other-readers")]),
    (RIGHT.encode("utf-16"), [(None, None, "warning other-readers")]),
    (b'{"_": "\xff",' + RIGHT.encode()[1:], [(1, 8, "error encoding")]),
    (b'{"_": "\xc3"}' + RIGHT.encode()[1:],
     [(1, 8, "error encoding"), (1, 11, "error not-json")]),
    (RIGHT.encode() + b"\xc3", [(1, 38, "warning other-readers")]),
    (b"", [(None, None, "error not-json")]),
    (b" \n", [(2, 1, "error not-json")]),
    (b"\0", [(1, 1, "error not-json")]),
], ids=repr)
def test_bytes(check: Check, tmp_path: Path, content: bytes,
               places: list[tuple[int | None, int | None, str]]) -> None:
    document = tmp_path / MEMORY
    document.write_bytes(content)
    assert check(document).places == places


def test_a_thousand_entries_are_checked(check: Check, tmp_path: Path) -> None:
    entries = [
        {"name": f"process-{number}", "arguments": ["--instance", "of-the-product"], "maxLoad": 80,
         "period": 10, "threadInfo": True, "maxReports": 3, "logFile": ""}
        for number in range(1000)]
    document = tmp_path / WATCH_LIST
    for indent in (None, 4):
        document.write_text(json.dumps({"value": {"type": "list", "list": entries}},
                                       indent=indent), "ascii")
        assert check("--strict", document).text == ""
    document.write_text(document.read_text("ascii").replace("process-999", "process-998"), "ascii")
    (finding,) = check(document).findings
    assert finding.rule == "same-process"


@pytest.mark.parametrize("name, meant", [
    ("WatchdogWatchProcesList.json", WATCH_LIST), ("watchdogautomaticreporting.json", SWITCH)])
def test_a_misspelt_name_of_a_document(check: Check, tmp_path: Path, name: str, meant: str) -> None:
    document = tmp_path / name
    document.write_text(RIGHT, "ascii")
    found = check(document)
    assert found.places == [(None, None, "error unknown-document")]
    assert f'did you mean "{meant}"?' in found.findings[0].message


def test_a_misspelt_member_is_guessed(check: Check, tmp_path: Path) -> None:
    document = tmp_path / WATCH_LIST
    document.write_text(enveloped(entry('"period"', '"peroid"')), "ascii")
    messages = [finding.message for finding in check(document).findings]
    assert messages == [
        '"period" is missing, which the supervisor reads as 0: an alarm every second',
        '"peroid" is passed over; did you mean "period"?']
