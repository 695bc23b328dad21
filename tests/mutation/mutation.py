#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Breaks the program one line at a time, and finds the breaks that no test notices.

For each chosen place, a copy of the tree is changed and built. Then the unit tests run that were
linked anew. If they pass, the system tests of this part of the program run. A break that passes
both has survived. survivors.txt lists the known survivors, each with its reason.

Exit status: 0 the known breaks survived and no others, 1 anything else, 2 wrong usage.
"""

from __future__ import annotations

import argparse
import concurrent.futures
import contextlib
import hashlib
import json
import os
import pathlib
import queue
import re
import shutil
import signal
import subprocess
import sys
import time
from collections import Counter
from collections.abc import Iterator
from typing import NamedTuple

PROJECT = pathlib.Path(__file__).parents[2]
SURVIVORS = pathlib.Path(__file__).with_name("survivors.txt")
SEED = "watchdog"
# The parts of the program, each with the system tests that show what it does.
PARTS = {
    "app": ["start_up", "lifecycle", "single_run", "command_line", "child_environment", "log",
            "load_watch", "health", "reports", "faults"],
    "common": ["lifecycle", "health", "faults"],
    "health": ["health", "faults"],
    "load": ["load_watch"],
    "logging": ["log", "reports", "faults"],
    "platform": ["reports", "load_watch", "faults"],
    "report": ["reports", "faults"],
}
MINUTES = 10  # a test that takes longer hangs, which counts as noticed
TREES = 3 * (os.cpu_count() or 1)  # the tests mostly wait
IN_A_ROW = 5  # breaks of one file in one tree, where repairing and breaking it takes one build
# The tests run in process and mount namespaces of their own, because a broken program may kill
# other processes or stop the machine.
SAFELY = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc",
          *([] if os.geteuid() == 0 else ["--map-root-user"]), "sh", "-c", """
for name in reboot killall halt poweroff shutdown; do
    ! place=$(command -v $name) || mount --bind /bin/false "$place" || exit
