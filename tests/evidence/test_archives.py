# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the reader finds in archives, also in hostile ones."""

from __future__ import annotations

import gzip
import io
import random
import tarfile
from collections.abc import Mapping
from pathlib import Path

import pytest

from pynx_watchdog_evidence import archives
from pynx_watchdog_evidence.archives import open_archive

NAME = "report-main-1795341600123.tar.gz"


def packed(members: Mapping[str, bytes], *others: tarfile.TarInfo) -> bytes:
    """An archive of these members, then of others without content."""
    file = io.BytesIO()
    with tarfile.open(fileobj=file, mode="w:gz") as tar:
        for name, content in members.items():
            member = tarfile.TarInfo(name)
            member.size = len(content)
            tar.addfile(member, io.BytesIO(content))
        for member in others:
            tar.addfile(member)
    return file.getvalue()


def special(kind: bytes, name: str, target: str = "") -> tarfile.TarInfo:
    member = tarfile.TarInfo(name)
    member.type, member.linkname = kind, target
    return member


def test_an_archive_is_read() -> None:
    with open_archive(io.BytesIO(packed({"a": b"1", "b/c": b"2"})), NAME) as archive:
        assert (archive.name, archive.members, archive.complete, archive.problem) \
            == ("main", ["a", "b/c"], True, None)
        assert archive.time is not None and archive.time.timestamp() == 1795341600.123
        assert {name: file.read() for name, file in archive.files.items()} \
            == {"a": b"1", "b/c": b"2"}


@pytest.mark.parametrize("file_name, name", [
    ("tmp_report-main-1795341600123", "main"), ("a-b-c-1795341600123.tar.gz", "b-c"),
    ("other.tar.gz", None), ("report-main-x.tar.gz", None),
])
def test_the_file_tells_the_name_of_the_report(file_name: str, name: str | None) -> None:
    with open_archive(io.BytesIO(packed({})), file_name) as archive:
        assert archive.name == name


def test_an_archive_that_is_cut_is_read_as_far_as_it_goes() -> None:
    made = random.Random(1)
    whole = packed({"a": made.randbytes(3000), "b": made.randbytes(3000)})
    for length in range(0, len(whole) - 8, 97):
        with open_archive(io.BytesIO(whole[:length]), NAME) as archive:
            assert not archive.complete and archive.problem
            assert archive.members == ["a", "b"][:len(archive.members)]


@pytest.mark.parametrize("data", [b"", b"\x1f\x8b", b"no gzip", gzip.compress(b"no tar" * 999)],
                         ids=["empty", "beginning of gzip", "no gzip", "no tar"])
def test_what_is_no_archive_is_told(data: bytes) -> None:
    with open_archive(io.BytesIO(data), NAME) as archive:
        assert not archive.complete and archive.problem and not archive.files


def test_nothing_is_written_where_a_member_wants_it(tmp_path: Path,
                                                    monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(tmp_path)
    wanted = tmp_path / "absolute"
    data = packed({"../outside": b"x", str(wanted): b"x", "link/in": b"x"},
                  special(tarfile.SYMTYPE, "link", "/etc"),
                  special(tarfile.LNKTYPE, "hard", "/etc/passwd"),
                  special(tarfile.CHRTYPE, "null"), special(tarfile.FIFOTYPE, "fifo"))
    with open_archive(io.BytesIO(data), NAME) as archive:
        assert len(archive.members) == 7
        assert set(archive.files) == {"../outside", str(wanted), "link/in"}
    assert not list(tmp_path.iterdir()) and not (tmp_path.parent / "outside").exists()


def test_a_bomb_is_read_only_so_far(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(archives, "LARGEST", 1 << 20)
    with open_archive(io.BytesIO(packed({"a": bytes(1 << 22), "b": b"x"})), NAME) as archive:
        assert archive.problem == "it is larger than 1048576 bytes" and not archive.complete
        assert len(archive.files["a"].read()) == 1 << 20


def test_only_so_many_members_are_read(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(archives, "MOST_MEMBERS", 10)
    with open_archive(io.BytesIO(packed({str(number): b"" for number in range(20)})),
                      NAME) as archive:
        assert archive.problem == "it has more than 10 members" and len(archive.members) == 10
