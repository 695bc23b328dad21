# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The package's tar and reboot, which stand before the board's own, and what they call.

Most tests call a tool in a simulated device that is shared, with GNU or busybox tools, under dash
or busybox's ash. The last ones let the supervisor call it.
"""

from __future__ import annotations

import hashlib
import json
import os
import random
import re
import shutil
import subprocess
import tarfile
import threading
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import Any

import pytest

from logs import LOG, OLD_LOG
from marks import AS_ROOT
from settings import document, reporting
from simulator import Bind, Device, wait_until
from simulator.device import Completed
from starting import Start

UPLOAD = "/tmp/upload"
NAME = "report-wanted-1700000000000"
OUTPUT = f"{UPLOAD}/tmp_{NAME}"
LATER = f"{UPLOAD}/tmp_report-later-1700000000002"
PROGRAM = "/supervisor"
RUN = "/run/pynx-watchdog"
FAKES = "/tmp/fakes"
BUSYBOX = "/tmp/busybox"
STATE = "/home/root/pynx-watchdog"
FILES = "SystemManagerLogReportConfig.json"
GNU_TAR = "/usr/bin/tar"
GENEROUS = 120
BOARD_TOOLS = Path(__file__).parents[2] / "packaging" / "board-tools"


class Board:
    """A running device, and the shell and the tools that a test uses there."""

    def __init__(self, device: Device, shell: Sequence[str] = (), path: str = "") -> None:
        self.device = device
        self.shell = list(shell)
        self.path = f"{PROGRAM}/tools:{FAKES}:{path}/run/simulator/tools:/run/simulator/commands"

    def host(self, path: str) -> Path:
        """The host's path of a file of the board."""
        return self.device.host_path(path)

    def write(self, path: str, content: str | bytes = "content of the file\n") -> None:
        """Make a file and the directories that it needs."""
        place = self.host(path)
        place.parent.mkdir(parents=True, exist_ok=True)
        place.write_bytes(content if isinstance(content, bytes) else content.encode())

    def fake(self, name: str, script: str) -> None:
        """Put a script before the tool of this name."""
        self.write(f"{FAKES}/{name}", "#!/bin/sh\n" + script)
        self.host(f"{FAKES}/{name}").chmod(0o755)

    def configure(self, *files: str) -> None:
        """Make these the files of every report."""
        self.write(f"{PROGRAM}/settings/{FILES}", json.dumps(document({"files": list(files)})))

    def run(self, *command: str, **environment: str) -> Completed:
        """Run a command with the tools of this board."""
        variables = [f"{name}={value}" for name, value in environment.items()]
        return self.device.run(["env", f"PATH={self.path}", *variables, *command],
                               timeout=GENEROUS)

    def tool(self, name: str, *arguments: str, **environment: str) -> Completed:
        """Call a script of the package under this board's shell."""
        return self.run(*self.shell, f"{PROGRAM}/{name}", *arguments, **environment)

    def tar(self, *files: str, output: str = OUTPUT, **environment: str) -> Completed:
        """Call the tool tar as the supervisor does."""
        return self.tool("tools/tar", "czhf", output, *(files or (LOG,)), **environment)

    def uploads(self) -> set[str]:
        """The names in the upload directory."""
        return set(os.listdir(self.host(UPLOAD)))

    def said(self, text: str) -> None:
        """Wait until the system log has a line of the tools with this text."""
        self.device.wait_for("system log", text, ident="pynx_watchdog")


def members(board: Board | Device, path: str = OUTPUT) -> dict[str, bytes]:
    """The content of an archive's members, all of which are files."""
    device = board.device if isinstance(board, Board) else board
    content = {}
    with tarfile.open(device.host_path(path), mode="r:gz") as packed:
        for member in packed.getmembers():
            file = packed.extractfile(member)
            assert member.isfile() and file, f"{member.name} is no file"
            content[member.name] = file.read()
    return content


def manifest(board: Board | Device, path: str = OUTPUT) -> dict[str, Any]:
    """The manifest in an archive."""
    found = json.loads(members(board, path)["manifest.json"])
    assert isinstance(found, dict)
    return found


@pytest.fixture(scope="module")
def shared(build_directory: Path, tmp_path_factory: pytest.TempPathFactory) -> Iterator[Device]:
    """A device whose supervisor does nothing, for tests that call the tools themselves."""
    with Device(build_directory / "watchdog", tmp_path_factory.mktemp("device"),
                ["--rotateOnly", "--app", "/bin/sleep", "infinity"], packaged=True,
                tools={"reboot": "return"}) as device:
        device.run(["sh", "-c", f"mkdir {BUSYBOX}; busybox --install -s {BUSYBOX}; "
                                f"rm {BUSYBOX}/reboot; cp /bin/dash /tmp/watchdog"])
        yield device


@pytest.fixture(params=["GNU", "busybox"])
def board(request: pytest.FixtureRequest, shared: Device) -> Board:
    """The shared device with GNU tools and dash, and with busybox alone."""
    if request.param == "GNU":
        return clean(Board(shared, ["/bin/dash"]))
    return clean(Board(shared, ["/bin/busybox", "sh"], f"{BUSYBOX}:"))


@pytest.fixture
def gnu(shared: Device) -> Board:
    """The shared device with GNU tools and dash, for what the tools do not matter to."""
    return clean(Board(shared, ["/bin/dash"]))


def clean(board: Board) -> Board:
    """Give a test an upload directory that all may write to, one log and nothing else."""
    board.device.run(["sh", "-c", f"chmod -R u+rwX /tmp/test; rm -rf {RUN} {STATE} /dev/pmsg0"])
    for name in ("/tmp/test", "/tmp/log", "/tmp/few", UPLOAD, FAKES, f"{PROGRAM}/settings"):
        shutil.rmtree(board.host(name), ignore_errors=True)
        board.host(name).mkdir()
    board.host(UPLOAD).chmod(0o777)
    board.write(LOG, "what the application printed\n")
    return board


# -- which calls are taken -----------------------------------------------------------------------


@pytest.mark.parametrize("arguments", [
    ["czf", OUTPUT, LOG], ["czhf", f"{UPLOAD}/mine.tar.gz", LOG], ["czhf", OUTPUT],
    ["czhf", f"{UPLOAD}/tmp_report-x-12a", LOG], ["czhf", f"{UPLOAD}/{NAME}.tar.gz", LOG],
    ["--version"], ["tf", "/nowhere"], [],
], ids=" ".join)
def test_a_tar_that_the_supervisor_does_not_call_is_the_boards(
        board: Board, arguments: list[str]) -> None:
    board.fake("tar", 'printf "<%s>" "$@" >/tmp/test/called; exit 7')
    assert board.tool("tools/tar", *arguments).status == 7
    assert board.host("/tmp/test/called").read_text() == (
        "".join(f"<{argument}>" for argument in arguments) or "<>")


