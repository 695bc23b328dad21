# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What `--board` does on this machine, and what it finds of rights and accounts.

What it finds of files and tools is tested on boards below a directory, in tst_checkboard.cpp.
"""

from __future__ import annotations

import json
import os
import re
import shutil
import subprocess
import tempfile
from collections.abc import Iterator, Sequence
from pathlib import Path

import pytest

from checked import Check
from marks import AS_ROOT

TIME_LIMIT = 120  # seconds, after which the tool counts as hanging
TOOLS = ("free", "fw_setenv", "gzip", "head", "killall", "reboot", "sfuflags", "sh", "tar", "top")
CAPABILITIES = {"sys_boot": 22, "sys_nice": 23, "setuid": 7}  # by <linux/capability.h>


@pytest.fixture(name="open_directory")
def fixture_open_directory() -> Iterator[Path]:
    """A directory that every account can reach; pytest's own are root's."""
    with tempfile.TemporaryDirectory() as name:
        Path(name).chmod(0o755)
        yield Path(name)


@pytest.fixture(name="tool")
def fixture_tool(build_directory: Path, open_directory: Path) -> Path:
    """The tool, where every account can execute it, with the factory's settings beside it."""
    copy = shutil.copy(build_directory / "pynx-watchdog-check", open_directory)
    settings = Path(__file__).resolve().parents[2] / "settings-default"
    shutil.copytree(settings, open_directory / "settings-default")
    return Path(copy)


def write_script(path: Path, body: str, mode: int = 0o755) -> Path:
    path.parent.mkdir(exist_ok=True)
    path.write_text(f"#!/bin/sh\n{body}\n", "utf-8")
    path.chmod(mode)
    return path


def run(tool: Path, *arguments: str, before: Sequence[str | Path] = (),
        path: Path | None = None) -> list[str]:
    """Run the tool by the command `before`; the findings as "LEVEL RULE"."""
    ran = subprocess.run(
        [*before, tool, "--json", "--program-dir", tool.parent, "--board", "--explain", "--",
         "--logfileName", "/tmp/log", "--logfileSize", "1k", *arguments],
        env={**os.environ, **({"PATH": str(path)} if path else {})},
        capture_output=True, check=False, encoding="utf-8", timeout=TIME_LIMIT)
    assert ran.returncode in (0, 1), ran.stderr
    found = [json.loads(line) for line in ran.stdout.splitlines()]
    ours = [finding for finding in found if finding.get("file") == "board"]
    assert all(finding["line"] is finding["column"] is None for finding in ours)
    return [f"{finding['level']} {finding['rule']}" for finding in ours]


def has_capability(name: str) -> bool:
    status = Path("/proc/self/status").read_text("utf-8")
    effective = re.search(r"^CapEff:\s*(\w+)$", status, re.MULTILINE)
    return bool(effective and int(effective[1], 16) >> CAPABILITIES[name] & 1)


def without(name: str) -> list[str]:
    """The command that takes a capability away."""
    return ["setpriv", f"--bounding-set=-{name}"]


def test_the_tools_are_told(check: Check) -> None:
    def told(*arguments: str) -> set[str]:
        return {explanation["setting"] for explanation in check(*arguments).explanations}

    assert "tool killall" in told("--board", "--explain") - told("--explain")


def test_it_changes_nothing(tool: Path, open_directory: Path, tmp_path: Path) -> None:
    for name in TOOLS:
        write_script(open_directory / "tools-of-test" / name, f": >{tmp_path}/called-{name}")
    trace = tmp_path / "trace"
    calls = "%file,connect,sendto,ioctl,kill,reboot,ftruncate,fchmod,fchown"
    found = run(tool, "--user", "nobody", "--app", "/bin/true",
                before=[shutil.which("strace") or "", "-f", "-e", f"trace={calls}", "-o", trace],
                path=open_directory / "tools-of-test")
    assert "error marker-directory" in found or Path("/home/root").exists()
    lines = trace.read_text("utf-8").splitlines()
    executed = [line for line in lines if " execve" in line]
    assert len(executed) == 1 and str(tool) in executed[0]
    writing = r" (open\w*|creat)\(.*(O_WRONLY|O_RDWR|O_CREAT|O_TRUNC)"
    changing = (r" (unlink|mkdir|rmdir|rename|link|symlink|mknod|chmod|fchmod|chown|fchown|lchown"
                r"|truncate|ftruncate|utime|setxattr|mount|umount|reboot|kill|sendto)\w*\(")
    assert [line for line in lines if re.search(f"{writing}|{changing}", line)] == []
    # The C library asks its own cache, where there is one, for the account.
    assert [line for line in lines if " connect(" in line and "nscd" not in line] == []
    # To open the device is to start it.
    assert [line for line in lines if " open" in line and "/dev/watchdog" in line] == []
    assert not list(tmp_path.glob("called-*"))


@pytest.mark.parametrize("body", ["exec sleep 1000", "exec yes"])
def test_a_tool_that_hangs_is_given_up(tool: Path, open_directory: Path, body: str) -> None:
    directory = open_directory / "tools-of-test"
    for name in ("sleep", "yes"):
        directory.mkdir(exist_ok=True)
        (directory / name).symlink_to(shutil.which(name) or "")
    write_script(directory / "fw_setenv", ":")
    write_script(directory / "fw_printenv", body)
    assert "warning boot-environment" in run(tool, path=directory)


def test_without_process_table_and_system_table(tool: Path) -> None:
    hide = "mount -t tmpfs none /proc && mount -t tmpfs none /sys && exec \"$@\""
    before = ["unshare", "--mount", "sh", "-c", hide, "sh"]
    if subprocess.run([*before, "true"], capture_output=True, check=False).returncode:
        pytest.skip("mounting is not allowed")
    assert "error proc-missing" in run(tool, before=before)
    assert "error proc-missing" not in run(tool)


@AS_ROOT
def test_another_account_says_what_it_cannot_see(tool: Path) -> None:
    ordinary = run(tool, "--user", "nobody", "--app", "/bin/true", before=[
        "setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"])
    assert ordinary[0] == "warning not-root"
    assert not {"warning real-time", "error reboot-right", "error account-rights"} & {*ordinary}
    assert "warning not-root" not in run(tool)


@AS_ROOT
@pytest.mark.parametrize(("name", "finding"), [
    ("sys_nice", "warning real-time"), ("sys_boot", "error reboot-right"),
    ("setuid", "error account-rights")])
def test_rights_that_were_taken_away(tool: Path, name: str, finding: str) -> None:
    arguments = ("--user", "nobody", "--app", "/bin/true")
    limited = ["prlimit", "--rtprio=0:0", *without(name)]
    assert finding in run(tool, *arguments, before=limited)
    if has_capability(name):
        assert finding not in run(tool, *arguments)


@AS_ROOT
def test_an_application_that_the_account_may_not_execute(tool: Path, open_directory: Path) -> None:
    closed = open_directory / "closed"
    for name, directory, mode in (("all", open_directory, 0o755), ("root", open_directory, 0o700),
                                  ("unreachable", closed, 0o755)):
        write_script(directory / name, ":", mode)
    closed.chmod(0o700)

    def finds(application: Path) -> bool:
        return "error account-application" in run(tool, "--user", "nobody", "--app",
                                                  str(application))

    assert not finds(open_directory / "all")
    assert finds(open_directory / "root")
    assert finds(closed / "unreachable")
    # One that nobody can execute is told once.
    (closed / "unreachable").chmod(0o644)
    assert not finds(closed / "unreachable")
    assert "error application" in run(tool, "--app", str(closed / "unreachable"))
