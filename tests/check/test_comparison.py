# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""pynx-watchdog-check judges as the program does, whatever settings and arguments are.

The cases are mutations with a fixed seed. `comparison` tells what the tool says of them, and what
the program's own functions read.
"""

from __future__ import annotations

import json
import signal
import subprocess
from collections import Counter
from pathlib import Path
from random import Random
from typing import Any

import pytest

import mutation

Object = dict[str, Any]
Answered = list[tuple[Object, Object]]

CASES = 250
SITE, FACTORY = "settings/", "settings-default/"

# Where the program reads what is explained under a name.
DOCUMENTS = {
    "memory line": "WatchdogMemoryReportingConf.json",
    "reports": "WatchdogAutomaticReporting.json",
    "report files": "SystemManagerLogReportConfig.json",
    "upload path": "WatchdogAutomaticReportingConf.json",
    "upload prefix": "WatchdogAutomaticReportingConf.json",
    "watch list": "WatchdogWatchProcessList.json",
}


def make_case(random: Random) -> Object:
    """Arguments and documents, most of them with a mistake or two."""
    documents: dict[str, str] = {}
    in_documents = 0
    for directory in (SITE, FACTORY):
        for name in mutation.CONTENTS:
            if directory == FACTORY or random.random() < 0.4:
                if random.random() < 0.05:
                    continue
                mistakes = random.choice([0, 0, 1, 1, 2]) if directory == SITE else 0
                in_documents += mistakes
                text = mutation.document(random, name, mistakes)
                documents[directory + name] = text.decode("latin-1")
    return {"arguments": mutation.arguments(random, random.choice([0, 0, 1, 2])),
            "documents": documents, "mistakes": in_documents}


def answered(comparison: Path, directory: Path, seed: int) -> Answered:
    """Each case with what `comparison` answers."""
    random = Random(seed)
    cases = [make_case(random) for _ in range(CASES)]
    done = subprocess.run([comparison, directory],
                          input="".join(json.dumps(case) + "\n" for case in cases).encode(),
                          stdout=subprocess.PIPE, check=True)
    answers = [json.loads(line) for line in done.stdout.splitlines()]
    assert len(answers) == CASES
    for answer in answers:
        answer["explained"] = {each["setting"]: each for each in answer["explanations"]}
        answer["directory"] = str(directory)
    return list(zip(cases, answers))


def in_force(program: Object) -> Object:
    """What the program reads, by the names of the explanations."""
    values = {name: value for name, value in program.items() if name != "watch"}
    if "watch" in program:
        values["watch list"] = len(program["watch"])
    for number, entry in enumerate(program.get("watch", []), 1):
        values |= {f"watch {number} {member}": value for member, value in entry.items()}
    return values


def values_are_those_of_the_program(cases: Answered) -> None:
    for case, answer in cases:
        if answer["parsed"]:
            expected = in_force(answer["program"])
            explained = {name: each["value"] for name, each in answer["explained"].items()
                         if each["source"] != "fixed" and name != "start"}
            assert explained == expected, case


def sizes_are_those_of_the_program(cases: Answered) -> None:
    for case, answer in cases:
        explained, = (each["value"] for each in answer["settings"] if each["setting"] == "sizes")
        assert explained == answer["sizes"], case


def the_end_of_the_program_is_foretold(cases: Answered) -> None:
    ends: Counter[str] = Counter()
    for case, answer in cases:
        starts = answer["parsed"] and bool(answer["program"]["application"])
        assert ("start" in answer["explained"]) == (not starts), case
        if not starts:
            assert answer["explanations"][0]["setting"] == "start"
        if not answer["parsed"]:
            assert answer["signal"] == signal.SIGABRT, case
        ends["starts" if starts else "ends" if answer["parsed"] else "aborts"] += 1
    assert min(ends["starts"], ends["ends"], ends["aborts"]) >= 2, ends


def an_end_of_the_program_is_an_error(cases: Answered) -> None:
    for case, answer in cases:
        if "start" in answer["explained"]:
            assert any(found["level"] == "error" and found["file"] == "arguments"
                       for found in answer["findings"]), case


def the_source_is_the_document_that_counts(cases: Answered) -> None:
    sources: Counter[str] = Counter()
    for case, answer in cases:
        for setting, name in DOCUMENTS.items():
            if setting not in answer["explained"]:
                continue  # with --rotateOnly
            counts = [directory for directory in (SITE, FACTORY)
                      if answer["counts"].get(directory + name)]
            path = f"{answer['directory']}/{counts[0]}{name}" if counts else "default"
            source = answer["explained"][setting]["source"]
            if source != path:  # a member that the document lacks
                assert source == "default" and not answer["explained"][setting]["value"], case
            sources[counts[0] if counts else "default"] += 1
    assert min(sources[SITE], sources[FACTORY], sources["default"]) >= 2, sources


# ---- What has no finding takes effect as it is written.

def plain_size(text: str) -> int:
    """The bytes that a reader takes a size for."""
    factor = {"k": 1024, "m": 1 << 20, "b": 1}.get(text[-1].lower())
    return int(text[:-1]) * factor if factor else int(text)


def plain_reading(words: list[str], sizes: dict[str, Any]) -> Object:
    """What a reader takes the arguments for; each is known and has its value."""
    read: Object = {"log file": "", "log size": 0, "log time": False, "rotate only": False,
                    "single run": False, "account": ""}
    rest = iter(words)
    for word in rest:
        if word == "--app":
            return {**read, "application": next(rest), "application arguments": list(rest)}
        name = {"--logTime": "log time", "--rotateOnly": "rotate only",
                "--singleRun": "single run", "--logfileName": "log file", "--user": "account",
                "--logfileSize": "log size", "--logfileSizeConf": "log size"}[word]
        if isinstance(read[name], bool):
            read[name] = True
        elif word == "--logfileSize":
            read[name] = plain_size(next(rest))
        elif word == "--logfileSizeConf":
            read[name] = plain_size(sizes[next(rest)])
        else:
            read[name] = next(rest)
    raise AssertionError("no application")


def members_once(pairs: list[tuple[str, Any]]) -> Object:
    """An object, no member of which comes twice."""
    assert len({name for name, _ in pairs}) == len(pairs), "a member comes twice"
    return dict(pairs)


def no_constant(text: str) -> None:
    """NaN and the like are no JSON."""
    raise AssertionError(text)


def content(text: str) -> Any:
    """What a strict reader takes a document's content for."""
    value = json.loads(text.encode("latin-1").decode("utf-8"), object_pairs_hook=members_once,
                       parse_constant=no_constant)["value"]
    return value[value["type"]]