def test_an_archive_has_the_names_that_tar_gives_and_a_manifest(board: Board) -> None:
    board.write("/tmp/test/evidence", "seen")
    board.write("/tmp/test/target", "through a link")
    board.write("/tmp/test/name with 'blanks', ü and\ttab", "odd")
    board.host("/tmp/test/link").symlink_to("target")
    board.configure(LOG, OLD_LOG, "/tmp/../tmp/test//evidence")
    files = [LOG, "/tmp/../tmp/test//evidence", "/tmp/test/./link",
             "/tmp/test/name with 'blanks', ü and\ttab"]
    plain = board.run(GNU_TAR, "czhf", "/tmp/test/plain", *files)
    assert plain.status == 0
    done = board.tar(*files)
    assert (done.status, done.stdout, done.stderr) == (0, b"", b"")
    packed = members(board)
    assert packed.pop("manifest.json")
    assert {os.path.normpath(name): content for name, content in packed.items()} == {
        os.path.normpath(name): content
        for name, content in members(board, "/tmp/test/plain").items()}
    assert board.uploads() == {f"tmp_{NAME}"}
    assert board.host(OUTPUT).stat().st_mode & 0o777 == 0o644


def test_a_configured_directory_is_packed_once_whatever_else_is_named_in_it(board: Board) -> None:
    board.write("/tmp/test/state/a", "first")
    board.write("/tmp/test/state/deep/b", "second")
    board.configure("/tmp/test/state/deep", "/tmp/test/state", "/tmp/test/state/a")
    assert board.tar("/tmp/test/state/deep/b", "/tmp/test/state/a", "/tmp/test/state/deep",
                     "/tmp/test/state").status == 0
    listed = board.run(GNU_TAR, "tzf", OUTPUT).stdout.decode().split()
    assert listed.count("tmp/test/state/a") == 1
    assert "tmp/test/state/deep/b" in listed
    assert board.host("/tmp/test/state/a").read_text() == "first"
    assert board.host("/tmp/test/state/deep/b").read_text() == "second"


# -- tar's status --------------------------------------------------------------------------------


CHANGED = "tar: tmp/log/application.log: file changed as we read it"
REMOVED = "tar: tmp/log/system: File removed before we read it"


def fake_tar(board: Board, script: str) -> None:
    """Put a script in the place of the board's tar, when it makes an archive."""
    board.fake("tar", f'[ "$1" = -czhf ] || exec {GNU_TAR} "$@"\n{script}')


@pytest.mark.parametrize("status, told, expected", [
    pytest.param(1, [CHANGED], 0, id="changed"),
    pytest.param(1, [REMOVED, CHANGED.replace(": f", ": F")], 0, id="removed"),
    pytest.param(1, ["tar: Removing leading `/' from member names", CHANGED], 0, id="leading"),
    pytest.param(1, [CHANGED, "tar: tmp/x: Cannot open: Permission denied"], 1, id="another"),
    pytest.param(1, [], 1, id="without a word"),
    pytest.param(2, [CHANGED], 2, id="two"),
])
def test_only_files_that_changed_while_they_were_read_are_forgiven(
        board: Board, status: int, told: list[str], expected: int) -> None:
    lines = "".join(f"{line}\n" for line in told)
    board.write("/tmp/test/told", lines)
    fake_tar(board, f'{GNU_TAR} "$@"; cat /tmp/test/told >&2; exit {status}')
    done = board.tar()
    assert (done.status, done.stderr.decode()) == (expected, lines)
    # What tar packed stays under the temporary name, as it does without the tool.
    assert members(board)["tmp/log/application.log"] == b"what the application printed\n"


def test_an_archive_that_was_cut_does_not_stay(board: Board) -> None:
    fake_tar(board, f'{GNU_TAR} "$@"; truncate -s 100 "$2"; exit 2')
    assert board.tar().status == 2
    assert board.uploads() == set()


def test_a_tar_that_was_killed_is_told(board: Board) -> None:
    fake_tar(board, "kill -9 $$")
    assert board.tar().status == 137
    board.said(f"{NAME}.tar.gz is left out: tar was killed, or took more than 300 s")
    assert board.uploads() == set()


def test_a_file_that_vanishes_while_tar_runs_is_left_out(board: Board) -> None:
    board.write(OLD_LOG, "older")
    board.configure(LOG, OLD_LOG)
    board.fake("tar", f'rm -f {OLD_LOG}; PATH=${{PATH#{FAKES}:}}; exec tar "$@"')
    assert board.tar(LOG, OLD_LOG).status == 0
    assert members(board).keys() == {"manifest.json", "tmp/log/application.log"}


# -- what fails costs no archive -----------------------------------------------------------------


@pytest.mark.parametrize("missing", [
    ["awk"], ["timeout", "logger"], ["ln"], ["mkdir"], ["cat", "rm", "rmdir", "tr", "wc", "sed"],
    ["od", "stat", "timeout", "flock", "ln", "mkdir", "date", "head", "readlink"],
], ids=" ".join)
def test_without_a_tool_the_archive_comes_all_the_same(board: Board, missing: list[str]) -> None:
    kind = BUSYBOX if BUSYBOX in board.path else "/run/simulator/commands"
    board.run("sh", "-c", f"ln -s /run/simulator/commands/* /tmp/few; ln -sf {kind}/* /tmp/few; "
                          f"cd /tmp/few; rm -f {' '.join(missing)}")
    # Without a directory of its own, the archive is left out where others may place links.
    board.host(UPLOAD).chmod(0o755)
    done = board.tool("tools/tar", "czhf", OUTPUT, LOG, PATH=f"{PROGRAM}/tools:/tmp/few")
    assert done.status == 0, done.stderr
    assert members(board)["tmp/log/application.log"] == b"what the application printed\n"


@pytest.mark.parametrize("content", [b"", b"{", b"\xff\0"])
def test_without_readable_settings_the_log_is_packed_as_if_it_were_requested(
        board: Board, content: bytes) -> None:
    for place in ("settings", "settings-default"):
        board.write(f"{PROGRAM}/{place}/{FILES}", content)
    try:
        assert board.tar(LOG).status == 0
        assert members(board)["tmp/log/application.log"] == b"what the application printed\n"
    finally:
        shutil.copy(Path(__file__).parents[2] / "settings-default" / FILES,
                    board.host(f"{PROGRAM}/settings-default"))