done
exec "$@" """, "sh"]

# What a break replaces, and the replacement. Comments and texts of a line are blanked out before.
REPLACED = [(re.compile(pattern), replacement) for pattern, replacement in (
    (r" < ", " <= "), (r" <= ", " < "), (r" > ", " >= "), (r" >= ", " > "),
    (r" == ", " != "), (r" != ", " == "), (r" && ", " || "), (r" \|\| ", " && "),
    (r"(?<=[(\s])!(?=[\w(])", ""), (r" \+ ", " - "), (r" - ", " + "), (r"\* (?=\d)", "/ "),
    (r"\btrue\b", "false"), (r"\bfalse\b", "true"))]
NUMBER = re.compile(r"(?<![\w.\"'])\d+(?![\d.x'])")
TEXT = re.compile(r'"([^"\\]|\\.)*"')
# A call or an assignment that fills its line. It can be dropped, or swapped with the next one.
STATEMENT = re.compile(r"\s+(emit )?[\w:(*][\w:.>()*&-]*(\(.*\)| [|&+-]?= .*);$")
NO_BREAK = re.compile(r"\s*#|.*\b(Q_ASSERT_X|static_assert|namespace|template|using|Q_LOGGING)\b")


class Place(NamedTuple):
    """A line, or two lines that are swapped, and the text after the break."""

    path: str
    line: int  # counted from 0
    old: str
    new: str
    number: int  # among equal breaks in one file, counted from 1

    def __str__(self) -> str:
        again = f" ({self.number})" if self.number > 1 else ""
        return f"{self.path}{again}: {shown(self.old)} -> {shown(self.new)}"


def shown(text: str) -> str:
    """A line without its indentation; two lines are joined."""
    return " | ".join(line.strip() for line in text.split("\n"))


def without_comments(source: str) -> list[str]:
    """The lines of a source with blanks in place of comments."""
    def blank(match: re.Match[str]) -> str:
        text = match[0]
        return re.sub(r"[^\n]", " ", text) if text.startswith("/") else text

    return re.sub(r'"(?:[^"\\\n]|\\.)*"|//[^\n]*|/\*.*?\*/', blank, source, flags=re.S).split("\n")


def breaks(line: str) -> Iterator[str]:
    """The broken variants of a line."""
    bare = TEXT.sub(lambda match: '"' + " " * (len(match[0]) - 2) + '"', line)
    for pattern, replacement in REPLACED:
        for match in pattern.finditer(bare):
            if "Q" not in line or match[0] not in (" + ", " - "):  # texts cannot be subtracted
                yield line[:match.start()] + replacement + line[match.end():]
    for match in NUMBER.finditer(bare):
        number = int(match[0])  # no test notices a timer that is late by 1 ms
        changed = number + 1 if number < 100 else number * 2
        yield line[:match.start()] + str(changed) + line[match.end():]
    for match in TEXT.finditer(line):
        if letter := re.search(r"(?<!\\)[A-Za-z]", match[0]):
            at = match.start() + letter.start()
            yield line[:at] + ("x" if line[at] != "x" else "y") + line[at + 1:]
    if STATEMENT.match(line):
        yield ";"


def places() -> list[Place]:
    """Every place that can be broken, in an order that does not depend on other changes."""
    found = []
    for path in sorted(path for part in PARTS for path in (PROJECT / part).glob("*.*")
                       if path.suffix in (".cpp", ".h")):
        name = str(path.relative_to(PROJECT))
        lines = without_comments(path.read_text())
        seen: Counter[tuple[str, str]] = Counter()
        for number, (line, after) in enumerate(zip(lines, [*lines[1:], ""])):
            line, after = line.rstrip(), after.rstrip()
            if NO_BREAK.match(line):
                continue
            pairs = [(line, new) for new in breaks(line)]
            indentation = len(line) - len(line.lstrip())
            if STATEMENT.match(line) and STATEMENT.match(after) and line != after \
                    and len(after) - len(after.lstrip()) == indentation:
                pairs.append((f"{line}\n{after}", f"{after}\n{line}"))
            for old, new in pairs:
                seen[shown(old), shown(new)] += 1
                found.append(Place(name, number, old, new, seen[shown(old), shown(new)]))
    return sorted(found, key=lambda place: hashlib.sha256(
        f"{SEED}{shown(place.old)}{shown(place.new)}{place.number}".encode()).digest())


class Broken(Exception):
    """The copy of the project cannot be tested."""


class Tree:
    """A copy of the project in which one thread breaks places, builds, tests and repairs them."""

    def __init__(self, directory: pathlib.Path) -> None:
        self._directory = directory
        self._build = directory / "build/debug"
        shutil.rmtree(directory, ignore_errors=True)
        files = subprocess.run(["git", "ls-files", "-z"], cwd=PROJECT, check=True,
                               capture_output=True, text=True).stdout.split("\0")[:-1]
        for file in filter(os.path.lexists, files):
            (directory / file).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(PROJECT / file, directory / file, follow_symlinks=False)
        self._run("cmake", "--preset", "debug", "-G", "Ninja", "-DWATCHDOG_WERROR=OFF")
        if not self._builds():
            raise Broken(f"the copy in {directory} does not build")

    def verdict(self, place: Place) -> str:
        """Break the place and say which test notices it; "survived" means none."""
        path = self._directory / place.path
        source = path.read_text()
        lines = source.split("\n")
        lines[place.line:place.line + place.old.count("\n") + 1] = place.new.split("\n")
        path.write_text("\n".join(lines))
        try:
            began = time.time()
            if not self._builds():
                return "does not build"
            return self.noticed(PARTS[place.path.split("/")[0]], began)
        finally:
            path.write_text(source)

    def noticed(self, system_tests: list[str], since: float) -> str:
        """Run the unit tests linked after `since` and the system tests; say which one notices."""
        listed = json.loads(self._run("ctest", "--preset", "debug", "--show-only=json-v1").stdout)
        chosen = [test["name"] for test in listed["tests"] if "command" in test
                  and os.path.getmtime(test["command"][0]) >= since]
        units = "^(" + "|".join(chosen) + ")$"
        if not self._passes("ctest", "--preset", "debug", "--tests-regex", units,
                            "--stop-on-failure", "--parallel", "3"):
            return f"unit: {self._first_failure()}"
        system = [f"tests/system/test_{name}.py" for name in system_tests]
        if not self._passes("/usr/bin/python3", "-B", "-m", "pytest", "-p", "no:cacheprovider",
                            "-q", "-x", "-n", "16", "--dist", "loadgroup",
                            "--build-dir", "build/debug", *system):
            return f"system: {self._first_failure()}"
        return "survived"

    def _first_failure(self) -> str:
        """The test that has failed, as ctest or pytest has logged it."""
        found = re.search(r"^FAILED (\S+)|^\t *\d+ - (\S+)",
                          (self._directory / "build/log").read_text(errors="replace"), re.M)
        return found[1] or found[2] if found else "(took too long)"

    def _builds(self) -> bool:
        return self._run("cmake", "--build", "--preset", "debug", "--parallel", "1",
                         check=False).returncode == 0

    def _passes(self, *command: str) -> bool:
        with (self._directory / "build/log").open("w") as log, subprocess.Popen(
                [*SAFELY, *command], cwd=self._directory, stdout=log, stderr=subprocess.STDOUT,
                stdin=subprocess.DEVNULL, start_new_session=True) as process:
            try:
                return process.wait(MINUTES * 60) == 0
            except subprocess.TimeoutExpired:
                return False
            finally:
                with contextlib.suppress(ProcessLookupError):
                    os.killpg(process.pid, signal.SIGKILL)

    def _run(self, *command: str, check: bool = True) -> subprocess.CompletedProcess[str]:
        done = subprocess.run(command, cwd=self._directory, capture_output=True, text=True)
        if check and done.returncode:
            raise Broken(f"{' '.join(command)}: {done.stderr}")
        return done


def known_survivors() -> set[str]:
    """The survivors that survivors.txt explains."""
    return {line for line in SURVIVORS.read_text().splitlines()
            if line and not line.startswith(("#", "    "))}


def trial(trees: queue.Queue[Tree], row: list[Place]) -> list[tuple[Place, str]]:
    """Try some breaks, one after the other, in a tree that is free."""
    tree = trees.get()
    try:
        verdicts = []
        for place in row:
            verdicts.append((place, tree.verdict(place)))
            print(f"{verdicts[-1][1]}\t{place}", flush=True)
        return verdicts
    finally:
        trees.put(tree)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--places", type=int, default=200, metavar="N",
                        help="how many places are broken (default: %(default)s)")
    parser.add_argument("--only", metavar="TEXT", default="",
                        help="only the places whose description has this text")
    parser.add_argument("--list", action="store_true", help="name the places, and break none")
    options = parser.parse_args()
    chosen = [place for place in places() if options.only in str(place)][:options.places]
    if not chosen:
        parser.error("there is no such place")
    if options.list:
        print(*chosen, sep="\n")
        return 0
    by_file: dict[str, list[Place]] = {}
    for place in chosen:
        by_file.setdefault(place.path, []).append(place)
    rows = [of_one[at:at + IN_A_ROW] for of_one in by_file.values()
            for at in range(0, len(of_one), IN_A_ROW)]
    trees: queue.Queue[Tree] = queue.Queue()
    with concurrent.futures.ThreadPoolExecutor(TREES) as pool:
        try:
            for tree in pool.map(Tree, (PROJECT / f"build/mutation/{number}"
                                        for number in range(min(TREES, len(rows))))):
                trees.put(tree)
            every = sorted({name for names in PARTS.values() for name in names})
            if (who := trees.queue[0].noticed(every, 0)) != "survived":
                raise Broken(f"without any break, this fails: {who}; see "
                             "build/mutation/0/build/log")
        except Broken as error:
            print(f"mutation: {error}", file=sys.stderr)
            return 1
        verdicts = [verdict for row in pool.map(lambda row: trial(trees, row), rows)
                    for verdict in row]
    survived = {str(place) for place, verdict in verdicts if verdict == "survived"}
    listed = known_survivors()
    gone = listed - {str(place) for place in places()}
    known = listed & {str(place) for place, _ in verdicts}
    print(*(f"{count} {verdict}" for verdict, count in
            Counter(verdict.split(":")[0] for _, verdict in verdicts).items()), sep=", ")
    for name in sorted(survived - known):
        print(f"mutation: no test notices {name}", file=sys.stderr)
    for name in sorted(known - survived):
        print(f"mutation: listed as a survivor, but noticed: {name}", file=sys.stderr)
    for name in sorted(gone):
        print(f"mutation: listed as a survivor, but no place of the program: {name}",
              file=sys.stderr)
    return 0 if survived == known and not gone else 1


if __name__ == "__main__":
    sys.exit(main())