def arguments_without_a_finding_take_effect(cases: Answered) -> None:
    silent = 0
    for case, answer in cases:
        if case["mistakes"] or any(each["file"] == "arguments" for each in answer["findings"]):
            continue
        silent += 1
        sizes: Object = {}
        for directory in (FACTORY, SITE):
            text = case["documents"].get(directory + "SystemManagerLogFilesSizeConfig.json")
            sizes = content(text) if text else sizes
        expected = plain_reading(case["arguments"], sizes)
        assert {name: answer["explained"][name]["value"] for name in expected} == expected, case
    assert silent


def same(left: Any, right: Any) -> bool:
    """Whether two values of JSON are the same, and of the same type."""
    if isinstance(left, list) and isinstance(right, list):
        return len(left) == len(right) and all(map(same, left, right))
    return isinstance(left, bool) == isinstance(right, bool) and bool(left == right)


def silent_documents(case: Object, answer: Object) -> dict[str, str]:
    """The documents without a finding, by their paths."""
    found = {each["file"] for each in answer["findings"]}
    return {path: text for path, text in case["documents"].items()
            if f"{answer['directory']}/{path}" not in found}


def documents_without_a_finding_take_effect(cases: Answered) -> None:
    silent: Counter[str] = Counter()
    for case, answer in cases:
        for path, text in silent_documents(case, answer).items():
            assert answer["counts"][path], (path, text)
            directory, name = path.split("/")
            hidden = directory + "/" == FACTORY and answer["counts"].get(SITE + name)
            if hidden or "reports" not in answer["explained"]:
                continue
            value, explained = content(text), answer["explained"]
            if name == "WatchdogWatchProcessList.json":
                assert explained["watch list"]["value"] == len(value)
                expected = {f"watch {number} {member}": inner for number, entry in
                            enumerate(value, 1) for member, inner in entry.items()
                            if member[:1] not in ("_", "$")}
            elif name == "SystemManagerLogReportConfig.json":
                expected = {"report files": value["files"]}
            elif name == "WatchdogAutomaticReportingConf.json":
                expected = {"upload path": value["uploadPath"],
                            "upload prefix": value["uploadFilePrefix"]}
            elif name == "SystemManagerLogFilesSizeConfig.json":
                continue  # what it means depends on the arguments
            else:
                setting, = (setting for setting in DOCUMENTS if DOCUMENTS[setting] == name)
                expected = {setting: value}
            for setting, inner in expected.items():
                assert same(explained[setting]["value"], inner), (setting, text)
            silent[directory] += 1
    assert min(silent["settings"], silent["settings-default"]) >= 2, silent


@pytest.mark.parametrize("seed", range(6))
def test_the_tool_judges_as_the_program_does(build_directory: Path, tmp_path: Path,
                                             seed: int) -> None:
    cases = answered(build_directory / "tests/check/comparison", tmp_path / "program", seed)
    values_are_those_of_the_program(cases)
    sizes_are_those_of_the_program(cases)
    the_end_of_the_program_is_foretold(cases)
    an_end_of_the_program_is_an_error(cases)
    the_source_is_the_document_that_counts(cases)
    arguments_without_a_finding_take_effect(cases)
    documents_without_a_finding_take_effect(cases)