def test_a_small_file_system_that_is_full_leaves_nothing_behind(start: Start) -> None:
    running = start("wait", spaces={UPLOAD: "64k"}, packaged=True, options=["--rotateOnly"])
    board = Board(running, ["/bin/dash"])
    board.write(LOG, random.Random(1).randbytes(1_000_000))
    assert board.tar(LOG).status != 0
    assert board.run("ls", "-A", UPLOAD).stdout == b""
    board.run("sh", "-c", f"echo small >{LOG}")
    assert board.tar(LOG).status == 0


# -- the manifest --------------------------------------------------------------------------------


def test_the_manifest_says_where_and_when_the_archive_was_made(board: Board) -> None:
    board.fake("fw_printenv", 'case "$*" in "-n fail") echo 1 ;; "-n boot_count") echo 2 ;; esac')
    board.fake("journalctl", 'echo "$*" >/tmp/test/asked; echo "one: \\"quoted\\""; echo two')
    board.configure(LOG, OLD_LOG)
    assert board.tar(LOG, "/etc/passwd").status == 0
    found = manifest(board)
    assert found["archive"] == NAME + ".tar.gz"
    assert re.fullmatch(r"\d+\.\d+\.\d+", found["package_version"])
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4}", found["time"])
    assert found["boot_id"] == board.device.read("/proc/sys/kernel/random/boot_id").decode().strip()
    assert found["kernel"].startswith("Linux ")
    assert isinstance(found["uptime_s"], float)
    assert found["os"]["id"] and found["os"]["pretty_name"]
    assert found["watchdog"].keys() == {"identity", "timeout_s", "bootstatus"}
    assert found["boot_flags"] == {"fail": "1", "boot_count": "2"}
    assert found["journal"] == ['one: "quoted"', "two"]
    assert "-n 100 -t pynx_watchdog " in board.host("/tmp/test/asked").read_text()
    assert [entry["file"] for entry in found["refused"]] == ["/etc/passwd"]
    assert found["missing"] == [OLD_LOG]


def test_the_machines_id_itself_is_not_told(gnu: Board) -> None:
    identity = gnu.device.run(["cat", "/etc/machine-id"]).stdout.decode().strip()
    assert gnu.tar().status == 0
    found = manifest(gnu)["machine"]
    if not identity:
        assert found is None
        return
    assert found == hashlib.sha256(f"pynx-watchdog report {identity}".encode()).hexdigest()[:16]
    assert identity not in members(gnu)["manifest.json"].decode()


def test_what_is_not_there_is_null(board: Board) -> None:
    for name in ("journalctl", "fw_printenv", "uname", "sha256sum"):
        board.fake(name, "exit 1")
    assert board.tar().status == 0
    found = manifest(board)
    assert found["boot_flags"] == {"fail": None, "boot_count": None}
    assert found["kernel"] is None or found["kernel"] == ""
    assert found["journal"] == []


def test_a_manifest_is_json_whatever_its_sources_say(board: Board) -> None:
    every_byte = b"".join(bytes([byte, 10 if byte % 16 == 15 else 32]) for byte in range(256))
    texts = "Größe \U0001f600 \ufffd\u07ff\u0800\uffff\U0010ffff end"
    odd = b"\xc0\xaf \xed\xa0\x80 \xf4\x90\x80\x80 \xe2\x82 cut \xf0\x9f\nlast"
    board.write("/tmp/test/journal", texts.encode() + b"\n" + every_byte + b"\n" + odd)
    board.fake("journalctl", "cat /tmp/test/journal")
    flag = b'"\\' + every_byte.replace(b"\n", b"")
    board.write("/tmp/test/flag", flag + b"\n blank\narchive no\n")
    board.fake("fw_printenv", "cat /tmp/test/flag")
    name = "/etc/no\\such \"file\" \x01\x7f"
    assert board.tar(LOG, name, "/etc/pass\nwd", "/tmp/test/journal/").status == 0
    found = manifest(board)
    assert found["journal"][0] == texts
    assert found["journal"][-1] == "last"
    assert found["journal"][-2].endswith(" cut \ufffd")
    assert found["missing"][0] == name
    assert found["archive"] == NAME + ".tar.gz"
    assert found["boot_flags"]["fail"].startswith('"\\')


def test_of_a_long_journal_the_newest_lines_are_kept(board: Board) -> None:
    lines = [f"{number} ".ljust(2000, "x") for number in range(100)]
    board.write("/tmp/test/journal", "\n".join(lines) + "\n")
    board.fake("journalctl", "cat /tmp/test/journal")
    assert board.tar().status == 0
    told = manifest(board)["journal"]
    assert told[-40:] == lines[-40:]
    assert len(told) < 60


@pytest.mark.parametrize("source", ["journalctl", "fw_printenv"])
def test_a_source_that_hangs_costs_only_what_it_would_say(gnu: Board, source: str) -> None:
    gnu.fake(source, "exec sleep 3600")
    assert gnu.tar().status == 0
    assert manifest(gnu)["archive"] == NAME + ".tar.gz"


def test_a_file_that_hangs_costs_only_what_it_would_say(start: Start, tmp_path: Path) -> None:
    os.mkfifo(tmp_path / "hanging")
    running = start("wait", options=["--rotateOnly"], packaged=True,
                    binds=[Bind(str(tmp_path / "hanging"), "/usr/lib/os-release")])
    done = Board(running, ["/bin/dash"]).tool("report-manifest", NAME, "1")
    found = json.loads(done.stdout)
    assert found["archive"] == NAME
    assert found["os"] == {"id": None, "version_id": None, "pretty_name": None}


# -- one at a time -------------------------------------------------------------------------------


def slow_tar(board: Board) -> None:
    """A tar that notes its beginning and its end, and waits for /tmp/test/go between."""
    fake_tar(board, 'echo begin >>/tmp/test/runs\n'
                    'until [ -e /tmp/test/go ]; do sleep 0.02; done\n'
                    f'{GNU_TAR} "$@"; status=$?; echo end >>/tmp/test/runs; exit $status')


def runs(board: Board) -> list[str]:
    """What the slow tar has noted."""
    place = board.host("/tmp/test/runs")
    return place.read_text().split() if place.exists() else []


def test_archives_are_made_one_after_the_other(board: Board) -> None:
    slow_tar(board)
    results: list[int] = []

    def make(number: int) -> None:
        output = f"{UPLOAD}/tmp_report-n{number}-{1700000000000 + number}"
        results.append(board.tar(output=output).status)

    threads = [threading.Thread(target=make, args=[number]) for number in range(4)]
    for thread in threads:
        thread.start()
    wait_until(lambda: runs(board), "the first tar")
    board.write("/tmp/test/go")
    for thread in threads:
        thread.join()
    assert results == [0] * 4
    assert runs(board) == ["begin", "end"] * 4


