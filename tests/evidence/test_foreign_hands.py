# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Files that were made to harm, and output that looks like the supervisor's.

Each is given to the program as its users call it. What it costs is measured.
"""

from __future__ import annotations

import io
import json
import os
import random
import struct
import subprocess
import sys
import tarfile
import zlib
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest

PROGRAM = Path(__file__).parents[2] / "tools/evidence/pynx-watchdog-evidence"
MOST_MEMORY = 500_000_000  # bytes
GOOD = "2026-11-22 10:00:00.000 Watchdog: Starting app: good \n"
REPORT = "report-main-1795341600000.tar.gz"

# Prints how much memory the program has taken, in KiB, after it.
MEASURED = """
import resource, subprocess, sys
status = subprocess.run(sys.argv[1:]).returncode
print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss, file=sys.stderr)
sys.exit(status)
"""


class Result:
    """What the program has said, and what it took."""

    def __init__(self, *arguments: str | Path) -> None:
        said = subprocess.run([sys.executable, "-c", MEASURED, PROGRAM, *arguments],
                              capture_output=True, text=True, check=False, timeout=600)
        self.status = said.returncode
        self.out = said.stdout
        *complaints, memory = said.stderr.splitlines()
        self.complaints = complaints
        self.memory = int(memory) * 1024

    def events(self) -> list[dict[str, Any]]:
        return [json.loads(line, parse_constant=pytest.fail) for line in self.out.splitlines()]


def read(directory: Path) -> Result:
    """Read a directory in which one good log is. That is told, whatever lies beside it."""
    (directory / "good.log").write_text(GOOD)
    before = sorted(path.name for path in directory.parent.iterdir())
    result = Result("--jsonl", directory)
    assert result.status == 0 and result.memory < MOST_MEMORY, result.complaints
    assert [event for event in result.events() if event.get("program") == "good"]
    assert sorted(path.name for path in directory.parent.iterdir()) == before
    return result


def read_alone(file: Path, place: Path) -> None:
    """Read a file in the other ways, in which all of its events have to be in memory."""
    for result in (Result(file), Result("--html", place / "page.html", file),
                   Result("--database", place / "db", file)):
        assert result.memory < MOST_MEMORY and "Traceback" not in "".join(result.complaints)


@pytest.fixture(name="place")
def fixture_place(tmp_path: Path) -> Path:
    """A directory for what is read, with one around it that has to stay as it is."""
    place = tmp_path / "around" / "evidence"
    place.mkdir(parents=True)
    return place


# -- archives -------------------------------------------------------------------------------------


def header(name: str, size: int, kind: bytes = tarfile.REGTYPE, **fields: Any) -> bytes:
    """The header of a member."""
    member = tarfile.TarInfo(name)
    member.size, member.type = size, kind
    for field, value in fields.items():
        setattr(member, field, value)
    return member.tobuf(tarfile.GNU_FORMAT)


def packed(*pieces: bytes | tuple[bytes, int]) -> bytes:
    """The pieces as gzip; a pair is a block that comes so many times, which takes no time."""
    data = bytearray()
    packer = zlib.compressobj(6, zlib.DEFLATED, -zlib.MAX_WBITS)
    for piece in pieces:
        block, count = piece if isinstance(piece, tuple) else (piece, 1)
        # After a full flush, equal blocks are packed equally.
        data += packer.flush(zlib.Z_FULL_FLUSH)
        once = packer.compress(block) + packer.flush(zlib.Z_FULL_FLUSH)
        data += once * count
    return b"\x1f\x8b\x08\0\0\0\0\0\0\xff" + data + packer.flush() + bytes(8)  # no check sum


MIB = 1 << 20
ZEROS = bytes(MIB)


def many(count: int, size: int) -> Iterator[bytes]:
    for number in range(count):
        yield header(f"member-{number}", size) + b"==Report==x\n".ljust(-(-size // 512) * 512, b".")


def pax(text: bytes) -> bytes:
    """A record of an extended header."""
    length = len(text) + 3
    while len(f"{length} ") + len(text) + 1 != length:
        length += 1
    return f"{length} ".encode() + text + b"\n"


def nested(depth: int) -> bytes:
    data = b"==Report==deep\n"
    for _ in range(depth):
        file = io.BytesIO()
        with tarfile.open(fileobj=file, mode="w:gz") as tar:
            member = tarfile.TarInfo("report-a-1795341600000.tar.gz")
            member.size = len(data)
            tar.addfile(member, io.BytesIO(data))
        data = file.getvalue()
    return data


HOSTILE: dict[str, Callable[[], bytes]] = {
    "a bomb in a member": lambda: packed(header("tmp/log/application.log", 1024 * MIB),
                                         (ZEROS, 1024)),
    "a long name of gigabytes": lambda: packed(
        header("././@LongLink", 2048 * MIB, tarfile.GNUTYPE_LONGNAME), (ZEROS, 2048)),
    "an extended header of gigabytes": lambda: packed(
        header("x", 2048 * MIB, tarfile.XHDTYPE), (ZEROS, 2048)),
    "many global headers": lambda: packed(*(
        header("g", 512, tarfile.XGLTYPE) + pax(b"key%d=" % number + b"v" * 400).ljust(512, b"\0")
        + header(str(number), 0) for number in range(20_000))),
    "a chain of headers": lambda: packed(
        (header("x", 512, tarfile.XHDTYPE) + pax(b"comment=x").ljust(512, b"\0"), 100_000)),
    "a map of a sparse file without end": lambda: packed(
        header("sparse", 0, tarfile.GNUTYPE_SPARSE)[:482] + b"\1" + bytes(29),
        (b"00000000001\0" * 42 + b"\1" + bytes(7), 1_000_000)),
    "100,000 members": lambda: packed(*many(100_000, 12)),
    "a thousand members of a mebibyte": lambda: packed(*many(1000, MIB)),
    "a cut in the last bytes": lambda: packed(*many(10, 1000))[:-20],
    "archives in archives": lambda: nested(20),
    "a negative size": lambda: packed(header("x", -1024)),
    "no gzip behind its mark": lambda: b"\x1f\x8b" + bytes(1000),
    "snapshots of half a gibibyte": lambda: packed(
        header("tmp/log/system", 512 * MIB), (b"top - 10:00:00 up\n  PID %CPU COMMAND\n"
                                              b"  1 9.9 x\n".ljust(24) * 21845, 900)),
    "a manifest of lists": lambda: packed(
        header("manifest.json", 64 * MIB), b"[" + b"[]," * (64 * MIB // 3) + b"]"),
    "a manifest that is deep": lambda: packed(
        header("manifest.json", MIB), b"[" * MIB),
}


@pytest.mark.parametrize("kind", HOSTILE)
def test_a_hostile_archive_costs_itself_alone(place: Path, tmp_path: Path, kind: str) -> None:
    (place / REPORT).write_bytes(HOSTILE[kind]())
    read_alone(place / REPORT, tmp_path)
    result = read(place)
    [told] = [event for event in result.events() if event["kind"] == "archive"
              and event["source"].endswith(REPORT)]
    assert told["source"].endswith(REPORT)
    assert told.get("problem") or any(REPORT in complaint for complaint in result.complaints)


def test_members_that_climb_link_or_are_devices_are_names_only(place: Path) -> None:
    outside = place.parent / "outside"
    file = io.BytesIO()
    with tarfile.open(fileobj=file, mode="w:gz") as tar:
        for number, name in enumerate(("../outside", str(outside), "link/outside",
                                       "a/../../../outside")):
            member = tarfile.TarInfo(name)
            member.size = 23
            tar.addfile(member, io.BytesIO(b"==Report==%12d\n" % number))
        for name, kind, target in (("link", tarfile.SYMTYPE, str(place.parent)),
                                   ("hard", tarfile.LNKTYPE, "/etc/passwd"),
                                   ("null", tarfile.CHRTYPE, ""), ("disk", tarfile.BLKTYPE, ""),
                                   ("pipe", tarfile.FIFOTYPE, ""), ("dir", tarfile.DIRTYPE, "")):
            member = tarfile.TarInfo(name)
            member.type, member.linkname, member.mode = kind, target, 0o7777
            tar.addfile(member)
    (place / REPORT).write_bytes(file.getvalue())
    events = read(place).events()
    assert sum(event["kind"] == "request" for event in events) == 4
    assert sorted(path.name for path in place.iterdir()) == ["good.log", REPORT]
    assert not outside.exists()


def test_an_archive_that_is_cut_anywhere_is_read_so_far(place: Path) -> None:
    dice = random.Random(15)
    whole = packed(*many(20, 2000))
    for number in range(40):
        (place / f"report-r{number}-17953416{number:05}.tar.gz").write_bytes(
            whole[:dice.randrange(2, len(whole))])
    events = read(place).events()
    assert [event["complete"] for event in events if event["kind"] == "archive"] == [False] * 40


def test_all_that_comes_before_a_cut_is_told(place: Path) -> None:
    # Noise cannot be packed, so half of the packed bytes are half of the noise.
    noise = random.Random(15).randbytes(MIB)
    for number, size in enumerate((0, 2000, MIB)):
        text = b"==Report==x%d\n" % number + noise[:size]
        whole = packed(header("tmp/log/application.log", len(text)) + text)
        (place / f"report-r-17953416{number:05}.tar.gz").write_bytes(
            whole[:len(whole) // 2 if size else len(whole) - 8])
    events = read(place).events()
    assert [event["complete"] for event in events if event["kind"] == "archive"] == [False] * 3
    assert sorted(event["name"] for event in events if event["kind"] == "request") == [
        "x0", "x1", "x2"]


# -- texts ----------------------------------------------------------------------------------------

MESSAGE = b"Nov 22 10:00:00 a pynx_watchdog: x\n"

LYING: dict[str, Callable[[], bytes]] = {
    "a journal with values of wrong types": lambda: b"\n".join(json.dumps({
        "__REALTIME_TIMESTAMP": time, "__MONOTONIC_TIMESTAMP": time, "_BOOT_ID": boot,
        "SYSLOG_IDENTIFIER": "pynx_watchdog", "MESSAGE": text}).encode()
        for time in (1, -1, 1e300, "9" * 400, None, [1], {}, True)
        for boot in ("b", 1, None, ["b"], {"b": 1})
        for text in ("Restarting process: exit code:1, exist status:0, uptime:999999999999 sec",
                     [1, 999, -1, "x"], 5, {"a": 1}, None)),
    "a journal with huge numbers": lambda: b'{"__REALTIME_TIMESTAMP": %s, "SYSLOG_IDENTIFIER": '
                                           b'"pynx_watchdog", "MESSAGE": "x"}\n' % (b"9" * 4000),
    "a journal that is deep": lambda: b'{"__REALTIME_TIMESTAMP": ' + b"[" * 500_000,
    "a system log of short lines": lambda: MESSAGE + b"ab\n" * (32 * MIB // 3),
    "a system log of messages": lambda: MESSAGE * 600_000,
    "standard error of short lines": lambda: b"Cannot set priority\n" + b"a\n" * (4 * MIB),
    "a log of requests": lambda: b"==Report==x\n" * 1_000_000,
    "a log with one line": lambda: b"==Report==" + b"x" * (128 * MIB),
    "snapshots of rows": lambda: b"top - 10:00:00 up\n  PID %CPU COMMAND\n" + b"1 9 x\n" * MIB,
    "an exported journal whose sizes lie": lambda: b"__CURSOR=x\nMESSAGE\n%s%s" % (
        struct.pack("<Q", 1 << 62), b"x" * 1000),
    "times that Python cannot calculate with": lambda: "".join(
        f"\n\n{year}-12-31 23:59:59.999 Watchdog: Starting app: x \n"
        f"-- Time: Fri Dec 31 23:59:59 {year} GMT\n" for year in ("9999", "0001", "2026")).encode(),
    "an up-time without end": lambda: b"".join(
        b"Nov 22 10:00:00 a pynx_watchdog: Restarting process: exit code:1, exist status:0, "
        b"uptime:%s days 1 hours 1 min 1 sec\n" % (b"9" * count) for count in (1, 12, 13, 5000)),
    "a cause of a boot that lies": lambda: b'Cause of this boot: x\n{"time": 5, "boot_id": [], '
                                           b'"concluded_from": {"a": 1}, "bootstatus": 1e999}\n',
}


@pytest.mark.parametrize("kind", LYING)
def test_a_text_that_lies_costs_itself_alone(place: Path, tmp_path: Path, kind: str) -> None:
    (place / "text").write_bytes(LYING[kind]())
    read_alone(place / "text", tmp_path)
    read(place)


def noise(seed: int) -> bytes:
    """Output of an application that prints everything, with pieces of the supervisor's lines."""
    dice = random.Random(seed)
    pieces = [b"==Report==", b"==Report file:", b"/etc/passwd", b"==", b"\n", b"\0", b"\x1b[2J",
              b"-- Time: ", b"Sun Nov 22 10:00:00 2026", b" GMT\n", b"2026-11-22 10:00:00.000 ",
              b"Watchdog: Starting app: ", b" \n", b"Process:", b" (77)", b" cpu load is : 25 for ",
              b"9" * 30, b" seconds \n", b" Time between two invocations:", b"ms\n", b" cpu load:",
              b"nan%\n", b"4.6e+18%\n", b" total thread load:", b"  thread name:", b" load:1%\n",
              b" == MEMORY USAGE == Free: 1 kB, Buffers+Cache: ", b"2 kB\n", b"\xff\xfe",
              b"Process p with args [", b"] doesn't appear for ", b"<script>alert(1)</script>",
              "\u202e\ud7ff\U0001f600".encode(), b"Restarting process: exit code:", b"{", b"\r",
              b"pynx_watchdog[1]: ", b"Nov 22 10:00:00 a ", b"top - 10:00:00", b"PID COMMAND\n"]
    return b"".join(dice.choice(pieces) if dice.random() < 0.8 else dice.randbytes(
        dice.randint(1, 300)) for _ in range(3000))


