# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Finds the supervisor's messages in a text of the system log, a journal or its standard error."""

from __future__ import annotations

import json
import re
from collections import Counter
from collections.abc import Iterable, Iterator
from datetime import datetime, timedelta, timezone
from typing import Any, NamedTuple

from . import texts
from .events import Event, possible
from .jumps import LEAST, Readings, jump

TAG = "pynx_watchdog"
MOST_IN_SYSTEM_LOG = 300_000  # messages, which are more than the reader tells
LONGEST_ENTRY = 1 << 20  # characters of a line of JSON
LONGEST_UPTIME = 10 ** 10  # seconds; a text that tells more is wrong


class Message(NamedTuple):
    """A message of the supervisor's, or of the board tools'."""

    time: datetime | None
    line: int
    text: str
    boot: str | None = None  # the id of its boot
    uptime: float | None = None  # seconds, of a clock that cannot be set


def message_events(messages: Iterable[Message], source: str) -> Iterator[Event]:
    """The events that the messages tell of."""
    readings = Readings(source)
    earlier: Message | None = None
    counts: Counter[object] = Counter()
    for message in messages:
        if found := _jump(source, earlier, message):
            yield found
            readings.set(message.time)
        else:
            yield from readings.note(message.line, message.time)
        earlier = message
        kind, fields = _meaning(message.text)
        if message.boot:
            fields["boot_id"] = message.boot
        # Another form of the same messages may not have parts of seconds.
        known = message.time and (message.text, message.time.replace(microsecond=0))
        counts[known] += 1
        yield Event(kind, message.time, source, message.line, fields,
                    known and (*known, counts[known]))


def _jump(source: str, earlier: Message | None, later: Message) -> Event | None:
    """Where the clock was set between two messages of a boot, by the clock that cannot be set."""
    if earlier is None or earlier.boot != later.boot or earlier.time is None or later.time is None \
            or earlier.uptime is None or later.uptime is None:
        return None
    size = later.time - earlier.time - timedelta(seconds=later.uptime - earlier.uptime)
    return jump(source, later.line, earlier.time, later.time, size) if abs(size) > LEAST else None


def _meaning(text: str) -> tuple[str, dict[str, Any]]:
    if found := texts.END.search(text):
        part = {name: int(value or 0) for name, value in found.groupdict().items()}
        uptime = ((part["days"] * 24 + part["hours"]) * 60 + part["minutes"]) * 60 + part["seconds"]
        return "end", {"exit_code": part["code"], "crash": part["crash"] == 1, "uptime": uptime}
    if found := texts.START_FAILED.search(text):
        return "start_failed", {"code": int(found["code"])}
    if texts.THIRD_END in text:
        return "reboot", {"reason": "third end"}
    if texts.READ_ONLY_ROOT in text:
        return "reboot", {"reason": "read-only root"}
    if text.startswith(texts.BOOT_CAUSE):
        return "message", {"text": text, "cause": text.removeprefix(texts.BOOT_CAUSE)}
    return "message", {"text": text}


_ISO = r"(?P<iso>\d{4}-\d\d-\d\d[T ]\d\d:\d\d:\d\d(?:[.,]\d+)?(?:[-+]\d\d:?\d\d|Z)?)"
_CLASSIC = r"(?P<classic>[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d(?:\.\d+)?)"
_LEVEL = r"(?:[a-z0-9]+\.[a-z]+ )?"  # busybox's syslogd writes it, such as "user.notice"
_PREFIX = re.compile(rf"(?:<\d+>)?(?:{_ISO}|{_CLASSIC}) (?:[^ ]+ )?{_LEVEL}{TAG}(?:\[\d+\])?: "
                     r"(?P<text>.*)")


def system_log(lines: Iterable[str], year: int) -> Iterator[Message]:
    """The messages in a text of the system log.

    The classic form of it has no year in its times. The last line is taken to be of `year` at most,
    and each earlier one of the same year as the one after it, or of the year before.
    """
    found = []
    for number, line in enumerate(lines, 1):
        if match := _PREFIX.match(line):
            found.append((number, match["classic"], match["iso"], match["text"]))
        if len(found) == MOST_IN_SYSTEM_LOG:
            break
    times: list[datetime | None] = []
    later: datetime | None = None
    for _, classic, iso, _ in reversed(found):
        time = _classic(classic, year, later) if classic else _iso(iso)
        later = (time or later) if classic else later
        times.append(time)
    for (number, _, _, text), time in zip(found, reversed(times)):
        yield Message(time, number, text)


def _iso(text: str) -> datetime | None:
    plain = text.replace(",", ".").replace("Z", "+00:00")
    try:
        return possible(datetime.fromisoformat(re.sub(r"([-+]\d\d)(\d\d)$", r"\1:\2", plain)))
    except ValueError:
        return None


