# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Documents that are made to crash a reader, to hang it or to fill the memory."""

from __future__ import annotations

import os
import subprocess
from collections.abc import Callable
from pathlib import Path

import pytest

from checked import TIME_LIMIT

WATCH_LIST = "WatchdogWatchProcessList.json"
BYTES = 512 * 1024  # the largest document that is checked
VALUES = 20_000     # the greatest number of values in such a document
MEMORY_LIMIT = 200 * 1024 * 1024
BEGIN, END = '{"value": {"type": "it", "it": [', ']}}'


def list_of(*elements: str) -> bytes:
    """A document with a list of these, as often as they fit."""
    room = min((BYTES - len(BEGIN + END)) // len(",".join(elements) + ","),
               VALUES // len(",".join(elements).split(",")))
    return (BEGIN + ",".join(elements * room) + END).encode()


DOCUMENTS = {
    "many values": list_of("0"),
    "many empty entries": list_of("{}"),
    "many equal entries": list_of('{"name":"a"}'),
    "many different entries": (BEGIN + ",".join(
        f'{{"name":"a","arguments":["{n:x}"]}}' for n in range(6000)) + END).encode(),
    "many arguments": (BEGIN + '{"arguments":[' + ",".join("0" * VALUES) + "]}" + END).encode(),
    "many members": (BEGIN + "{" + ",".join(f'"{n:x}":1' for n in range(VALUES)) + "}"
                     + END).encode(),
    "one member many times": (BEGIN + "{" + ",".join(['"a":1'] * VALUES) + "}" + END).encode(),
    "too many values": (BEGIN + ",".join("0" * 2 * VALUES) + END).encode(),
    "deep lists that end": (BEGIN + "[" * 1000 + "]" * 1000 + END).encode(),
    "deep lists": b"[" * BYTES,
    "deep objects": b'{"":' * (BYTES // 4),
    "a long name": (BEGIN + '{"name":"' + "a" * (BYTES - 100) + '"}' + END).encode(),
    "a long member": (BEGIN + '{"' + "a" * (BYTES - 100) + '": 1}' + END).encode(),
    "a long type": ('{"value": {"type": "' + "a" * (BYTES - 100) + '"}}').encode(),
    "a long number": (BEGIN + "1" * (BYTES - 100) + END).encode(),
    "many lines": b"\n" * BYTES,
    "zeroes": bytes(BYTES),
    "invalid UTF-8": b"\xff" * BYTES,
    "cut UTF-16": b"\xff\xfe{",
}


def sparse(path: Path) -> None:
    """Make a file of 100 MB."""
    path.touch()
    os.truncate(path, 100_000_000)


def loop(path: Path) -> None:
    """Make two links that lead to each other."""
    path.symlink_to(path.parent / "other")
    (path.parent / "other").symlink_to(path)


FILES: dict[str, tuple[str, Callable[[Path], None]]] = {
    "100 MB": ("too-large", sparse),
    "a pipe": ("not-a-file", os.mkfifo),
    "a directory": ("not-a-file", Path.mkdir),
    "an endless device": ("not-a-file", lambda path: path.symlink_to("/dev/zero")),
    "a file of the kernel": ("not-json", lambda path: path.symlink_to("/proc/self/maps")),
    "links that lead to each other": ("unreadable", loop),
    "a link that leads nowhere": ("unreadable", lambda path: path.symlink_to("nowhere")),
    "nothing": ("unreadable", lambda path: None),
}


def told(tool: Path, *arguments: Path | str) -> str:
    """What the tool tells of a document. It ends by itself, and takes little memory."""
    with subprocess.Popen(["timeout", str(TIME_LIMIT), tool, *arguments], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, encoding="utf-8") as process:
        assert process.stdout is not None and process.stderr is not None
        text = process.stdout.read()
        said = process.stderr.read()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    assert (process.returncode, said) == (1, "")
    assert usage.ru_maxrss * 1024 < MEMORY_LIMIT
    return text


@pytest.mark.parametrize("content", DOCUMENTS.values(), ids=DOCUMENTS)
def test_content(build_directory: Path, tmp_path: Path, content: bytes) -> None:
    (tmp_path / "settings-default").mkdir()
    document = tmp_path / "settings-default" / WATCH_LIST
    document.write_bytes(content)
    assert len(content) <= BYTES
    text = told(build_directory / "pynx-watchdog-check", document)
    assert f"{document}:" in text
    told(build_directory / "pynx-watchdog-check", "--program-dir", tmp_path)


@pytest.mark.parametrize("rule, make", FILES.values(), ids=FILES)
def test_file(build_directory: Path, tmp_path: Path, rule: str,
              make: Callable[[Path], None]) -> None:
    (tmp_path / "settings").mkdir()
    (tmp_path / "settings-default").mkdir()
    document = tmp_path / "settings" / WATCH_LIST
    make(document)
    tool = build_directory / "pynx-watchdog-check"
    text = told(tool, document)
    assert text.startswith(f"{document}: error: ") and text.endswith(f" [{rule}]\n")
    if make is not FILES["nothing"][1]:
        assert text in told(tool, "--program-dir", tmp_path)


@pytest.mark.parametrize("values, rule", [(VALUES, "too-many"), (VALUES + 1, "too-large")])
def test_a_document_with_too_many_values_is_not_checked(build_directory: Path, tmp_path: Path,
                                                        values: int, rule: str) -> None:
    document = tmp_path / WATCH_LIST
    document.write_text(BEGIN + ",".join(["0"] * values) + END, "ascii")
    assert told(build_directory / "pynx-watchdog-check", document).endswith(f" [{rule}]\n")


@pytest.mark.parametrize("mistakes", [1000, 1001])
def test_only_more_than_a_thousand_mistakes_are_too_many(build_directory: Path, tmp_path: Path,
                                                         mistakes: int) -> None:
    document = tmp_path / WATCH_LIST
    document.write_text(BEGIN + ",".join(["0"] * mistakes) + END, "ascii")
    text = told(build_directory / "pynx-watchdog-check", document)
    assert (text.count("\n"), "[too-many]" in text) == (mistakes, mistakes > 1000)


def test_the_errors_are_not_lost_among_many_warnings(build_directory: Path,
                                                     tmp_path: Path) -> None:
    document = tmp_path / WATCH_LIST
    document.write_bytes(list_of('{"name":"a","maxLoad":1,"period":1,"maxReports":1}'))
    text = told(build_directory / "pynx-watchdog-check", document)
    assert text.count("\n") == 1001
    assert text.endswith(f"{document}: error: has more mistakes than the 1000 above [too-many]\n")
