# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What has happened to a board, and how that compares with what the reader tells of it."""

from __future__ import annotations

import json
import re
import subprocess
import tarfile
from collections import Counter
from collections.abc import Callable, Iterable, Iterator, Sequence
from dataclasses import dataclass, field
from datetime import datetime, timezone
from pathlib import Path
from typing import Any

READER = Path(__file__).resolve().parents[2] / "tools/evidence/pynx-watchdog-evidence"
TOLD_TWICE = ("clock", "cause")
"""Kinds of which one fact may be told by several events, and several facts by one."""


@dataclass
class Fact:
    """Something that has happened, and whether it is left in the evidence."""

    kind: str
    time: datetime | None  # by the board's clock
    fields: dict[str, Any] = field(default_factory=dict)
    left: bool = True
    slack: float = 3.0  # seconds
    also: datetime | None = None  # another time that is right, where the clock was just set


def contents(evidence: Path) -> Iterator[dict[str, bytes]]:
    """The files in the evidence by their names: those that lie there, and those in archives."""
    yield {file.name: file.read_bytes() for file in evidence.iterdir()}
    for archive in evidence.glob("*report-*"):
        members: dict[str, bytes] = {}
        try:
            with tarfile.open(archive, "r:gz") as tar:
                for member in tar:
                    content = tar.extractfile(member)
                    members[Path(member.name).name] = content.read() if content else b""
        except (OSError, EOFError, tarfile.TarError):
            pass
        yield members


def archives(evidence: Path) -> Iterator[Fact]:
    """The archives in the evidence, by the names of their files and by gzip and tar."""
    for file in evidence.glob("*report-*"):
        named = re.fullmatch(r"(?:tmp_)?report-(.*)-(\d{13})(?:\.tar\.gz)?", file.name)
        assert named, file.name
        whole = subprocess.run(["gzip", "-tq", file], check=False, stderr=subprocess.DEVNULL,
                               stdin=file.open("rb")).returncode == 0 \
            if file.suffix == ".gz" else _is_whole(file)
        yield Fact("archive", datetime.fromtimestamp(int(named[2]) / 1000, timezone.utc),
                   {"name": named[1], "complete": whole}, slack=0.01)


def _is_whole(file: Path) -> bool:
    with file.open("rb") as content:
        return subprocess.run(["tar", "-tz"], stdin=content, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=False).returncode == 0


@dataclass
class Compared:
    """How much of what happened was found, and what was found that has not happened."""

    happened: Counter[str] = field(default_factory=Counter)
    left: Counter[str] = field(default_factory=Counter)
    told: Counter[str] = field(default_factory=Counter)
    missed: list[str] = field(default_factory=list)
    wrong: list[str] = field(default_factory=list)

    def add(self, other: Compared) -> None:
        """Take in another comparison."""
        for mine, others in ((self.happened, other.happened), (self.left, other.left),
                             (self.told, other.told)):
            mine.update(others)
        self.missed += other.missed
        self.wrong += other.wrong

    def count(self, found: Sequence[str], kind: str) -> int:
        """How many of the missed or wrong ones are of this kind."""
        return sum(text.split()[1] == kind for text in found)

    def rates(self, kind: str) -> tuple[float, float]:
        """Recall and precision."""
        right = self.left[kind] - self.count(self.missed, kind)
        true = self.told[kind] - self.count(self.wrong, kind)
        return (right / self.left[kind] if self.left[kind] else 1.0,
                true / self.told[kind] if self.told[kind] else 1.0)

    def table(self, kinds: Iterable[str]) -> str:
        """The table for the README."""
        lines = ["| kind | happened | left in the evidence | told | recall | precision |",
                 "|---|---|---|---|---|---|"]
        for kind in kinds:
            recall, precision = self.rates(kind)
            lines.append(f"| `{kind}` | {self.happened[kind]} | {self.left[kind]} | "
                         f"{self.told[kind]} | {recall:.4f} | {precision:.4f} |")
        return "\n".join(lines)


def told_of(evidence: Path) -> list[dict[str, Any]]:
    """The events that the reader finds in the evidence, with nothing configured."""
    said = subprocess.run([READER, "--jsonl", evidence], capture_output=True, text=True,
                          check=True, timeout=300)
    return [json.loads(line) for line in said.stdout.splitlines()]


def compare(name: str, happened: Sequence[Fact], told: Sequence[dict[str, Any]],
            fits: Callable[[Fact, dict[str, Any]], bool]) -> Compared:
    """Find an event for each fact; `name`, of one word, is put before what is missed or wrong."""
    result = Compared(Counter(fact.kind for fact in happened),
                      Counter(fact.kind for fact in happened if fact.left),
                      Counter(event["kind"] for event in told))
    rest = list(told)
    for fact in sorted(happened, key=lambda fact: not fact.left):
        found = next((event for event in rest if fits(fact, event)), None)
        if found and fact.kind not in TOLD_TWICE:
            rest.remove(found)
        elif not found and fact.left:
            result.missed.append(f"{name} {fact.kind} {fact.time} {fact.fields}")
    for event in rest:
        if event["kind"] not in TOLD_TWICE or not any(fits(fact, event) for fact in happened):
            result.wrong.append(f"{name} {event['kind']} {json.dumps(event)[:300]}")
    return result