def test_who_waits_too_long_leaves_its_archive_out(gnu: Board) -> None:
    slow_tar(gnu)
    first = threading.Thread(target=gnu.tar, kwargs={"output": f"{UPLOAD}/tmp_report-a-1"})
    first.start()
    try:
        wait_until(lambda: runs(gnu), "the first tar")
        assert gnu.tar(ARCHIVES_MAX_WAIT="1").status == 1
        gnu.said(f"{NAME}.tar.gz is left out: another archive took more than 1 s")
    finally:
        gnu.write("/tmp/test/go")
        first.join()
    assert gnu.uploads() == {"tmp_report-a-1"}


def test_a_turn_ends_with_its_owner_though_its_tar_goes_on(gnu: Board) -> None:
    slow_tar(gnu)
    first = threading.Thread(target=gnu.tar, kwargs={"output": f"{UPLOAD}/tmp_report-a-1"})
    first.start()
    wait_until(lambda: runs(gnu), "the first tar")
    owner = [process for process in gnu.device.processes()
             if f"{PROGRAM}/tools/tar" in process.command_line[:4]]
    for process in owner:
        gnu.device.signal(process.pid, 9)
    first.join()
    gnu.fake("tar", f'exec {GNU_TAR} "$@"')
    assert gnu.tar(ARCHIVES_MAX_WAIT="60").status == 0
    gnu.write("/tmp/test/go")


def test_the_last_archive_waits_for_no_turn(board: Board) -> None:
    board.run("mkdir", RUN)
    last = f"{UPLOAD}/{NAME}.tar.gz"
    tool = f"{PROGRAM}/tools/tar"
    done = board.run("flock", f"{RUN}/lock", *board.shell, tool, "czhf", last, LOG,
                     LAST_ARCHIVE="yes", ARCHIVES_MAX_WAIT="1")
    assert done.status == 0, done.stderr
    assert members(board, last)["tmp/log/application.log"]


# -- limits and leftovers ------------------------------------------------------------------------


def fill(board: Board, count: int, size: int = 10) -> list[str]:
    """Finished archives, the oldest first, of which some were never renamed."""
    names = []
    for number in range(count):
        name = f"report-old_{number}-{1600000000000 + number}"
        names.append(f"tmp_{name}" if number % 5 == 4 else f"{name}.tar.gz")
        board.write(f"{UPLOAD}/{names[-1]}", bytes(size))
    return names


def test_the_oldest_archives_make_room_for_the_new_one(board: Board) -> None:
    names = fill(board, 60)
    others = {"notes.tar.gz", "report-link-1.tar.gz", "other-x-1.tar.gz", "report-x-1.txt",
              "report-directory-1.tar.gz"}
    for name in others - {"report-link-1.tar.gz", "report-directory-1.tar.gz"}:
        board.write(f"{UPLOAD}/{name}")
    board.host(f"{UPLOAD}/report-link-1.tar.gz").symlink_to("notes.tar.gz")
    board.host(f"{UPLOAD}/report-directory-1.tar.gz").mkdir()
    board.run("mkdir", "-p", f"{RUN}/leftovers-are-finished")
    assert board.tar().status == 0
    assert board.uploads() == others | {f"tmp_{NAME}", *names[-49:]}
    assert board.tar(ARCHIVES_MAX_NUMBER="3", output=LATER).status == 0
    assert board.uploads() == others | {os.path.basename(LATER), f"tmp_{NAME}", names[-1]}


def test_archives_are_kept_up_to_their_size_in_all(board: Board) -> None:
    names = fill(board, 9, 10_000)
    board.run("mkdir", "-p", f"{RUN}/leftovers-are-finished")
    assert board.tar(ARCHIVES_MAX_SIZE="32k").status == 0  # three of 10000 bytes and the new one
    assert board.uploads() == {f"tmp_{NAME}", *names[-3:]}
    assert board.tar(ARCHIVES_MAX_SIZE="1", output=LATER).status == 0
    assert board.uploads() == {os.path.basename(LATER)}


def test_a_prefix_with_a_hyphen_takes_no_other_archives(board: Board) -> None:
    board.write(f"{PROGRAM}/settings/WatchdogAutomaticReportingConf.json",
                envelope({"uploadPath": UPLOAD, "uploadFilePrefix": "my-board"}))
    for name in ("my-backup-1.tar.gz", "my-board-old-1.tar.gz", "tmp_my-board-old-2"):
        board.write(f"{UPLOAD}/{name}")
    assert board.tar(output=f"{UPLOAD}/tmp_my-board-new-3", ARCHIVES_MAX_NUMBER="1").status == 0
    assert board.uploads() == {"my-backup-1.tar.gz", "tmp_my-board-new-3"}


def test_the_name_of_an_archive_leads_to_no_other_file(board: Board) -> None:
    board.write("/tmp/test/kept")
    odd = [f"report-x{line_feed}1 99999999999 {slash}tmp{slash}test{slash}kept{line_feed}-1.tar.gz"
           for line_feed in ("\\n", "\\012", "\n") for slash in ("\\057", "\\0057")]
    for name in odd:
        board.write(f"{UPLOAD}/{name}")
    assert board.tar(ARCHIVES_MAX_NUMBER="1").status == 0
    assert board.host("/tmp/test/kept").exists()
    assert not [name for name in odd[:4] if name in board.uploads()]


@pytest.mark.parametrize("variable, value, default", [
    ("ARCHIVES_MAX_NUMBER", "0", "50"), ("ARCHIVES_MAX_NUMBER", "many", "50"),
    ("ARCHIVES_MAX_SIZE", "64MB", "64M"), ("ARCHIVES_MAX_SIZE", "M", "64M"),
    ("ARCHIVES_MAX_WAIT", "-1", "300"), ("ARCHIVES_MAX_WAIT", "08", "300"),
    ("REQUESTED_FROM", "/tmp var", "/tmp /var/log /run"),
])
def test_a_bad_value_is_told_and_the_default_used(
        gnu: Board, variable: str, value: str, default: str) -> None:
    names = fill(gnu, 51)
    gnu.write("/tmp/test/evidence")
    gnu.run("mkdir", "-p", f"{RUN}/leftovers-are-finished")
    assert gnu.tar(LOG, "/tmp/test/evidence", **{variable: value}).status == 0
    gnu.said(f"{variable}={value} is no valid value; {default} is used")
    assert gnu.uploads() == {f"tmp_{NAME}", *names[-49:]}
    assert "tmp/test/evidence" in members(gnu)


