# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Settings documents and arguments that are right, and what mistakes make of them."""

from __future__ import annotations

import json
from collections.abc import Callable
from random import Random
from typing import Any


class Members(list[list[Any]]):
    """An object as [name, value] lists, so that a name may come twice."""


class Raw(str):
    """JSON that stands in the document as it is."""


ODD_VALUES: list[Any] = [
    None, True, False, 0, 1, -1, "", "0", "1", "true", "false", "5", "5.0", "1M", "10", "-1k",
    "4096M", "x" * 15, "x" * 16, "ä" * 8, " name ", "/proc/self/environ", "relative", "a/b",
    "\x00", "\n", "\ud83d\ude00", [], [[]], [None], ["a", 1], Members(), Members([["a", 1]]),
    Raw("0.5"), Raw("1e99"), Raw("1e400"), Raw("-0"), Raw("2147483647"), Raw("2147483648"),
    Raw("-2147483649"), Raw("9223372036854775808"), Raw("5.0"), Raw("5e0"), Raw("01"),
    Raw("NaN"), Raw("'text'"), Raw("\"\\ud800\""), Raw("[" * 1100 + "]" * 1100),
]

ODD_NAMES = ["", "Name", "name ", "nmae", "_comment", "$schema", "type", "value", "list", "a/b"]

ODD_BYTES = [b",", b"}", b"]", b"\"", b"\\", b":", b" ", b"\n", b"\r\n", b"\x00", b"\xff",
             b"\xc3", b"\xef\xbb\xbf", b"//", b"/**/", b"1", b"-", b"e"]


def entry(random: Random) -> Members:
    """An entry of the watch list."""
    return Members([
        ["name", random.choice(["decoder", "player", "x"])],
        ["arguments", random.choice([[], ["--live"], ["-a", "b c"]])],
        ["maxLoad", random.choice([1, 25, 80, 100])],
        ["period", random.choice([1, 5, 600])],
        ["threadInfo", random.choice([True, False])],
        ["maxReports", random.choice([1, 10])],
        ["logFile", ""],
    ])


CONTENTS: dict[str, Callable[[Random], Any]] = {
    "WatchdogWatchProcessList.json":
        lambda random: [entry(random) for _ in range(random.randrange(4))],
    "WatchdogAutomaticReporting.json": lambda random: random.random() < 0.7,
    "WatchdogAutomaticReportingConf.json":
        lambda _: Members([["uploadPath", "/tmp/upload"], ["uploadFilePrefix", "report"]]),
    "WatchdogMemoryReportingConf.json": lambda random: random.random() < 0.5,
    "SystemManagerLogReportConfig.json":
        lambda _: Members([["files", ["/tmp/a.log", "/tmp/a.log.0", "/tmp/log/system"]]]),
    "SystemManagerLogFilesSizeConfig.json":
        lambda _: Members([["default", "1M"], ["product", "2M"], ["service", "512k"]]),
}


def written(value: Any) -> str:
    """The value as JSON."""
    if isinstance(value, Raw):
        return value
    if isinstance(value, Members):
        return "{%s}" % ", ".join(f"{json.dumps(name)}: {written(inner)}" for name, inner in value)
    if isinstance(value, list):
        return "[%s]" % ", ".join(map(written, value))
    return json.dumps(value)


def containers(value: Any) -> list[Any]:
    """The objects and arrays in a value, with itself."""
    if isinstance(value, Members):
        return [value] + [found for _, inner in value for found in containers(inner)]
    if isinstance(value, list):
        return [value] + [found for inner in value for found in containers(inner)]
    return []


def change(random: Random, top: Members) -> None:
    """Make one mistake in the values of a document."""
    found = random.choice([each for each in containers(top) if each])
    place = random.randrange(len(found))
    kind = random.randrange(5)
    if kind == 0:
        del found[place]
    elif kind == 1:
        found.insert(random.randrange(len(found) + 1), json.loads(json.dumps(found[place]))
                     if not isinstance(found, Members) else list(found[place]))
    elif kind == 2:
        random.shuffle(found)
    elif kind == 3 and isinstance(found, Members):
        found[place][0] = random.choice(ODD_NAMES)
    elif isinstance(found, Members):
        found[place][1] = random.choice(ODD_VALUES)
    else:
        found[place] = random.choice(ODD_VALUES)


def damage(random: Random, text: bytes) -> bytes:
    """Make one mistake in the text of a document."""
    place = random.randrange(len(text) + 1)
    kind = random.randrange(4)
    if kind == 0:
        return text[:place]
    if kind == 1:
        return text[:place] + text[place + 1:]
    if kind == 2:
        return text[:place] + text[place - 1:]
    return text[:place] + random.choice(ODD_BYTES) + text[place:]


def document(random: Random, name: str, mistakes: int) -> bytes:
    """A document with so many mistakes."""
    kind = random.choice(["config", "list", "bool", "payload"])
    top = Members([["value", Members([["type", kind], [kind, CONTENTS[name](random)]])]])
    in_text = sum(random.random() < 0.3 for _ in range(mistakes))
    for _ in range(mistakes - in_text):
        if top:
            change(random, top)
    text = written(top).encode("utf-8", "surrogatepass")
    for _ in range(in_text):
        text = damage(random, text)
    return text


WORDS = [["--logfileName", "/tmp/a.log"], ["--logfileSize", "1M"], ["--logfileSizeConf", "product"],
         ["--logTime"], ["--rotateOnly"], ["--singleRun"], ["--user", "nobody"]]

ODD_WORDS = ["", "stray", "--logtime", "--help", "-v", "--user=x", "--app", "--logTime",
             "--logfileName", "--logfileSize", "--logfileSizeConf", "--user", "0", "1000", "5x",
             "1G", "512K", "-1k", "4096M", "default", "produkt", "relative.log", "ä", "%1"]


def arguments(random: Random, mistakes: int) -> list[str]:
    """Arguments of the supervisor with so many mistakes."""
    groups = random.sample(WORDS, random.randrange(len(WORDS) + 1))
    words = [word for group in groups for word in group]
    words += ["--app", "/bin/sh", *random.sample(["-c", "exit 3", "x", "--logTime"], 2)]
    for _ in range(mistakes):
        place = random.randrange(len(words) + 1)
        kind = random.randrange(5)
        if kind == 0:
            words.insert(place, random.choice(ODD_WORDS))
        elif kind == 4:
            words = ["--logfileSize", random.choice(["", "0", "1000", "one"]), *words]
        elif kind == 1 and words:
            words[place - 1] = random.choice(ODD_WORDS)
        elif kind == 2 and words:
            del words[place - 1]
        else:
            random.shuffle(words)
    return words