def _classic(text: str, year: int, later: datetime | None) -> datetime | None:
    """The latest time that fits, in one of the years that may have the 29th of February."""
    for candidate in range(later.year if later else year, (later.year if later else year) - 9, -1):
        try:
            time = possible(datetime.strptime(f"{candidate} {text.split('.')[0]}",
                                              "%Y %b %d %H:%M:%S"))
        except ValueError:
            continue
        if time and (later is None or time - later <= timedelta(days=31)):
            return time
    return None


def standard_error(lines: Iterable[str]) -> Iterator[Message]:
    """The messages in what the supervisor has printed on standard error: it has no times."""
    for number, line in enumerate(lines, 1):
        if line := line.rstrip("\n"):
            yield Message(None, number, line)


def journal_json(lines: Iterable[str]) -> Iterator[Message]:
    """The messages in the output of `journalctl -o json`."""
    for number, line in enumerate(lines, 1):
        try:
            entry = json.loads(line) if len(line) <= LONGEST_ENTRY else None
        except (ValueError, RecursionError):
            continue
        if isinstance(entry, dict):
            yield from _journal_entry(entry, number)


def journal_export(data: bytes) -> Iterator[Message]:
    """The messages in the output of `journalctl -o export`."""
    entry: dict[str, Any] = {}
    number, first, at = 1, 1, 0
    while at < len(data):
        end = data.find(b"\n", at)
        end = len(data) if end < 0 else end
        line = data[at:end]
        at = end + 1
        if not line:
            yield from _journal_entry(entry, first)
            entry, first = {}, number + 1
        elif b"=" in line:
            name, value = line.split(b"=", 1)
            entry[name.decode(errors="replace")] = value.decode(errors="replace")
        else:  # a binary value: its size in 8 bytes, then it
            size = int.from_bytes(data[at:at + 8], "little")
            value = data[at + 8:at + 8 + size]
            entry[line.decode(errors="replace")] = value.decode(errors="replace")
            number += data.count(b"\n", at, at + 9 + size)
            at += 9 + size
        number += 1
    yield from _journal_entry(entry, first)


def _journal_entry(entry: dict[str, Any], number: int) -> Iterator[Message]:
    text = entry.get("MESSAGE")
    if isinstance(text, list):  # bytes that are no UTF-8
        text = bytes(part for part in text if isinstance(part, int) and 0 <= part < 256) \
            .decode(errors="replace")
    if entry.get("SYSLOG_IDENTIFIER") != TAG or not isinstance(text, str):
        return
    try:
        time = possible(datetime.fromtimestamp(int(entry["__REALTIME_TIMESTAMP"]) / 1e6,
                                               timezone.utc))
    except (KeyError, TypeError, ValueError, OverflowError, OSError):
        time = None
    boot = entry.get("_BOOT_ID")
    yield Message(time, number, text, boot if isinstance(boot, str) else None,
                  _seconds(entry.get("__MONOTONIC_TIMESTAMP")))


def _seconds(microseconds: object) -> float | None:
    if not isinstance(microseconds, (str, int)):
        return None
    try:
        found = int(microseconds)
    except ValueError:
        return None
    return found / 1e6 if 0 <= found < LONGEST_UPTIME * 10 ** 6 else None


def account(lines: Iterable[str]) -> Iterator[Message]:
    """The messages in the account of a simulated device."""
    for number, line in enumerate(lines, 1):
        try:
            entry = json.loads(line[:LONGEST_ENTRY])
            if entry["source"] in ("system log", "supervisor") and isinstance(entry["text"], str):
                yield Message(possible(datetime.fromtimestamp(entry["wall"], timezone.utc)),
                              number, entry["text"], str(entry.get("boot")))
        except (ValueError, RecursionError, KeyError, TypeError, OverflowError, OSError):
            continue


_OTHER_PREFIX = re.compile(rf"(?:<\d+>)?(?:{_ISO}|{_CLASSIC}) [^ ]+ [^ \[\]:]+(?:\[\d+\])?: ")
_OTHERS = 20  # lines of others that tell that a file is a system log


def is_system_log(text: str) -> bool:
    """Whether a file that begins with `text` is a text of the system log."""
    lines = text.split("\n")
    return any(_PREFIX.match(line) for line in lines) \
        or len(lines) > _OTHERS and all(_OTHER_PREFIX.match(line) for line in lines[:_OTHERS])


def is_standard_error(text: str) -> bool:
    """Whether a file that begins with `text` is what the supervisor printed on standard error."""
    return any(line.startswith(texts.STANDARD_ERROR) for line in text.split("\n"))