def test_what_an_earlier_boot_left_is_finished_or_removed_once(board: Board) -> None:
    board.run(GNU_TAR, "czf", f"{UPLOAD}/tmp_report-whole-1600000000000", LOG)
    whole = board.host(f"{UPLOAD}/tmp_report-whole-1600000000000").read_bytes()
    board.write(f"{UPLOAD}/tmp_report-cut-1600000000001", whole[:-20])
    board.write(f"{UPLOAD}/tmp_other-whole-1600000000002", whole)
    assert board.tar().status == 0
    expected = {f"tmp_{NAME}", "report-whole-1600000000000.tar.gz", "tmp_other-whole-1600000000002"}
    assert board.uploads() == expected
    assert board.host(f"{UPLOAD}/report-whole-1600000000000.tar.gz").read_bytes() == whole
    # An archive of this boot may not have been renamed yet.
    board.write(f"{UPLOAD}/tmp_report-new-1700000000001", whole)
    assert board.tar(output=LATER).status == 0
    assert board.uploads() == expected | {"tmp_report-new-1700000000001", os.path.basename(LATER)}


def test_leftovers_that_could_not_be_finished_are_tried_again(gnu: Board) -> None:
    gnu.write(f"{UPLOAD}/tmp_report-cut-1600000000001")
    gnu.fake("mkdir", f'[ "$1" != old ] || exit 1; exec {shutil.which("mkdir")} "$@"')
    assert gnu.tar().status == 0
    gnu.host(f"{FAKES}/mkdir").unlink()
    assert gnu.tar(output=LATER).status == 0
    assert "tmp_report-cut-1600000000001" not in gnu.uploads()


def test_directories_of_tools_that_were_killed_are_removed(board: Board) -> None:
    killed, alive, link = (f".pynx-watchdog.1.{number}" for number in (99999998, 1, 99999999))
    board.run("sh", "-c", f"umask 077; cd {UPLOAD}; mkdir -p {killed}/tree/a {alive}; "
                          f"ln -s /tmp/log {killed}/tree/a/b; "
                          f"ln -s /tmp/test {link}; touch /tmp/test/kept")
    for output in (OUTPUT, LATER):
        assert board.tar(output=output).status == 0
        assert killed not in board.uploads()
        assert {alive, link} <= board.uploads()
        board.run("sh", "-c", f"umask 077; mkdir {UPLOAD}/{killed}")
    assert board.host("/tmp/test/kept").exists() and board.host(LOG).exists()


# -- files that a request names ------------------------------------------------------------------


def test_requested_files_are_packed_from_open_directories_with_their_time(board: Board) -> None:
    board.write("/tmp/test/evidence", bytes(range(256)) * 100)
    os.utime(board.host("/tmp/test/evidence"), (1_500_000_000, 1_500_000_000))
    board.host("/tmp/test/link").symlink_to("/tmp/test/evidence")
    assert board.tar(LOG, "/tmp/test/evidence", "/tmp/test/link").status == 0
    packed = members(board)
    assert packed["tmp/test/evidence"] == packed["tmp/test/link"] == bytes(range(256)) * 100
    with tarfile.open(board.host(OUTPUT)) as archive:
        assert archive.getmember("tmp/test/evidence").mtime == 1_500_000_000
    assert manifest(board)["refused"] == []


@pytest.mark.parametrize("make, reason", [
    pytest.param("ln -s /etc/passwd {0}", "none of the directories", id="link"),
    pytest.param("mkdir {0}.d; ln -s /etc {0}.d/e; ln -s {0}.d/e/passwd {0}",
                 "none of the directories", id="link on the way"),
    pytest.param("ln -s /etc/../proc/self/environ {0}", "none of the directories", id="process"),
    pytest.param("mkfifo {0}", "no regular file", id="fifo"),
    pytest.param("ln -s /dev/zero {0}", "no regular file", id="device"),
    pytest.param("mkdir {0}", "a directory", id="directory"),
    pytest.param("echo x >{0}; ln {0} {0}.b", "several names", id="hard link"),
    pytest.param("truncate -s 65M {0}", "too large", id="too large"),
])
def test_a_requested_file_is_refused_unless_it_is_a_plain_file_of_an_open_directory(
        board: Board, make: str, reason: str) -> None:
    board.run("sh", "-c", make.format("/tmp/test/wanted"))
    assert board.tar(LOG, "/tmp/test/wanted").status == 0
    assert members(board).keys() == {"manifest.json", "tmp/log/application.log"}
    refused, = manifest(board)["refused"]
    assert refused["file"] == "/tmp/test/wanted" and reason in refused["reason"]


@pytest.mark.parametrize("name", ["manifest.json", "tmp/log/boot"])
def test_a_requested_file_takes_the_name_of_no_other_one(board: Board, name: str) -> None:
    board.write("/tmp/test/manifest.json", "{}")
    board.write("/tmp/test/tmp/log/boot", "forged")
    board.write(f"/tmp/test/directory/{name}")
    wanted = [f"/tmp/test/directory/../{name}", f"/tmp/test/directory/{name}"]
    assert board.tar(LOG, *wanted).status == 0
    assert members(board).keys() == {"manifest.json", "tmp/log/application.log", wanted[1][1:]}
    refused, = manifest(board)["refused"]
    assert refused == {"file": wanted[0], "reason": "its name could be another file's"}


def test_the_directories_that_are_open_to_requests_can_be_chosen(board: Board) -> None:
    board.write("/tmp/test/open/a")
    board.write("/tmp/test/closed/b")
    board.write("/tmp/test/openly/c")
    board.host("/tmp/test/through").symlink_to("open")
    assert board.tar("/tmp/test/open/a", "/tmp/test/closed/b", "/tmp/test/openly/c",
                     REQUESTED_FROM=" /nowhere  /tmp/test/through").status == 0
    assert members(board).keys() == {"manifest.json", "tmp/test/open/a"}
    assert board.tar("/tmp/test/open/a", REQUESTED_FROM="").status == 0
    assert members(board).keys() == {"manifest.json"}


def test_the_directories_of_configured_files_are_open_but_for_what_root_keeps(
        board: Board) -> None:
    core, secret, shown = (f"/tmp/log/{name}" for name in ("core", "secret", "shown"))
    for path, mode, owner in ((core, 0o600, 65534), (secret, 0o640, 0), (shown, 0o604, 0)):
        board.write(path)
        board.host(path).chmod(mode)
        board.run("chown", str(owner), path)
    board.write("/tmp/log/deeper/a")
    assert board.tar(LOG, core, secret, shown, "/tmp/log/deeper/a",
                     REQUESTED_FROM="").status == 0
    assert members(board).keys() == {"manifest.json", "tmp/log/application.log", "tmp/log/core",
                                     "tmp/log/shown"}
    assert [refused["file"] for refused in manifest(board)["refused"]] == [
        secret, "/tmp/log/deeper/a"]


