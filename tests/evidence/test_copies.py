# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""When snapshots were taken, and which copies of them are older than the crash they lie beside."""

from __future__ import annotations

import io
import os
import tarfile
from datetime import datetime, timedelta, timezone
from pathlib import Path

import pytest

from pynx_watchdog_evidence.describe import describe
from pynx_watchdog_evidence.events import Event
from pynx_watchdog_evidence.join import events_of

CRASH = datetime(2026, 11, 22, 10, 0, 0, tzinfo=timezone.utc)
COPY = "tmp/log/system.load"
NOW = "tmp/log/system"


def picture(clock: str) -> str:
    return (f"top - {clock} up 1 min,  0 user,  load average: 1.00, 2.00, 3.00\n"
            "    PID USER %CPU COMMAND\n      7 root  9.0 render\n")


def archive(directory: Path, name: str, offset: int | None,
            **members: tuple[str, timedelta]) -> Path:
    """An archive of 5 s after the crash; its members were changed so long after it."""
    path = directory / f"report-{name}-{round(CRASH.timestamp()) + 5}000.tar.gz"
    texts = {{"now": NOW, "copy": COPY}[key]: value for key, value in members.items()}
    if offset is not None:
        made = CRASH.astimezone(timezone(timedelta(hours=offset))).isoformat()
        texts["manifest.json"] = f'{{"time": "{made}"}}', timedelta()
    with tarfile.open(path, "w:gz") as tar:
        for member_name, (text, changed) in texts.items():
            member = tarfile.TarInfo(member_name)
            member.size, member.mtime = len(text), int((CRASH + changed).timestamp())
            tar.addfile(member, io.BytesIO(text.encode()))
    return path


def read(*paths: Path) -> list[Event]:
    return list(events_of(paths, lambda path, reason: pytest.fail(f"{path}: {reason}")))


def snapshots(*paths: Path) -> list[tuple[str, bool]]:
    """The times of the snapshots, and whether they are marked as old."""
    return [(event.time.isoformat() if event.time else "", "older_than_crash" in event.fields)
            for event in read(*paths) if event.kind == "snapshot"]


def test_an_old_copy_in_an_archive_is_marked(tmp_path: Path) -> None:
    path = archive(tmp_path, "main", 2, now=(picture("11:59:56"), timedelta(seconds=-3)),
                   copy=(picture("12:00:01"), timedelta(days=-3)))
    assert snapshots(path) == [("2026-11-19T12:00:01+02:00", True),
                               ("2026-11-22T11:59:56+02:00", False)]
    told = {event.kind: describe(event) for event in read(path)}
    assert told["archive"] == f"archive main: 3 files, {COPY} is of an earlier crash"


def test_the_copy_of_this_crash_is_not_marked(tmp_path: Path) -> None:
    path = archive(tmp_path, "main", 2, copy=(picture("11:59:21"), timedelta()))
    assert snapshots(path) == [("2026-11-22T11:59:21+02:00", False)]


@pytest.mark.parametrize("clock, told", [("12:00:01", "2026-11-22T12:00:01"),
                                         ("21:45:00", "2026-11-22T21:45:00"),
                                         ("23:59:00", "2026-11-21T23:59:00")])
def test_without_a_known_offset_a_snapshot_is_of_the_nearest_day(tmp_path: Path, clock: str,
                                                                 told: str) -> None:
    path = archive(tmp_path, "main", None, copy=(picture(clock), timedelta()))
    assert [time for time, _ in snapshots(path)] == [told]
    file = tmp_path / "system"
    file.write_text(picture(clock))
    # The time of a file is known in UTC, and the tests run in any time zone.
    os.utime(file, (0, datetime(2026, 11, 22, 10).timestamp()))
    assert [time for time, _ in snapshots(file)] == [told]


def test_a_copy_beside_the_log_is_compared_with_the_last_crash(tmp_path: Path) -> None:
    (tmp_path / "messages").write_text("".join(
        f"2026-11-22T{time} board pynx_watchdog[1]: Restarting process: exit code:11, "
        "exist status:1, uptime:9 sec\n" for time in ("10:00:00", "10:30:00")))
    copy = tmp_path / "system.load"
    for clock, expected in ("10:29:30", False), ("09:59:55", True):
        copy.write_text(picture(clock))
        os.utime(copy, (0, datetime(2026, 11, 22, 10, 30).timestamp()))
        assert snapshots(tmp_path) == [(f"2026-11-22T{clock}", expected)]


def test_a_clock_that_is_set_between_two_snapshots_changes_no_day(tmp_path: Path) -> None:
    file = tmp_path / "system"
    file.write_text(picture("12:14:00") + picture("12:04:10"))
    os.utime(file, (0, datetime(2026, 11, 22, 12, 4, 11).timestamp()))
    assert [time for time, _ in snapshots(file)] == ["2026-11-22T12:14:00", "2026-11-22T12:04:10"]
    assert [event.fields["clock_set"] for event in read(file) if event.kind == "message"] == [-590]


@pytest.mark.parametrize("text", [
    picture("99:99:99"), picture("10:00:00").replace("1.00,", "1.0.0,"),
    picture("10:00:00").replace("  7 root", "9" * 5000 + " root"),
    picture("10:00:00").replace("9.0", "nan"),
])
def test_a_snapshot_that_lies_is_read_as_far_as_it_goes(tmp_path: Path, text: str) -> None:
    file = tmp_path / "system"
    file.write_text(text)
    [event] = read(file)
    assert event.kind == "snapshot" and describe(event)