@pytest.mark.parametrize("seed", range(20))
def test_an_application_may_print_anything(place: Path, seed: int) -> None:
    for name in ("application.log", "application.log.0", "messages", "system", "account.json"):
        (place / name).write_bytes(noise(seed * 10 + len(name)))
    result = read(place)
    assert result.complaints == []
    if seed < 3:  # the page and the verdict of it can be made, too
        assert Result(place).status == 0
        page = place.parent / "page.html"
        assert Result("--html", page, place).status == 0
        assert b"<script>alert(1)" not in page.read_bytes()


# What it prints on a terminal has colours, progress with carriage returns, and a traceback.
SESSION = """
echo 'int main(void) { return x }' | gcc -x c -fsyntax-only -
apt-get --simulate install dpkg
ls -l --color /etc
/usr/bin/python3 -c 'import json; json.loads("{")'
"""


def test_what_real_programs_print_is_no_event(place: Path) -> None:
    printed = subprocess.run(["script", "-qec", SESSION, "/dev/null"], stdin=subprocess.DEVNULL,
                             env=os.environ | {"TERM": "xterm"}, capture_output=True, check=False,
                             timeout=120).stdout
    assert all(part in printed for part in (b"\x1b[", b"%\r", b"Traceback"))
    (place / "text").write_bytes(GOOD.encode() + printed + GOOD.encode())
    assert [(event["kind"], event["line"]) for event in Result("--jsonl", place).events()] \
        == [("start", 1), ("start", printed.count(b"\n") + 2)]
