# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the reader finds in the stacks that the guard writes."""

from __future__ import annotations

import json
from pathlib import Path
from typing import Any

import pytest

from fleets import pack
from pynx_watchdog_evidence.describe import describe, tone
from pynx_watchdog_evidence.events import Event
from pynx_watchdog_evidence.join import events_of

FIXTURES = Path(__file__).parents[1] / "fixtures/guard"
MANIFEST = json.dumps({"time": "2026-11-22T17:39:00+0100"})


def read(*paths: Path) -> list[Event]:
    """The events in these files, without those of archives."""
    def complain(path: Path, reason: str) -> None:
        pytest.fail(f"{path}: {reason}")
    return [event for event in events_of(paths, complain) if event.kind != "archive"]


def stacks(place: Path, text: str) -> dict[str, Any]:
    """What is told of a file of stacks with this text."""
    file = place / "any name"
    file.write_text(text, encoding="utf-8")
    event, = read(file)
    return event.fields


def test_the_stacks_of_a_hang_are_a_message_with_the_main_thread() -> None:
    event, = read(FIXTURES / "hang.txt")
    assert event.as_dict() == {
        "kind": "message", "time": "2026-11-22T17:38:51+01:00",
        "source": str(FIXTURES / "hang.txt"), "line": 1, "text": "hang: no beat for 2 s",
        "stacks": "hang", "program": "/opt/panel", "process": 31315, "seconds": 2, "threads": 1,
        "thread": "panel", "functions": ["futex_wait", "Screen::draw", "Screen::refresh",
                                         "Screen::draw", "Screen::refresh", "main"]}
    assert describe(event) == (
        "stacks of a hang: no beat for 2 s; its main thread stood in futex_wait ← Screen::draw ← "
        "Screen::refresh ← Screen::draw ← Screen::refresh ← main")
    line = Event("message", None, "log", 1, {"guard": "hang"})
    assert tone(event) == tone(line) == "bad"


def test_the_stacks_of_a_crash_are_a_message_with_the_thread_that_crashed() -> None:
    event, = read(FIXTURES / "crash.txt")
    known = event.fields
    assert (known["stacks"], known["process"], known["seconds"]) == ("crash", 31438, 1)
    assert (known["thread"], known["threads"]) == ("render", 2)
    assert describe(event) == (
        "stacks of a crash: signal 11 (SIGSEGV), address 0x0; thread 'render' crashed in "
        "Decoder::decode ← operator() ← operator()")


def test_the_main_thread_of_a_hang_need_not_be_the_first(tmp_path: Path) -> None:
    head, thread = (FIXTURES / "hang.txt").read_text(encoding="utf-8").split("\n\n")[:2]
    other = 'Thread 7 "first":\n#0   0x0000000000000001 in other at a.c:1 from /opt/panel+0x1\n'
    known = stacks(tmp_path, f"{head}\n\n{other}\n{thread}\n")
    assert (known["thread"], known["functions"][0], known["threads"]) == ("panel", "futex_wait", 2)
    # It may have ended, and the others run on.
    assert stacks(tmp_path, f"{head}\n\n{other}")["thread"] == "first"


def test_stacks_are_known_by_their_content_in_each_archive_that_has_them(tmp_path: Path) -> None:
    text = (FIXTURES / "crash.txt").read_text(encoding="utf-8")
    for number in (1, 2):
        pack(tmp_path / f"report-x-179534164000{number}.tar.gz",
             {"manifest.json": MANIFEST, "tmp/x": text})
    event, = read(tmp_path)
    assert event.source.endswith("1.tar.gz!tmp/x") and event.fields["stacks"] == "crash"


@pytest.mark.parametrize("frame, function", [
    ("Screen::draw(int) at /usr/src/panel.cpp:22 from /opt/panel+0x130c", "Screen::draw"),
    ("main from /opt/panel+0x130c", "main"),
    ("?? from /opt/lib/libpanel.so+0x130c", "libpanel.so+0x130c"),
    ("??", "??"),
    ("void a::run<int, b<char> >(std::function<void (int)>&&) const from /opt/p+0x1", "a::run"),
    ("(anonymous namespace)::start(int)::{lambda(int)#2}::operator()(int) const from /opt/p+0x1",
     "start::{lambda#2}::operator()"),
    ("bool operator< <int>(a<int> const&) from /opt/p+0x1", "operator<"),
    ("std::ostream& operator<< <char>(std::ostream&, char) from /opt/p+0x1", "operator<<"),
    ("a::operator bool() const from /opt/p+0x1", "a::operator bool"),
    ("()", "()"),
    ("<" * 5000 + ">" * 5000, "<" * 1000),
])
def test_a_function_has_its_name_only(tmp_path: Path, frame: str, function: str) -> None:
    head = (FIXTURES / "crash.txt").read_text(encoding="utf-8").split("\n\n")[0]
    known = stacks(tmp_path, f'{head}\n\nThread 1 "x":\n#0   0x0000000000000001 in {frame}\n')
    assert known["functions"] == [function]


@pytest.mark.parametrize("rest", ["", '\nThread 1 "x":\n(its stack cannot be read: no)\n',
                                  "\n(the stacks cannot be read: no)\n"])
def test_stacks_without_a_frame_tell_the_rest(tmp_path: Path, rest: str) -> None:
    head = (FIXTURES / "crash.txt").read_text(encoding="utf-8").split("\n\n")[0]
    known = stacks(tmp_path, f"{head}\n{rest}")
    assert (known["process"], known["functions"]) == (31438, [])


@pytest.mark.parametrize("text", ["hang: no beat for 2 s\n", "crash: x\n/a, process 1\n"])
def test_a_text_that_only_begins_so_is_a_log(tmp_path: Path, text: str) -> None:
    (tmp_path / "x").write_text(text, encoding="utf-8")
    assert not read(tmp_path / "x")