def test_requested_files_together_have_the_limit_of_the_archives(board: Board) -> None:
    for name in "ab":
        board.write(f"/tmp/test/{name}", bytes(6000))
    assert board.tar("/tmp/test/a", "/tmp/test/b", ARCHIVES_MAX_SIZE="10k").status == 0
    assert members(board).keys() == {"manifest.json", "tmp/test/a"}


@pytest.mark.parametrize("first, then, packed", [
    ("/tmp/test/mine", "/etc/passwd", True), ("/etc/passwd", "/tmp/test/mine", False)])
def test_a_link_that_is_changed_after_the_file_was_opened_changes_nothing(
        board: Board, first: str, then: str, packed: bool) -> None:
    board.write("/tmp/test/mine", "my own")
    board.host("/tmp/test/link").symlink_to(first)
    board.fake("readlink", f"ln -sfn {then} /tmp/test/link; "
                           f'PATH=${{PATH#{FAKES}:}}; exec readlink "$@"')
    assert board.tar(LOG, "/tmp/test/link").status == 0
    assert os.readlink(board.host("/tmp/test/link")) == then
    assert members(board).get("tmp/test/link") == (b"my own" if packed else None)


@pytest.mark.skipif(shutil.which("unshare") is None
                    or subprocess.run(["unshare", "-Urm", "true"], capture_output=True,
                                      check=False).returncode != 0,
                    reason="takes a kernel that gives user namespaces")
def test_another_mount_namespace_cannot_lend_a_file_a_name(tmp_path: Path) -> None:
    # This cannot be tried in a simulated device, in which nobody can make a namespace.
    (tmp_path / "secret").mkdir()
    (tmp_path / "secret" / "file").write_text("secret")
    (tmp_path / "open").mkdir()
    script = 'mount --bind "$1/secret" "$1/open" && echo ready && exec cat'
    with subprocess.Popen(["unshare", "-Urm", "sh", "-c", script, "sh", str(tmp_path)],
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE) as other:
        assert other.stdin and other.stdout and other.stdout.readline() == b"ready\n"
        name = f"/proc/{other.pid}/root{tmp_path}/open/file"
        assert Path(name).read_text() == "secret"
        done = subprocess.run([str(BOARD_TOOLS / "copy-requested"), name, str(tmp_path / "copy"),
                               "1000", str(tmp_path / "open")], stdout=subprocess.PIPE, check=False)
        other.stdin.close()
    assert (done.returncode, done.stdout) == (1, b"it lies in another mount namespace\n")
    assert not (tmp_path / "copy").exists()


# -- links of others in the upload directory -----------------------------------------------------


@pytest.mark.parametrize("target", ["/tmp/test/target", "/tmp/test", "/nowhere/at/all"])
def test_a_link_in_the_place_of_the_output_is_replaced(board: Board, target: str) -> None:
    board.write("/tmp/test/target", "untouched")
    board.host(OUTPUT).symlink_to(target)
    assert board.tar().status == 0
    assert not board.host(OUTPUT).is_symlink()
    assert members(board)["tmp/log/application.log"]
    assert board.host("/tmp/test/target").read_text() == "untouched"
    assert os.listdir(board.host("/tmp/test")) == ["target"]


@pytest.mark.parametrize("exchange", [
    pytest.param("rmdir {0}; ln -s /tmp/test {0}", id="another directory"),
    pytest.param("rmdir {0}; ln -s . {0}", id="the same directory"),
    pytest.param("chmod 777 {0}", id="open to all"),
    pytest.param("chown nobody {0}", marks=AS_ROOT, id="somebody else's"),
])
def test_a_private_directory_that_was_exchanged_is_not_used(gnu: Board, exchange: str) -> None:
    gnu.fake("mkdir", f'PATH=${{PATH#{FAKES}:}}\nmkdir "$@" || exit\n'
                      'case $3 in *pynx-watchdog*) ;; *) exit 0 ;; esac\n'
                      + exchange.format('"$3"'))
    assert gnu.tar().status == 1
    gnu.said(f"no directory can be made in {UPLOAD}: {NAME}.tar.gz is left out")
    assert gnu.run("ls", "/tmp/test").stdout == b""
    assert f"tmp_{NAME}" not in gnu.uploads()


def test_without_a_directory_of_its_own_only_configured_files_are_packed(board: Board) -> None:
    board.fake("mkdir", "exit 1")
    board.write("/tmp/test/evidence")
    board.host(UPLOAD).chmod(0o775)
    fake_tar(board, f'{GNU_TAR} "$@"; echo "{CHANGED}" >&2; exit 1')
    assert board.tar(LOG, "/tmp/test/evidence", "/etc/passwd").status == 0
    assert members(board).keys() == {"tmp/log/application.log"}


# -- report-setting ------------------------------------------------------------------------------


def envelope(payload: Any) -> bytes:
    """A settings document as it lies on the board."""
    return json.dumps(document(payload)).encode()


@pytest.mark.parametrize("content, expected", [
    pytest.param(envelope({"files": ["/a b", "/ü\u20ac\U0001f600", "/q\"\\/\t"]}),
                 "/a b\n/ü€\U0001f600\n/q\"\\/\t\n", id="escapes"),
    pytest.param(json.dumps(document({"files": ["/ü€😀"]}), ensure_ascii=False, indent=4).encode(),
                 "/ü€😀\n", id="UTF-8"),
    pytest.param(b"\xef\xbb\xbf" + envelope({"files": ["/x"]}), "/x\n", id="mark of UTF-8"),
    pytest.param(b'{"a":[1,{"files":["no"]},-2.5e3,null,true,{}],"value":\r\n{"list":"x",'
                 b'"type":"p","p":{"x":[[]],"files":["/x",5,true]}}}', "/x\n5\ntrue\n", id="other"),
    pytest.param(envelope({"files": []}), "", id="no file"),
    pytest.param(envelope({"other": 1}), "", id="no such member"),
    pytest.param(envelope("text"), "", id="another type"),
    pytest.param(envelope(None), None, id="null"),
    pytest.param(b'{"value":{"type":"p","q":{"files":["/x"]}}}', None, id="no payload"),
    pytest.param(b'{"value":{"type":"p","p":{"files":["/x",]}}}', None, id="comma at the end"),
    pytest.param(b'{"value":{"type":"p","p":{"files":["/x"]}}} x', None, id="more after it"),
    pytest.param(b'{"value":{"type":"p","p":{"files":["/x"]}}', None, id="cut"),
    pytest.param(b'{"value":{"type":"p","p":{"files":["/\\x"]}}}', None, id="bad escape"),
    pytest.param(b'{"value":{"type":"p","p":{"files":["/\\u12g4"]}}}', None, id="bad number"),
    pytest.param(b"[]", None, id="list"),
    pytest.param(b"", None, id="empty"),
])
def test_a_setting_is_read_as_the_supervisor_reads_it(
        board: Board, content: bytes, expected: str | None) -> None:
    board.write(f"{PROGRAM}/settings/{FILES}", content)
    done = board.tool("report-setting", "files")
    factory = f"{LOG}\n"
    assert done.status == 0
    if expected is None:
        assert done.stdout.decode().startswith(factory)
    else:
        assert done.stdout.decode() == expected


