# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Makes the archives of a fleet of devices, and tells what they went through.

As a program: fleets.py DIRECTORY ARCHIVES
"""

from __future__ import annotations

import gzip
import io
import json
import random
import sys
import tarfile
from collections import Counter
from collections.abc import Mapping
from datetime import datetime, timedelta, timezone
from pathlib import Path

OFFSET = timezone(timedelta(hours=1))
BEGIN = datetime(2026, 8, 3, 6, tzinfo=OFFSET)
FIRMWARES = (("Sample OS 1.0", "0.1.0"), ("Sample OS 1.1", "0.1.0"), ("Sample OS 1.2", "0.2.0"))
APPLICATIONS = ("/usr/bin/panel", "/usr/bin/gateway")
SNAPSHOT = """\
top - {time:%H:%M:%S} up 1 min,  0 users,  load average: 1.50, 0.50, 0.20

    PID USER      PR  NI    VIRT    RES    SHR S  %CPU  %MEM     TIME+ COMMAND
{processes}

"""

# Cause, application, firmware, version, device, week
Facts = tuple[str, str, str, str, str, str]


class Device:
    """A device, whose clock goes on as things happen to it."""

    def __init__(self, directory: Path, number: int, luck: random.Random) -> None:
        self._directory = directory
        self._luck = luck
        self.name = f"{number:016x}"
        self._application = APPLICATIONS[number % len(APPLICATIONS)]
        self._now = BEGIN + timedelta(minutes=number % 1000)
        self._firmware = 0
        self._boots = 0
        self.found: Counter[Facts] = Counter()
        self.archives = 0
        self._boot("unknown")

    def live(self) -> None:
        """Let something happen."""
        self._pass(hours=self._luck.uniform(1, 100))
        what = self._luck.choices(
            ("crash", "exit", "request", "alarm", "missing", "third end", "power loss"),
            (6, 3, 3, 3, 1, 2, 1))[0]
        if what == "crash":
            signal, text = self._luck.choice(((11, "SIGSEGV"), (6, "SIGABRT"), (7, "SIGBUS")))
            self._end(signal, 1, f"crash by signal {signal} ({text})")
            self._pass(seconds=5)
            self._archive("main")
        elif what == "exit":
            status = self._luck.choice((1, 3))
            self._end(status, 0, f"ended with status {status}")
        elif what == "request":
            self._log += f"{self._time_line()}==Report==on request\n"
            self._note("report requested: on_request")
            self._pass(seconds=5)
            self._archive("on_request")
        elif what == "alarm":
            self._alarm()
        elif what == "missing":
            self._log += (f"{self._time_line()}Process helper with args [] doesn't appear "
                          "for 30 seconds\n")
            self._note("missing process: helper")
        elif what == "third end":
            self._note("reboot: third end")
            self._archive("third-end")
            self._boot("third end")
        else:
            self.finish()  # what is in no archive is lost
            self._boot("power loss")

    def finish(self) -> None:
        """Make an archive of what has happened since the last one."""
        self._pass(seconds=1)
        self._note("report requested: last_words")
        self._archive("last_words")

    def _pass(self, **duration: float) -> None:
        self._now += timedelta(**duration)

    def _text(self) -> str:
        return f"{self._now:%Y-%m-%d %H:%M:%S}.000"

    def _time_line(self) -> str:
        return f"-- Time: {self._now.astimezone(timezone.utc):%a %b %d %H:%M:%S %Y} GMT\n"

    def _note(self, cause: str) -> None:
        firmware, version = FIRMWARES[self._firmware]
        year, week, _ = self._now.isocalendar()
        self.found[cause, self._application, firmware, version, self.name,
                   f"{year}-W{week:02}"] += 1

    def _boot(self, cause: str) -> None:
        last = f"{self.name}-{self._boots}"
        self._boots += 1
        if self._boots % 3 == 0:
            self._firmware = min(self._firmware + 1, len(FIRMWARES) - 1)
        self._pass(minutes=1)
        concluded = {"cause": cause, "concluded_from": [], "boot_id": f"{self.name}-{self._boots}",
                     "time": self._now.isoformat(), "last_boot_id": last}
        self._cause = f"Cause of this boot: {cause}\n{json.dumps(concluded)}\n"
        if cause == "power loss":
            self._note("boot after power loss")
        self._journal: list[str] = []
        self._log = ""
        self._start()

    def _start(self) -> None:
        self._log += (f"{self._time_line()}"
                      f"{self._text()} Watchdog: Starting app: {self._application} --verbose \n")
        self._log += "".join(f"line {number} of the application: {self._luck.random()}\n"
                             for number in range(100))

    def _end(self, code: int, status: int, cause: str) -> None:
        self._note(cause)
        self._journal.append(
            f"{self._now:%Y-%m-%dT%H:%M:%S.123456%z} board pynx_watchdog[7]: Restarting process: "
            f"exit code:{code}, exist status:{status}, uptime:9 sec")
        self._pass(seconds=1)
        self._start()

    def _alarm(self) -> None:
        self._note("too much load: render")
        self._log += (
            f"{self._text()} Process:render (77) cpu load is : 40 for 1 seconds \n"
            f"{self._text()} Time between two invocations:1000ms\n"
            f"{self._text()} render cpu load:61.5%\n"
            f"{self._text()} render total thread load:60%\n"
            f"{self._text()}  thread name:draw load:31%\n")

    def _archive(self, name: str) -> None:
        firmware, version = FIRMWARES[self._firmware]
        manifest = {
            "package_version": version, "time": f"{self._now:%Y-%m-%dT%H:%M:%S%z}",
            "boot_id": f"{self.name}-{self._boots}", "machine": self.name, "uptime_s": 1234.5,
            "os": {"id": "sample", "version_id": "1", "pretty_name": firmware},
            "journal": self._journal[-100:]}
        processes = "\n".join(
            f"{pid:7} root      20   0    2592   1696   1588 S  {pid % 7}.0   0.0   0:00.10 p{pid}"
            for pid in range(1, 60))
        snapshots = "".join(SNAPSHOT.format(time=self._now - timedelta(seconds=after),
                                            processes=processes) for after in (20, 10, 0))
        place = self._directory / self.name
        place.mkdir(exist_ok=True)
        pack(place / f"report-{name}-{int(self._now.timestamp() * 1000)}.tar.gz", {
            "manifest.json": json.dumps(manifest), "tmp/log/boot": self._cause,
            "tmp/log/system": snapshots, "tmp/log/application.log": self._log})
        self.archives += 1


def pack(path: Path, members: Mapping[str, str]) -> Path:
    """Write an archive."""
    packed = io.BytesIO()
    with tarfile.open(fileobj=packed, mode="w") as tar:
        for name, text in members.items():
            member = tarfile.TarInfo(name)
            member.size = len(text.encode())
            tar.addfile(member, io.BytesIO(text.encode()))
    path.write_bytes(gzip.compress(packed.getvalue(), 1, mtime=0))
    return path


def make_fleet(directory: Path, archives: int, seed: int = 1) -> Counter[Facts]:
    """Write at least so many archives. Returns how often the incidents in them happened."""
    luck = random.Random(seed)
    directory.mkdir(parents=True, exist_ok=True)
    found: Counter[Facts] = Counter()
    made = number = 0
    while made < archives:
        number += 1
        device = Device(directory, number, luck)
        for _ in range(30):
            device.live()
        device.finish()
        made += device.archives
        found += device.found
    return found


if __name__ == "__main__":
    print(sum(make_fleet(Path(sys.argv[1]), int(sys.argv[2])).values()), "incidents")
