# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the application inherits from the supervisor: descriptors and identity."""

from __future__ import annotations

import grp
import os
import pwd

from starting import Start
from logs import content
from marks import AS_ROOT, GUARD_TELLS_THE_END
from simulator import Device


def log_of(running: Device, status: int = 0) -> bytes:
    assert running.wait_supervisor_exit() == status
    return content(running)


def test_descriptors_that_the_supervisor_inherited_are_closed_too(start: Start,
                                                                  sample: str) -> None:
    running = start("wait", options=["--rotateOnly"])
    done = running.run(["bash", "-c",
                        "exec 7</dev/null 99</dev/null; /supervisor/watchdog --singleRun "
                        f"--rotateOnly --app {sample} descriptors"])
    assert done.status == 0
    assert done.stdout.endswith(b"\ndescriptors 0 1 2\n")


@GUARD_TELLS_THE_END
@AS_ROOT
def test_the_application_runs_as_the_user_with_its_groups(start: Start) -> None:
    account = pwd.getpwnam("daemon")
    groups = sorted(os.getgrouplist("daemon", account.pw_gid))
    running = start("identity", options=["--singleRun", "--rotateOnly", "--user", "daemon"])
    expected = (f"uid {account.pw_uid} euid {account.pw_uid} gid {account.pw_gid} "
                f"egid {account.pw_gid} groups {' '.join(map(str, groups))}\n")
    assert log_of(running).endswith(expected.encode())


def test_an_unknown_user_is_said_and_the_application_runs_as_before(start: Start) -> None:
    running = start("identity",
                    options=["--singleRun", "--rotateOnly", "--user", "no-such-account"])
    assert b"uid 0 euid 0 " in log_of(running)
    assert running.stderr == b"Failed to get info about user: no-such-account\n"


@AS_ROOT
def test_without_privileges_the_switch_fails_and_the_application_runs_all_the_same(
        start: Start, sample: str) -> None:
    nobody = pwd.getpwnam("nobody").pw_uid
    nogroup = grp.getgrnam("nogroup").gr_gid
    running = start("wait", options=["--rotateOnly"])
    done = running.run(["setpriv", f"--reuid={nobody}", f"--regid={nogroup}", "--clear-groups",
                        "/supervisor/watchdog", "--singleRun", "--rotateOnly", "--user", "daemon",
                        "--app", sample, "identity"])
    assert done.status == 0
    text = done.stdout
    # Each message is a write of its own, so standard output may come between them.
    assert b"\nCannot initialize supplementary groups\n" in text
    assert b"\nCannot change user/group\n" in text
    assert f"uid {nobody} euid {nobody} gid {nogroup} ".encode() in text