def test_the_upload_settings_are_read_from_their_document(board: Board) -> None:
    assert board.tool("report-setting", "uploadPath").stdout == b"/tmp/upload\n"
    board.write(f"{PROGRAM}/settings/WatchdogAutomaticReportingConf.json",
                envelope({"uploadPath": "/data/r", "uploadFilePrefix": 7}))
    assert board.tool("report-setting", "uploadPath").stdout == b"/data/r\n"
    assert board.tool("report-setting", "uploadFilePrefix").stdout == b"7\n"


def test_a_setting_without_any_document_and_a_wrong_call_are_errors(board: Board) -> None:
    factory = board.host(f"{PROGRAM}/settings-default/{FILES}")
    content = factory.read_bytes()
    factory.unlink()
    try:
        assert board.tool("report-setting", "files").status == 1
    finally:
        factory.write_bytes(content)
    for arguments in ("", "others", "files files"):
        done = board.tool("report-setting", *arguments.split())
        assert (done.status, done.stdout) == (2, b"")
        assert done.stderr.startswith(b"usage: ")


# -- reboot --------------------------------------------------------------------------------------


def reboot(board: Board, *arguments: str, caller: str = "watchdog", prefix: str = "",
           **environment: str) -> None:
    """Call the tool reboot from a process of this name and wait for the board's own reboot."""
    board.host("/tmp/test").joinpath(caller).write_bytes(
        Path("/bin/dash").resolve().read_bytes())
    board.host("/tmp/test").joinpath(caller).chmod(0o755)
    before = board.device.events("tool")
    command = " ".join([prefix, *board.shell, f"{PROGRAM}/tools/reboot", *arguments])
    board.run(f"/tmp/test/{caller}", "-c", f"{command}; exit $?", **environment)
    board.device.wait_for("tool", " ".join(["reboot", *arguments]),
                          after=before[-1] if before else None, tool="reboot")


def last_archive(board: Board) -> str:
    """Wait for the archive's name. On a busy machine it can come after the call of the board's
    reboot, which does nothing here."""
    return wait_until(lambda: [name for name in board.uploads() if name.endswith(".tar.gz")],
                      "the last archive")[0]


def state(board: Board) -> list[str]:
    """The words of the reason that is kept; none if there is none."""
    return board.run("cat", f"{STATE}/end").stdout.decode().split()


@pytest.mark.parametrize("arguments, caller", [
    (["-f"], "other"), ([], "watchdog"), (["-p"], "watchdog"), (["-f", "-f"], "watchdog")])
def test_a_reboot_that_the_supervisor_does_not_call_is_the_boards(
        gnu: Board, arguments: list[str], caller: str) -> None:
    reboot(gnu, *arguments, caller=caller)
    assert state(gnu) == []
    assert gnu.uploads() == set()


@pytest.mark.parametrize("caller", ["watchdog", "pynx-watchdog"])
def test_the_reason_and_a_last_archive_are_kept_before_a_reboot(board: Board, caller: str) -> None:
    board.run("touch", "/dev/pmsg0")
    board.fake("sync", f'echo "$*" >>/tmp/test/synced; exec {shutil.which("sync")} "$@"')
    board.fake("journalctl", 'echo "$*" >>/tmp/test/journal')
    reboot(board, "-f", caller=caller)
    line = " ".join(state(board))
    boot, reason, time = line.split(" ")
    assert boot == board.device.read("/proc/sys/kernel/random/boot_id").decode().strip()
    assert reason == "third-end"
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4}", time)
    assert board.device.read("/dev/pmsg0").decode() == f"pynx-watchdog: end {line}\n"
    name = last_archive(board)
    assert re.fullmatch(r"report-third-end-\d{13}\.tar\.gz", name)
    assert members(board, f"{UPLOAD}/{name}")["tmp/log/application.log"]
    assert manifest(board, f"{UPLOAD}/{name}")["archive"] == name
    for paths in (f"{STATE}/end {STATE}\n", f"{UPLOAD}/{name} {UPLOAD}\n"):
        wait_until(lambda: paths in board.host("/tmp/test/synced").read_text(), "the storage of it")
    assert "--sync\n" in board.host("/tmp/test/journal").read_text()
    assert not board.host("/home/root/ro-test").exists()


def test_a_root_that_cannot_be_written_to_is_the_reason(board: Board) -> None:
    board.run("touch", "/dev/pmsg0")
    board.device.set_read_only_root(True)
    try:
        reboot(board, "-f")
    finally:
        board.device.set_read_only_root(False)
    assert " read-only-root " in board.device.read("/dev/pmsg0").decode()
    assert state(board) == []
    assert last_archive(board).startswith("report-read-only-root-")


@pytest.mark.parametrize("tool", ["tar", "sync", "touch", "awk"])
def test_whatever_hangs_the_reboot_comes(gnu: Board, tool: str) -> None:
    gnu.fake(tool, "exec /bin/sleep 3600")
    gnu.fake("sleep", 'echo "$*" >>/tmp/test/slept; exec /bin/sleep "$@"')
    reboot(gnu, "-f")
    slept = gnu.host("/tmp/test/slept").read_text().split()
    assert slept.count("0.1") == len(slept) <= 51  # of the 5 s that it may wait for


def test_without_the_uptime_the_reboot_comes(gnu: Board) -> None:
    gnu.fake("tar", "exec sleep 3600")
    reboot(gnu, "-f", prefix="strace -D -qqq -f -o /dev/null -P /proc/uptime -e trace=open,openat "
                             "-e inject=open,openat:error=EACCES")


def test_where_nothing_can_be_written_the_reboot_comes(board: Board) -> None:
    reboot(board, "-f", prefix="ulimit -f 0;")
    assert not [name for name in board.uploads() if name.endswith(".gz")]


def test_a_manifest_that_hangs_costs_no_last_archive(gnu: Board) -> None:
    gnu.fake("uname", "exec sleep 3600")
    gnu.fake("timeout", f'echo "$*" >>/tmp/test/limits; exec {shutil.which("timeout")} "$@"')
    reboot(gnu, "-f")
    packed = members(gnu, f"{UPLOAD}/{last_archive(gnu)}")
    assert packed.keys() == {"tmp/log/application.log"}
    limits = gnu.host("/tmp/test/limits").read_text()
    limit, = re.findall(r"(?m)^-s KILL (\d+) \S+/report-manifest ", limits)
    assert int(limit) < 5  # then the board is rebooted


