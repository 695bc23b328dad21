#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Compares what pynx-watchdog-evidence tells with what happened, in random scenarios.

Each scenario is a simulated device that goes through ends, crashes, alarms, requests, rotations,
full disks, clocks that are set, reboots, resets and hanging tools. What happened is known from what
the application was told to do and has noted, from the device's account, and from what stands for
top. Of that, only what is left in the evidence can be found: a rotation removes the oldest output.

    tests/evidence/truth.py --scenarios 300 --seed 1 --parallel 40
"""

from __future__ import annotations

import argparse
import itertools
import json
import math
import multiprocessing
import os
import random
import re
import shlex
import shutil
import sys
import tempfile
import time
from collections import Counter
from collections.abc import Iterator, Sequence
from dataclasses import dataclass, field
from datetime import datetime, timedelta, timezone
from pathlib import Path
from typing import Any
from zoneinfo import ZoneInfo

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT))

from facts import Compared, Fact, archives, compare, contents, told_of  # noqa: E402
from simulator.common.account import Event  # noqa: E402
from simulator.common.configuration import Bind  # noqa: E402
from simulator.device import Device  # noqa: E402

FAKETIME = next(Path("/usr/lib").glob("*/faketime/libfaketimeMT.so.1"), None)
LOG = "/tmp/log/application.log"
UPLOAD = "/tmp/upload"
ZONES = ("UTC", "Europe/Berlin", "Asia/Kolkata", "America/St_Johns")
LONG, LONGEST = 75, 200  # seconds: an absence is told after 30, the memory after 180
LEAST_JUMP = 6  # seconds
KINDS = ("start", "end", "start_failed", "alarm", "not_found", "memory", "request", "archive",
         "snapshot", "reboot", "message", "clock")

# Notes each start, with the board's time and the time since the boot of this machine.
APPLICATION = """#!/bin/sh
number=$(($(cat /tmp/told/runs 2>/dev/null || echo 0) + 1))
echo $number >/tmp/told/runs
read -r up _ </proc/uptime
echo "$number $(date +%s.%N) $up" >>/tmp/told/starts
here=${0%/*}
printf '@run-%s@\\n' "$number"
[ ! -e "$here/output-$number" ] || cat "$here/output-$number"
[ ! -e "$here/plan-$number" ] || . "$here/plan-$number"
exec "$here/sample-application" name worker wait
"""
# Notes each call, and hangs where it is told to.
TOP = """#!/bin/sh
date +%s.%N >>/tmp/told/tops
[ ! -e /tmp/told/hang ] || sleep 3
exec /tmp/top "$@"
"""


@dataclass
class Run:
    """What the application is told to do in one run."""

    words: list[str] = field(default_factory=list)
    output: bytes = b""
    requests: list[tuple[str, str | None]] = field(default_factory=list)
    end: tuple[int, bool] | None = None  # exit code or signal, and whether it is a crash


@dataclass
class Scenario:
    """What a device is like, and what happens to it."""

    seed: int
    seconds: int = 30
    zone: str = "UTC"
    log_size: str = "1M"
    log_time: bool = True
    absent: int = 0  # processes that are watched and never there
    watched: dict[str, Any] | None = None
    memory: bool = False
    small_disk: bool = False
    messages: str = "journal"  # how the messages are handed over
    tools: dict[str, str] = field(default_factory=dict)
    runs: list[Run] = field(default_factory=list)
    actions: list[tuple[float, str, str]] = field(default_factory=list)  # when, what, how
    cut_archive: bool = False


def make(seed: int, seconds: int | None = None) -> Scenario:
    """The scenario of a seed."""
    dice = random.Random(seed)
    scenario = Scenario(seed, seconds or dice.choice((25, 35, 35, 45, LONG, LONG, LONGEST)))
    scenario.zone = dice.choice(ZONES)
    scenario.log_time = dice.random() < 0.8
    scenario.log_size = dice.choice(("1M", "1M", "64k", "16k"))
    scenario.memory = scenario.seconds >= LONGEST
    if scenario.seconds >= LONG:
        scenario.absent, scenario.log_size = dice.randint(0, 2), "1M"
    if dice.random() < 0.8:
        scenario.watched = {"name": "worker", "period": dice.randint(1, 4), "maxLoad": 0,
                            "maxReports": dice.choice((3, 100)), "threadInfo": dice.random() < 0.5}
    scenario.small_disk = dice.random() < 0.1
    if scenario.small_disk:
        scenario.log_size, scenario.absent = "64k", 0
    scenario.messages = dice.choice(("journal", "classic", "json", "export"))
    scenario.tools = {
        "reboot": dice.choice(("normal", "normal", "return", "fail", "hang")),
        "sfuflags": dice.choice(("normal", "normal", "fail=3", "hang")),
        "killall": dice.choice(("normal",) * 5 + ("fail",))}
    # The memory is told only where nothing reboots the board before.
    for number in range(1, dice.randint(1, 3 if scenario.memory else 6)):
        scenario.runs.append(_run(dice, seed, number, scenario))
    latest = scenario.seconds - 8
    if FAKETIME and dice.random() < 0.5:
        for _ in range(dice.randint(1, 2)):
            size = dice.choice((-1, 1)) * dice.choice((20, 600, 3000, 7200))
            scenario.actions.append((dice.uniform(4, latest), "clock", str(size)))
    for what, how, share in (("reset", "", 0.15), ("hang-top", "", 0.1), ("read-only", "", 0.1),
                             ("killall", "hang", 0.1)):
        if dice.random() < share and not scenario.memory:
            scenario.actions.append((dice.uniform(3, latest), what, how))
    scenario.actions.sort()
    scenario.cut_archive = dice.random() < 0.2
    return scenario


def _run(dice: random.Random, seed: int, number: int, scenario: Scenario) -> Run:
    run = Run(["name", "worker"])
    if dice.random() < 0.5:
        letters = bytes(range(256)) if dice.random() < 0.3 else b"abc def ghi.\n\n\t"
        run.output = bytes(dice.choices(letters, k=dice.randint(0, 3000)))
    if dice.random() < 0.5:
        run.words += ["burn", str(dice.randint(1, 3)), "1"]
    for step in range(dice.randint(0, 4)):
        what = dice.choice(("request", "request", "line", "part", "flood", "sleep", "error"))
        if what == "request":
            name, file = f"r{seed}x{number}x{step}", dice.choice((None, "/tmp/told/starts"))
            marker = f"==Report file:{file}=={name}" if file else f"==Report=={name}"
            # The request ends its line, where the time is logged.
            # What follows it at once, without a line's end, would become a part of its name.
            end = "" if scenario.log_time and dice.random() < 0.3 else "\\n"
            run.words += ["print", dice.choice(("", "some text ")) + marker + end]
            run.words += [] if end else ["sleep", "1.2"]
            run.requests.append((name, file))
        elif what in ("line", "error"):
            run.words += ["error" if what == "error" else "print", f"a line of step {step}\\n"]
        elif what == "part":
            run.words += ["print", "a line that is ", "sleep", "0.3", "print", "slow\\n"]
        elif what == "flood":
            run.words += ["flood", str(dice.choice((500, 5000, 30000))),
                          str(dice.choice((70, 4000)))]
        run.words += ["sleep", f"{dice.choice((0.2, 1, 2.5)) + dice.random():.2f}"]
    if dice.random() < 0.3:
        run.words += ["sleep", "11"]  # so long that the boot flags are cleared
    if dice.random() < 0.5:
        run.end = dice.choice((11, 6, 9)), True
        run.words += ["signal", str(run.end[0])]
    else:
        run.end = dice.choice((0, 1, 77, 255)), False
        run.words += ["exit", str(run.end[0])]
    return run


# -- the device -----------------------------------------------------------------------------------


@dataclass
class Played:
    """What a device has gone through."""

    scenario: Scenario
    directory: Path  # of the device
    events: list[Event]
    jumps: list[tuple[float, int]]  # monotonic time, seconds
    evidence: Path
    application: str

    def board_time(self, monotonic: float, wall: float) -> datetime:
        """What the board's clock told then."""
        shift = sum(size for at, size in self.jumps if at <= monotonic)
        return datetime.fromtimestamp(wall + shift, timezone.utc)

    def before_jump(self, monotonic: float, time: datetime) -> datetime | None:
        """What else the clock may have told, where it was set at about this time."""
        return next((time - timedelta(seconds=size if at <= monotonic else -size)
                     for at, size in self.jumps if abs(at - monotonic) < 3), None)


def play(scenario: Scenario, build: Path, place: Path) -> Played:
    """Let it happen, and collect what is left behind in a directory."""
    place.mkdir(parents=True)
    application = place / "application" / "application"
    application.parent.mkdir()
    shutil.copy(build / "simulator/application/sample-application", application.parent)
    for path, text in (application, APPLICATION), (place / "top", TOP):
        path.write_text(text)
        path.chmod(0o755)
    for number, run in enumerate(scenario.runs, 1):
        (application.parent / f"plan-{number}").write_text(
            f"exec $here/sample-application {shlex.join(run.words)}\n")
        (application.parent / f"output-{number}").write_bytes(run.output)
    device = Device(
        build / "watchdog", place / "device",
        ["--logfileName", LOG, "--logfileSize", scenario.log_size,
         *(["--logTime"] if scenario.log_time else []), "--app", str(application)],
        settings=_settings(scenario), tools=scenario.tools, bad_boots=20, boots=6,
        watchdog_library=build / "simulator/libwatchdogdevice.so",
        directories=("/tmp/log", "/tmp/told", UPLOAD),
        spaces={"/tmp/log": "96k"} if scenario.small_disk else {},
        binds=[Bind(str(place / "top"), "/usr/bin/top"), Bind("/usr/bin/top", "/tmp/top")],
        environment=_environment(scenario))
    (place / "device/tmp").mkdir(parents=True)
    (place / "device/tmp/clock").write_text("+0\n")
    jumps: list[tuple[float, int]] = []
    begin = time.monotonic()
    with device:
        for at, what, how in [*scenario.actions, (scenario.seconds, "stop", "")]:
            time.sleep(max(begin + at - time.monotonic(), 0))
            if _has_ended(device):
                break
            _act(device, what, how, jumps)
        evidence = place / "evidence"
        evidence.mkdir()
        if scenario.small_disk and not _has_ended(device):
            _collect_from_inside(device, evidence)
    played = Played(scenario, place / "device", device.events(), jumps, evidence, str(application))
    _collect(played)
    _write_messages(played)
    return played


def _settings(scenario: Scenario) -> dict[str, Any]:
    watched: list[dict[str, Any]] = [scenario.watched] if scenario.watched else []
    watched += [{"name": f"absent-{number}", "arguments": ["-x"], "period": 1, "maxLoad": 90,
                 "maxReports": 10} for number in range(scenario.absent)]
    documents = {
        "WatchdogWatchProcessList": watched, "WatchdogMemoryReportingConf": scenario.memory,
        "WatchdogAutomaticReporting": True, "SystemManagerLogReportConfig":
            {"files": [LOG, LOG + ".0", "/tmp/log/system"]},
        "WatchdogAutomaticReportingConf": {"uploadPath": UPLOAD, "uploadFilePrefix": "report"}}
    return {f"{name}.json": {"value": {"type": "payload", "payload": payload}}
            for name, payload in documents.items()}


def _environment(scenario: Scenario) -> dict[str, str]:
    environment = {"TZ": scenario.zone}
    if any(what == "clock" for _, what, _ in scenario.actions):
        environment |= {"LD_PRELOAD": str(FAKETIME), "FAKETIME_TIMESTAMP_FILE": "/tmp/clock",
                        "FAKETIME_NO_CACHE": "1", "FAKETIME_DONT_FAKE_MONOTONIC": "1",
                        "DONT_FAKE_MONOTONIC": "1"}
    return environment


def _has_ended(device: Device) -> bool:
    return any(event.get("end") for event in device.events())


def _act(device: Device, what: str, how: str, jumps: list[tuple[float, int]]) -> None:
    told = device.host_path("/tmp/told")
    if what == "clock":
        jumps.append((time.monotonic(), int(how)))
        new = device.host_path("/tmp/clock.new")
        new.write_text(f"{sum(size for _, size in jumps):+}\n")
        new.rename(device.host_path("/tmp/clock"))
    elif what == "reset":
        device.reset()
    elif what == "hang-top":
        (told / "hang").touch()
    elif what == "killall":
        device.set_tool("killall", how)
    elif what == "read-only":
        device.set_read_only_root(True)
        # Otherwise each of the next boots ends in the same way.
        before = device.boots
        limit = time.monotonic() + 30
        while device.boots == before and time.monotonic() < limit and not _has_ended(device):
            device.wait_for_news(0.5)
        device.set_read_only_root(False)


# -- the evidence ---------------------------------------------------------------------------------


def _collect_from_inside(device: Device, evidence: Path) -> None:
    """A small file system can be read only while the board is on."""
    for name in (LOG, LOG + ".0", "/tmp/log/system", "/tmp/log/system.load"):
        try:
            (evidence / Path(name).name).write_bytes(device.read(name))
        except OSError:
            pass


def _collect(played: Played) -> None:
    """What a person would copy from the board, with the times of the files by the board's clock."""
    boards = played.directory / "tmp"
    for file in [*(boards / "log").glob("*"), *(boards / "upload").glob("*")]:
        if not file.is_file():
            continue
        copy = played.evidence / file.name
        shutil.copy(file, copy)
        changed = file.stat().st_mtime
        monotonic = time.monotonic() - (time.time() - changed)
        shown = played.board_time(monotonic, changed).timestamp()
        os.utime(copy, (shown, shown))
    archives = sorted(played.evidence.glob("report-*.tar.gz"))
    if played.scenario.cut_archive and archives:
        with archives[0].open("r+b") as archive:
            archive.truncate(archives[0].stat().st_size * 2 // 3)


def _write_messages(played: Played) -> None:
    """The messages in one of the forms in which boards have them."""
    messages = [event for event in played.events if event.source == "system log"
                or event.source == "supervisor" and event["stream"] == "stderr"]
    form, zone = played.scenario.messages, ZoneInfo(played.scenario.zone)
    standard_error, lines = [], []
    for message in messages:
        at = played.board_time(message.monotonic, message.wall)
        if form == "journal":
            stamp = at.astimezone(zone).isoformat(timespec="microseconds")
            lines.append(f"{stamp} board pynx_watchdog[9]: {message.text}\n")
        elif form == "classic" and message.source == "supervisor":
            standard_error.append(message.text + "\n")
        elif form == "classic":
            lines.append(f"{at.astimezone(zone):%b %e %H:%M:%S} board pynx_watchdog[9]: "
                         f"{message.text}\n")
        else:
            entry = {"__CURSOR": "s=1", "__REALTIME_TIMESTAMP": str(int(at.timestamp() * 1e6)),
                     "__MONOTONIC_TIMESTAMP": str(int(message.monotonic * 1e6)),
                     "_BOOT_ID": f"{message['boot']:032x}", "SYSLOG_IDENTIFIER": "pynx_watchdog",
                     "MESSAGE": message.text}
            lines.append(json.dumps(entry) + "\n" if form == "json" else "".join(
                f"{name}={value}\n" for name, value in entry.items()) + "\n")
    for name, texts in ("messages", lines), ("standard-error", standard_error):
        if texts:
            (played.evidence / name).write_text("".join(texts), encoding="utf-8")


# -- the truth ------------------------------------------------------------------------------------


@dataclass
class Start:
    """A start of the application, as it has noted it."""

    number: int
    time: datetime
    up: float


def facts_of(played: Played) -> list[Fact]:
    """All that has happened."""
    copied = list(contents(played.evidence))
    copies = [files.get("application.log.0", b"") + files.get("application.log", b"")
              for files in copied]
    starts = _starts(played)
    found = [Fact("start", start.time, {"program": played.application}, _is_left(start, copies),
                  also=played.before_jump(start.up, start.time)) for start in starts]
    for start in starts:
        if start.number <= len(played.scenario.runs):
            for name, file in played.scenario.runs[start.number - 1].requests:
                left = any(re.search(rb"==%s\b" % name.encode(), text) for text in copies)
                found.append(Fact("request", None, {"name": name, "file": file}, left))
    found += _ends_and_reboots(played, starts)
    found += _failures(played)
    found += _measured(played, copies)
    found += _snapshots(played, copied)
    found += archives(played.evidence)
    found += _jumps(played, copies)
    return found


def _starts(played: Played) -> list[Start]:
    noted = played.directory / "tmp/told/starts"
    lines = noted.read_text().splitlines() if noted.exists() else []
    return [Start(int(number), datetime.fromtimestamp(float(at), timezone.utc), float(up))
            for number, at, up in map(str.split, lines)]


def _is_left(start: Start, copies: Sequence[bytes]) -> bool:
    """Whether the line of the start is left, which stands before what the run prints first."""
    run = rb"Watchdog: Starting app: [^\n]* \n(?:[^\n]*\n){0,2}[^\n]*@run-%d@" % start.number
    return any(re.search(run, text) for text in copies)


def _ends_and_reboots(played: Played, starts: Sequence[Start]) -> Iterator[Fact]:
    """At each end `killall` is called. At the third of a boot comes the reboot."""
    counts: Counter[int] = Counter()
    resets = [event.monotonic for event in played.events if event.get("reset")]
    stopped, ended = played.events[-1].monotonic, 0.0
    for call in played.events:
        if call.source != "tool":
            continue
        at = played.board_time(call.monotonic, call.wall)
        if call["tool"] == "reboot":
            third = counts[call["boot"]] == 3 and call.monotonic - ended < 2
            yield Fact("reboot", at, {"reason": "third end" if third else "read-only root"},
                       also=played.before_jump(call.monotonic, at))
        if call["tool"] != "killall":
            continue
        counts[call["boot"]] += 1
        ended = call.monotonic
        reboots = counts[call["boot"]] == 3 and _reboot_comes(played, call)
        if counts[call["boot"]] == 3 and not reboots and stopped - call.monotonic < 1:
            yield Fact("reboot", at, {"reason": "third end"}, False)
        before = [start for start in starts if start.up < call.monotonic]
        if call["behaviour"] == "hang" or reboots or not before \
                or before[-1].number > len(played.scenario.runs):
            continue
        # Right before a reset it is not known which came first.
        sure = all(not 0 <= later - call.monotonic < 1 for later in (*resets, stopped))
        code, crash = played.scenario.runs[before[-1].number - 1].end or (0, False)
        yield Fact("end", at, {"exit_code": code, "crash": crash,
                               "uptime": call.monotonic - before[-1].up}, sure,
                   also=played.before_jump(call.monotonic, at))


def _reboot_comes(played: Played, call: Event) -> bool:
    later = next((event for event in played.events if event.index > call.index
                  and event.source == "tool" and event["tool"] == "reboot"), None)
    return later is not None and later["behaviour"] in ("normal", "hang")


def _failures(played: Played) -> Iterator[Fact]:
    """The flag tool that fails, what the start of the application took too long, and the rest."""
    flagged = []
    for call in played.events:
        if call.source == "tool" and call["tool"] == "sfuflags" and call["status"] != 0:
            hangs = call["behaviour"] == "hang"
            ended = call.monotonic + (10 if hangs else 0)
            off = [event.monotonic for event in played.events if event.get("reset")]
            if any(call.monotonic < at < ended + 1 for at in (*off, played.events[-1].monotonic)):
                continue
            flagged.append(ended)
            at = played.board_time(ended, call.wall + ended - call.monotonic)
            yield Fact("start_failed", at, {"code": 2 if hangs else 5},
                       also=played.before_jump(ended, at))
    for event in played.events:
        at = played.board_time(event.monotonic, event.wall)
        if event.source == "system log" and "during process startup" in event.text:
            if not any(abs(event.monotonic - ended) < 2 for ended in flagged):
                yield Fact("start_failed", at, {"code": int(event.text.rsplit(" ", 1)[1])},
                           also=played.before_jump(event.monotonic, at))
        elif event.source == "supervisor" and event["stream"] == "stderr" and event.text \
                and not event.text.startswith(("Critical FW error", "Detected filesystem")):
            yield Fact("message", at, {"text": event.text},
                       also=played.before_jump(event.monotonic, at))


_TIME = rb"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})"


def _measured(played: Played, copies: Sequence[bytes]) -> Iterator[Fact]:
    """Alarms and memory, which are in the files line by line, and absences, which are due."""
    zone = ZoneInfo(played.scenario.zone)

    def board_time(text: bytes) -> datetime:
        return datetime.fromisoformat(text.decode()).replace(tzinfo=zone).astimezone(timezone.utc)

    watched = played.scenario.watched or {}
    alarms, memory = {}, {}
    for text in copies:
        for line in re.finditer(_TIME + rb" Process:(worker)? \((\d+)\) cpu load is : 0 for (\d) "
                                rb"seconds \n(.*?)(?=" + _TIME + rb" Process:|\Z)", text, re.S):
            samples = line[5].split(b" Time between two invocations:")[1:]
            if len(samples) == watched["period"]:  # otherwise the end of the log has cut it
                alarms[line[1], line[3]] = list(map(_sample, samples))
        for line in re.finditer(_TIME + rb" == MEMORY USAGE == Free: (\d+) kB, "
                                rb"Buffers\+Cache: (\d+) kB\n", text):
            memory[line[1]] = {"free_kib": int(line[2]), "cache_kib": int(line[3])}
    for (at, pid), samples in alarms.items():
        # Of a process that has ended, an alarm of one sample has no name.
        name = "" if pid == b"0" and len(samples) == 1 else "worker"
        yield Fact("alarm", board_time(at), {"pid": int(pid), "threshold": 0, "samples": samples,
                                             "period": watched["period"], "process": name},
                   slack=0.01)
    for at, sizes in memory.items():
        yield Fact("memory", board_time(at), sizes, slack=0.01)
    ups = _boots(played)
    due = sum(up // 180 for up in ups) if played.scenario.memory else 0
    assert abs(len(memory) - due) <= len(ups) or played.scenario.small_disk, (memory, ups)
    for up in ups:
        for number in range(played.scenario.absent if up > 28 else 0):
            yield Fact("not_found", None, {"process": f"absent-{number}", "arguments": "-x",
                                           "seconds": 30}, up > 34)


def _sample(text: bytes) -> tuple[float | None, list[tuple[str, float | None]]]:
    """The load in the lines of a second, and those of the threads."""
    def number(found: bytes) -> float | None:
        return float(found) if math.isfinite(float(found)) else None

    load = re.search(rb" cpu load:([^\n]*)%\n", text)
    return number(load[1]) if load else None, [
        (name.decode(), number(found))
        for name, found in re.findall(rb"  thread name:(.*) load:(.*)%\n", text)]


def _boots(played: Played) -> list[float]:
    """How long the supervisor ran in each boot, in seconds."""
    begins = [event.monotonic for event in played.events if "supervisor started" in event.text]
    ends = [event.monotonic for event in played.events if event.get("reset")]
    # While a tool hangs, nothing is written.
    hangs = [event.monotonic for event in played.events if event.source == "tool"
             and event["behaviour"] == "hang" and event["tool"] != "sfuflags"]
    return [min([end, *(at for at in hangs if at > begin)]) - begin
            for begin, end in zip(begins, [*ends, played.events[-1].monotonic])]


def _snapshots(played: Played, copied: Sequence[dict[str, bytes]]) -> Iterator[Fact]:
    """The calls of top whose pictures are in the files, each once."""
    noted = played.directory / "tmp/told/tops"
    calls = [datetime.fromtimestamp(float(line), timezone.utc)
             for line in noted.read_text().splitlines()] if noted.exists() else []
    zone = ZoneInfo(played.scenario.zone)
    texts = {text for files in copied for name in ("system", "system.load")
             for text in re.split(rb"^(?=top - )", files.get(name, b""), flags=re.M)
             if text.startswith(b"top - ")}
    for text in texts:
        clock = text.split()[2].decode()
        near = [call for call in calls if 0 <= _apart(call.astimezone(zone), clock) + 1 < 6]
        # Where the clock was set meanwhile, it is not known which call it was.
        yield Fact("snapshot", near[-1] if near else None, {
            "processes": [int(pid) for pid in re.findall(rb"^ *(\d+)(?: +\S+){11}", text, re.M)]},
            bool(near), slack=5)


def _apart(time_of_day: datetime, clock: str) -> float:
    other = datetime.combine(time_of_day.date(), datetime.strptime(clock, "%H:%M:%S").time(),
                             time_of_day.tzinfo)
    return (other - time_of_day).total_seconds()


def _jumps(played: Played, copies: Sequence[bytes]) -> Iterator[Fact]:
    """When the clock was set. It can be found where times before and after tell it."""
    stamped = [played.board_time(event.monotonic, event.wall) for event in played.events
               if event.source == "system log"]
    steps = [_back_steps(stamped)]
    for text in copies:
        for pattern, form in ((_TIME + rb" (?:Watchdog|==)", "%Y-%m-%d %H:%M:%S.%f"),
                              (rb"-- Time: (.*) GMT", "%a %b %d %H:%M:%S %Y")):
            steps.append(_back_steps([datetime.strptime(found.decode(), form)
                                      for found in re.findall(pattern, text)]))
    sizes = [size for _, size in played.jumps]
    left = set(itertools.chain.from_iterable(_shown(sizes, each) for each in steps))
    for number, (at, size) in enumerate(played.jumps):
        found = [event for event in played.events if abs(event.monotonic - at) < 3]
        wall = found[0].wall + at - found[0].monotonic if found else time.time()
        yield Fact("clock", played.board_time(at, wall), {"size": size}, number in left, slack=1e9)


def _shown(sizes: Sequence[int], steps: Sequence[float]) -> set[int]:
    """The numbers of the jumps that the steps show. Time has passed in a step, so the jump was
    larger."""
    found: set[int] = set()
    for step in steps:
        fits = [number for number, size in enumerate(sizes)
                if number not in found and -size > step - 1]
        if fits:
            found.add(max(fits, key=lambda number: sizes[number]))
    return found


def _back_steps(times: Sequence[datetime]) -> list[float]:
    """By how many seconds a time is earlier than the one before it, the largest step first."""
    steps = [(earlier - later).total_seconds() for earlier, later in zip(times, times[1:])]
    return sorted((step for step in steps if step > LEAST_JUMP), reverse=True)


# -- the comparison -------------------------------------------------------------------------------


def compare_played(played: Played) -> Compared:
    """Read the evidence, and compare what is told with what happened."""
    told = told_of(played.evidence)
    for event in told:
        event["kind"] = "clock" if "clock_set" in event else event["kind"]
    return compare(str(played.scenario.seed), facts_of(played), told,
                   lambda fact, event: _fits(fact, event, played))


def _fits(fact: Fact, event: dict[str, Any], played: Played) -> bool:
    if event["kind"] != fact.kind:
        return False
    if fact.kind == "clock":
        return _is_jump(fact.fields["size"], event, played)
    for name, value in fact.fields.items():
        if name == "uptime":
            if abs(event[name] - value) > 2:
                return False
        elif _plain(name, event[name]) != value:
            return False
    if fact.time is None or event["time"] is None:
        return True
    at = datetime.fromisoformat(event["time"])
    if at.tzinfo is None:
        at = at.replace(tzinfo=ZoneInfo(played.scenario.zone))
    return any(abs((at - time).total_seconds()) <= fact.slack
               for time in (fact.time, fact.also) if time)


def _plain(name: str, value: Any) -> Any:
    """What is compared of a field: of samples the loads, of processes the numbers."""
    if name == "samples":
        return [(sample.get("load"), [(thread["name"], thread["load"])
                                      for thread in sample.get("threads", [])]) for sample in value]
    return [row["pid"] for row in value] if name == "processes" else value


def _is_jump(size: int, event: dict[str, Any], played: Played) -> bool:
    sizes = {size, sum(size for _, size in played.jumps)}
    if event["clock_exact"]:
        return any(abs(event["clock_set"] - each) < LEAST_JUMP for each in sizes)
    return any(each < 0 and each - LEAST_JUMP < event["clock_set"] < 0 for each in sizes)


# -- the program ----------------------------------------------------------------------------------


def try_out(seed: int, build: Path, place: Path, seconds: int | None = None) -> Compared:
    """Play a scenario and compare. What it leaves in `place` is for those who look for a miss."""
    return compare_played(play(make(seed, seconds), build, place))


def _job(job: tuple[int, Path, Path]) -> Compared:
    seed, build, place = job
    try:
        found = try_out(seed, build, place / str(seed))
    except Exception as error:  # the others go on
        print(f"scenario {seed}: {type(error).__name__}: {error}"[:1500], file=sys.stderr)
        return Compared(wrong=[f"{seed} scenario failed"])
    if not found.missed and not found.wrong:
        shutil.rmtree(place / str(seed))
    return found


def main() -> int:
    """Try out many scenarios, and print the table."""
    parser = argparse.ArgumentParser(description=(__doc__ or "").split("\n", maxsplit=1)[0])
    parser.add_argument("--scenarios", type=int, default=8)
    parser.add_argument("--seed", type=int, default=1, help="of the first one")
    parser.add_argument("--parallel", type=int, default=8, help="how many devices at a time")
    parser.add_argument("--build-dir", type=Path, default=ROOT / "build/debug")
    parser.add_argument("--keep", type=Path, help="the directory for scenarios with a miss")
    options = parser.parse_args()
    place = options.keep or Path(tempfile.mkdtemp(prefix="truth-"))
    jobs = [(seed, options.build_dir.resolve(), place)
            for seed in range(options.seed, options.seed + options.scenarios)]
    total = Compared()
    with multiprocessing.Pool(options.parallel) as pool:
        for found in pool.imap_unordered(_job, jobs):
            total.add(found)
    for what, texts in ("missed", total.missed), ("wrong", total.wrong):
        for text in texts:
            print(f"{what}: {text}")
    print(total.table(KINDS))
    return 0 if all(rate >= 0.99 for kind in KINDS for rate in total.rates(kind)) else 1


if __name__ == "__main__":
    sys.exit(main())