def test_a_last_archive_that_cannot_be_made_costs_only_itself(gnu: Board) -> None:
    fake_tar(gnu, "exit 9")
    reboot(gnu, "-f")
    assert "third-end" in state(gnu)


def test_a_reboot_that_cannot_fork_comes(board: Board) -> None:
    reboot(board, "-f", prefix="strace -D -qqq -f -o /dev/null -e trace=clone,clone3,fork,vfork "
                               "-e inject=clone,clone3,fork,vfork:error=EAGAIN")
    assert state(board) == []


def test_without_tools_the_reboot_comes(gnu: Board) -> None:
    gnu.run("ln", "-s", "/run/simulator/tools/reboot", "/tmp/few/reboot")
    reboot(gnu, "-f", PATH=f"{PROGRAM}/tools:/tmp/few")


# -- called by the supervisor --------------------------------------------------------------------


ASKING = """
log=/tmp/log/application.log
python3 -c 'import random; print(random.Random(1).randbytes({size}).hex("\\n", 32))'
n=0
while [ $n -lt {count} ]; do
    n=$((n + 1))
    echo "==Report==n$n=="
    until tail -c 2000 $log | grep -q "==Report==n$n=="; do echo printed; sleep {pause}; done
done
touch /tmp/asked
while :; do echo printed; sleep 0.1; done
"""
"""An application that prints steadily, fills its log and asks for reports, each of which it sees
in the log before it asks for the next."""


def packing(running: Device) -> bool:
    """Whether a report is being packed or waits for its turn."""
    return any(f"{PROGRAM}/tools/tar" in process.command_line[:3]
               for process in running.processes())


def archives(running: Device) -> list[str]:
    """The names of the finished archives."""
    return sorted(path.name for path in running.host_path(UPLOAD).glob("*.tar.gz"))


@pytest.mark.takes(60)
def test_every_report_of_an_application_that_prints_steadily_is_delivered(start: Start) -> None:
    asking = ASKING.format(size=3_000_000, count=15, pause=0.1)
    running = start(application=["sh", "-c", asking], log_size="100M",
                    settings=reporting([LOG, OLD_LOG]), packaged=True)
    wait_until(lambda: len(archives(running)) == 15, "all archives", timeout=4 * GENEROUS)
    for name in archives(running):
        assert members(running, f"{UPLOAD}/{name}")["tmp/log/application.log"]
        assert manifest(running, f"{UPLOAD}/{name}")["archive"] == name
    assert b"Failed to generate report" not in running.stderr
    assert not list(running.host_path(UPLOAD).glob("tmp_*"))


@pytest.mark.takes(120)
def test_a_flood_of_requests_leaves_the_limit_and_nothing_unfinished(start: Start) -> None:
    asking = ASKING.format(size=50_000, count=60, pause=0.01)
    running = start(application=["sh", "-c", asking], settings=reporting([LOG]), packaged=True,
                    environment={"ARCHIVES_MAX_SIZE": "400k"})
    wait_until(lambda: running.host_path("/tmp/asked").exists(), "all requests", timeout=GENEROUS)
    wait_until(lambda: any("-n60_" in name for name in archives(running)) and not packing(running),
               "the last archive", timeout=4 * GENEROUS)
    wait_until(lambda: not list(running.host_path(UPLOAD).glob("tmp_*")), "the last name")
    left = list(running.host_path(UPLOAD).iterdir())
    assert len(left) == len(archives(running)) > 1
    assert sum(path.stat().st_size for path in left) <= 400 * 1024
    assert not running.events("watchdog device", "expired")


THIEF = """if True:
    import os, time
    now = int(time.time() * 1000)
    for time_stamp in range(now + 4500, now + 9000):
        os.symlink("/tmp/written-by-root", f"/tmp/upload/tmp_report-wanted-{time_stamp}")
    os.symlink("/etc/shadow", "/tmp/innocent")
    os.write(1, b"==Report file:/etc/shadow==wanted\\n")
    time.sleep(1)
    os.write(1, b"==Report file:/tmp/innocent==second\\n")
    time.sleep(3600)
"""
"""An application that wants what only root can read, and root to write where only root can."""


@AS_ROOT
@pytest.mark.takes(20)
def test_an_application_without_rights_gets_none_by_a_report(start: Start) -> None:
    running = start(application=["python3", "-c", THIEF], options=["--user", "nobody"],
                    settings=reporting([LOG]), packaged=True)
    secret = Path("/etc/shadow").read_bytes()
    wait_until(lambda: len(archives(running)) == 2, "both archives", timeout=GENEROUS)
    for name in archives(running):
        path = running.host_path(f"{UPLOAD}/{name}")
        assert path.is_file() and not path.is_symlink()
        packed = members(running, f"{UPLOAD}/{name}")
        assert packed.keys() == {"manifest.json", "tmp/log/application.log"}
        assert not any(secret in content for content in packed.values())
    refused = manifest(running, f"{UPLOAD}/{archives(running)[0]}")["refused"]
    assert {entry["file"] for entry in refused} <= {"/etc/shadow", "/tmp/innocent"} and refused
    assert not running.host_path("/tmp/written-by-root").exists()


@pytest.mark.takes(20)
def test_the_third_end_leaves_its_reason_and_an_archive(start: Start) -> None:
    running = start("print", "the end is near\\n", "exit", "3", settings=reporting([LOG]),
                    packaged=True, tools={"reboot": "hang"})
    running.wait_for("tool", "reboot -f", timeout=GENEROUS)
    assert running.run(["cut", "-d", " ", "-f", "2", f"{STATE}/end"]).stdout == b"third-end\n"
    name, = wait_until(lambda: archives(running), "the last archive", timeout=GENEROUS)
    assert name.startswith("report-third-end-")
    log = members(running, f"{UPLOAD}/{name}")["tmp/log/application.log"]
    assert log.count(b"the end is near\n") == 3


@pytest.mark.takes(30)
def test_a_tool_that_hangs_holds_up_no_feeding(start: Start, tmp_path: Path) -> None:
    hanging = tmp_path / "tar"
    hanging.write_text("#!/bin/sh\ntouch /tmp/hanging\nexec sleep 3600\n")
    hanging.chmod(0o755)
    running = start("print", "==Report==stuck\\n", "wait", settings=reporting([LOG]), packaged=True,
                    binds=[Bind(str(hanging), GNU_TAR)])
    wait_until(lambda: running.host_path("/tmp/hanging").exists(), "the tar")
    last = running.events("watchdog device")[-1]
    running.wait_for("watchdog device", "KEEPALIVE", count=2, after=last, timeout=GENEROUS)
