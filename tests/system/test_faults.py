# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""System calls and tools of the supervisor that fail or hang; docs/faults.md lists them all."""

from __future__ import annotations

import os
import re
import signal
from collections.abc import Sequence
from pathlib import Path
from typing import Any, Protocol

import pytest

from starting import Start
from logs import LOG, OLD_LOG, complaints, content
from marks import AS_ROOT, DISPATCHERS, GUARD_TELLS_THE_END
from settings import reporting
from simulator import Bind, wait_until
from simulator.device import Device
from simulated_devices import DeviceFactory

SNAPSHOTS = "/tmp/log/system"
MARKER = "/home/root/ro-test"
START_ERROR = "Error occured during process startup, code: "
HANGS = "delay_enter=600000000"  # microseconds: longer than any test


class Failing(Protocol):
    """Switches on a device as `start` does, with one kind of system call that fails or hangs.

    The injection has the syntax of strace. With a path it affects only calls on that file. It
    affects the supervisor's threads and children too, or with `alone` only its main thread.
    """

    def __call__(self, injection: str, path: str | None = None, *behaviours: str,
                 alone: bool = False, **options: Any) -> Device: ...


def strace(injection: str, path: str | None = None, alone: bool = False,
           environment: dict[str, str] | None = None) -> dict[str, Any]:
    """Options of a device on which calls fail or hang; see `Failing`."""
    return {"launcher": ["strace", "-D", "-qqq", "-o", "/dev/null",
                         "-e", f"trace={injection.partition(':')[0]}", "-e", f"inject={injection}",
                         *([] if path is None else ["-P", path]),
                         *([] if alone else ["-f", "--seccomp-bpf"])],
            # Only one process can trace another, and the search for leaks at the end traces too.
            "environment": {"ASAN_OPTIONS": "detect_leaks=0", **(environment or {})}}


@pytest.fixture
def failing(start: Start) -> Failing:
    """failing("write:error=EIO", LOG, "print", "lost\\n"): a device whose calls fail."""

    def make(injection: str, path: str | None = None, *behaviours: str, alone: bool = False,
             environment: dict[str, str] | None = None, **options: Any) -> Device:
        return start(*behaviours, **strace(injection, path, alone, environment), **options)

    return make


def shell(redirection: str) -> list[str]:
    """A launcher that redirects the supervisor's descriptors."""
    return ["bash", "-c", f'exec "$@" {redirection}', "bash"]


FILLED_PIPE = """if True:
    import os, sys
    reader, writer = os.pipe()
    os.set_inheritable(reader, True)
    os.set_blocking(writer, False)
    try:
        while True:
            os.write(writer, bytes(4096))
    except BlockingIOError:
        os.set_blocking(writer, True)
    os.dup2(writer, int(sys.argv[1]))
    os.execvp(sys.argv[2], sys.argv[2:])
"""
"""Makes a descriptor a full pipe without a reader and executes the supervisor."""

BROKEN_PIPE = """if True:
    import os, signal, sys
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # Python ignores it, which would be inherited
    reader, writer = os.pipe()
    os.close(reader)
    os.dup2(writer, 1)
    os.dup2(writer, 2)
    os.execvp(sys.argv[1], sys.argv[1:])
"""
"""Makes output and error a pipe whose reader has closed it, and executes the supervisor."""


def tools(directory: Path, **scripts: str) -> dict[str, Any]:
    """Options of a device whose PATH has these scripts first."""
    for name, script in scripts.items():
        (directory / name).write_text(f"#!/bin/sh\n{script}\n")
        (directory / name).chmod(0o755)
    return {"binds": [Bind(str(directory), "/tmp/tools")],
            "environment": {"PATH": "/tmp/tools:/run/simulator/tools:/run/simulator/commands"}}


def is_fed(running: Device) -> None:
    """Waits for the feed at the start and two feeds of the timer."""
    running.wait_for("watchdog device", "KEEPALIVE", count=3)


def is_reset(running: Device) -> None:
    """Waits until the watchdog device has reset the board and the board boots again."""
    expired = running.wait_for("watchdog device", "expired", timeout=120)
    running.wait_for("boot loader", starts=True, after=expired)


# -- the log -------------------------------------------------------------------------------------


@pytest.mark.parametrize("error", ["EACCES", "EIO", "EMFILE", "ENOSPC"])
def test_a_log_that_cannot_be_opened_ends_the_start(failing: Failing, error: str) -> None:
    running = failing(f"openat:error={error}", LOG, "print", "started\\n")
    assert running.wait_supervisor_exit() == 1
    assert running.stderr == f"Can't open file : {LOG}\n".encode()
    assert not running.events("system log")


@pytest.mark.parametrize("error", ["EIO", "ENOSPC"])
def test_what_cannot_be_written_into_the_log_is_lost_silently(failing: Failing, error: str) -> None:
    running = failing(f"write:error={error}", LOG, "print", "lost\\n", "exit", "7",
                      options=["--rotateOnly", "--singleRun"])
    assert running.wait_supervisor_exit() == 7
    assert (running.stdout, running.stderr, content(running)) == (b"", b"", b"")


ROTATED_LOG = """
    echo older >/tmp/log/application.log.0
    seq 1000
    while grep -qs older /tmp/log/application.log.0; do sleep 0.02; done
    echo in the new log
"""
"""An application that fills its log and prints a line when the rotation has begun."""


@GUARD_TELLS_THE_END
def test_a_log_that_cannot_be_renamed_is_rotated_by_copying(failing: Failing) -> None:
    running = failing("renameat2:error=EIO", LOG, log_size="2k",
                      options=["--rotateOnly", "--singleRun"],
                      application=["/bin/sh", "-c", ROTATED_LOG])
    assert running.wait_supervisor_exit() == 0
    assert running.stderr == b""
    assert content(running, OLD_LOG).endswith(b"\n1000\n")
    assert content(running) == b"in the new log\n"


@GUARD_TELLS_THE_END
def test_a_rotation_begins_with_an_empty_file_whatever_is_there(failing: Failing) -> None:
    # The rename does nothing but succeeds, as if another program had made the file again.
    running = failing("renameat2:retval=0", LOG, log_size="2k",
                      options=["--rotateOnly", "--singleRun"],
                      application=["/bin/sh", "-c", ROTATED_LOG])
    assert running.wait_supervisor_exit() == 0
    assert content(running) == b"in the new log\n"


FILLED_LOG = """
    echo older >/tmp/log/application.log.0
    seq 1000
    while ls -l /proc/$PPID/fd | grep -q application.log; do sleep 0.02; done
    echo echoed
"""
"""An application that fills its log and prints a line while the file is closed."""


@GUARD_TELLS_THE_END
@pytest.mark.parametrize("injection, path, message", [
    ("unlink:error=EIO", OLD_LOG, f"Can't rename file from:{LOG} to:{OLD_LOG}\n"),
    ("openat:error=EMFILE:when=2+", LOG, f"Can't open file : {LOG}\n"),
    ("openat:error=ENOSPC:when=2+", LOG, f"Can't open file : {LOG}\n"),
])
def test_a_rotation_that_fails_is_told_and_the_rest_echoed(
        failing: Failing, injection: str, path: str, message: str) -> None:
    running = failing(injection, path, log_size="2k", options=["--rotateOnly", "--singleRun"],
                      application=["/bin/sh", "-c", FILLED_LOG])
    assert running.wait_supervisor_exit() == 0
    assert running.stderr == message.encode()
    assert running.stdout == b"echoed\n"


@pytest.mark.parametrize("injection, path", [
    (f"write:{HANGS}", LOG), (f"fsync:{HANGS}", None), (f"openat:{HANGS}", MARKER),
], ids=["the log", "the snapshots", "the marker"])
def test_a_file_system_that_hangs_is_ended_by_a_reset(
        failing: Failing, injection: str, path: str) -> None:
    is_reset(failing(injection, path, "print", "hello\\n", "wait"))


# -- the snapshots, the marker, reports ----------------------------------------------------------


@pytest.mark.parametrize("error, text", [
    ("EACCES", "Permission denied"), ("EMFILE", "Too many open files"),
    ("ENOSPC", "No space left on device")])
def test_snapshots_that_cannot_be_opened_are_told_every_time(
        failing: Failing, error: str, text: str) -> None:
    running = failing(f"openat:error={error}", SNAPSHOTS, "wait", alone=True)
    running.wait_for("supervisor", f"Cannot open file : {SNAPSHOTS} : err : {text} ", count=2)
    is_fed(running)


def test_snapshots_that_cannot_be_written_leave_an_empty_file(failing: Failing) -> None:
    running = failing("write:error=ENOSPC", SNAPSHOTS, "wait", alone=True)
    is_fed(running)
    assert running.host_path(SNAPSHOTS).read_bytes() == b""
    assert complaints(running) == b""


def test_a_sync_that_fails_is_not_noticed(failing: Failing) -> None:
    running = failing("fsync:error=EIO", None, "wait", alone=True)
    wait_until(lambda: b"top - " in content(running, SNAPSHOTS), "the snapshots")
    assert complaints(running) == b""


@pytest.mark.parametrize("injection", ["openat:error=EACCES", "openat:error=EIO",
                                       "openat:error=EMFILE", "openat:error=ENOSPC",
                                       "unlink:error=EIO"])
def test_a_marker_that_cannot_be_made_or_removed_reboots_the_board(
        failing: Failing, injection: str) -> None:
    running = failing(injection, MARKER, "wait", alone=True, tools={"reboot": "return"})
    running.wait_for("tool", "reboot -f")
    assert b"Detected filesystem in read-only mode. Rebooting\n" in running.stderr
    assert not running.events("tool", "sfuflags")


def test_a_tar_that_hangs_holds_up_nothing_else(start: Start, tmp_path: Path) -> None:
    script = 'case $2 in *stuck*) exec sleep 3600 ;; esac; exec /usr/bin/tar "$@"'
    # The second request is repeated, because in one piece of output with the first it is missed.
    requests = "echo ==Report==stuck; while sleep 0.2; do echo ==Report==good; done"
    running = start(application=["/bin/sh", "-c", requests],
                    settings=reporting([LOG]), **tools(tmp_path, tar=script))
    upload = running.host_path("/tmp/upload")
    wait_until(lambda: list(upload.glob("report-good-*.tar.gz")), "the second archive")
    assert not list(upload.glob("*stuck*.tar.gz"))
    is_fed(running)


# -- processes and threads -----------------------------------------------------------------------


@pytest.mark.parametrize("injection", ["clone:error=ENOMEM", *(f"pipe2:error=EMFILE:when={number}"
                                                               for number in range(1, 5))])
def test_an_application_that_cannot_be_forked_ends_the_start(
        failing: Failing, sanitized: bool, injection: str) -> None:
    if sanitized and injection.startswith("pipe2"):
        pytest.skip("the sanitizer makes pipes of its own")
    running = failing(injection, None, "wait", alone=True)
    assert running.wait_supervisor_exit() == 1
    running.wait_for("system log", START_ERROR + "0")


@DISPATCHERS
def test_a_supervisor_without_an_event_loop_ends_at_once(
        failing: Failing, environment: dict[str, str]) -> None:
    running = failing("eventfd2,pipe2:error=EMFILE", None, "wait", alone=True,
                      environment=environment)
    assert running.wait_supervisor_exit() in (-signal.SIGABRT, -signal.SIGTRAP)
    assert not running.events("watchdog device")


def test_an_application_that_is_not_up_in_time_ends_the_start(
        device: DeviceFactory, sample: str) -> None:
    # The child lists its descriptors before its exec; here that takes two seconds.
    running = device(arguments=["--rotateOnly", "--app", sample, "print", "started\\n"],
                     **strace("openat:delay_enter=2000000", "/proc/self/fd"))
    started = running.wait_for("simulator", "supervisor started")
    told = running.wait_for("system log", START_ERROR + "2")
    assert told.monotonic - started.monotonic >= 0.5
    assert running.wait_supervisor_exit() == 1
    assert b"started\n" not in running.stdout


def test_a_restart_that_fails_leaves_the_board_up_and_confirmed_without_application(
        failing: Failing) -> None:
    # The second fork is for killall.
    running = failing("clone:error=EAGAIN:when=3", None, "sleep", "1", alone=True)
    running.wait_for("system log", START_ERROR + "0")
    running.wait_for("tool", "sfuflags -f boot_count -v 0")
    is_fed(running)
    assert running.boot_state.fail == 0
    assert content(running).count(b"Starting app") == 2


def test_a_killall_and_a_reboot_that_cannot_be_forked_are_passed_over(failing: Failing) -> None:
    # The second fork is for the first killall, the seventh for the reboot.
    running = failing("clone:error=EAGAIN:when=2+5", None, "exit", "0", alone=True)
    running.wait_for("system log", "Restarting process", count=4)
    assert running.stderr.count(b"Critical FW error, rebooting.\n") == 1
    assert not running.events("tool", "reboot")


def test_a_tool_that_cannot_be_forked_is_told_like_one_that_fails(failing: Failing) -> None:
    running = failing("clone:error=EAGAIN:when=2+", None, "wait", alone=True)
    application = running.application()
    running.wait_for("system log", START_ERROR + "0")
    wait_until(lambda: content(running, SNAPSHOTS), "the snapshots")
    assert content(running, SNAPSHOTS).strip(b"\n") == b""
    is_fed(running)
    assert running.application().pid == application.pid


@pytest.mark.parametrize("tool", ["killall", "reboot"])
def test_a_tool_that_is_waited_for_without_limit_and_hangs_is_followed_by_a_reset(
        start: Start, tool: str) -> None:
    is_reset(start("exit", "0", tools={tool: "hang"}))


def test_a_thread_that_cannot_be_made_is_followed_by_a_reset(failing: Failing) -> None:
    running = failing("clone3:error=EAGAIN", None, "wait", alone=True)
    running.wait_for("supervisor", "QThread::start: Thread creation error")
    is_reset(running)
    assert not running.events("watchdog device", "KEEPALIVE")


@pytest.mark.parametrize("poll, environment", [("poll", {}), ("ppoll", {"QT_NO_GLIB": "1"})],
                         ids=["glib", "Qt's own loop"])
def test_a_wait_for_events_that_fails_is_repeated(
        failing: Failing, poll: str, environment: dict[str, str]) -> None:
    running = failing(f"{poll}:error=ENOMEM:when=1..9+2", None, "sleep", "1", "print", "heard\\n",
                      "wait", alone=True, environment=environment)
    wait_until(lambda: b"heard\n" in content(running), "the application's line")
    is_fed(running)


@pytest.mark.parametrize("injection, path, message, identity", [
    pytest.param("openat:error=EMFILE", "/etc/passwd", b"", b"uid 0 euid 0 gid 0 egid 0",
                 id="not found"),
    pytest.param("setgroups:error=EPERM", None, b"Cannot initialize supplementary groups\n",
                 b"uid 1 euid 1 gid 1 egid 1", id="its groups are not taken on"),
    pytest.param("setregid:error=EPERM", None, b"Cannot change user/group\n",
                 b"uid 0 euid 0 gid 0 egid 0", id="its group is not switched to"),
    pytest.param("setreuid:error=EAGAIN", None, b"Cannot change user/group\n",
                 b"uid 0 euid 0 gid 1 egid 1", id="not switched to"),
])
@AS_ROOT
def test_an_account_that_cannot_be_used_leaves_the_application_the_rights_it_still_has(
        failing: Failing, injection: str, path: str | None, message: bytes,
        identity: bytes) -> None:
    running = failing(injection, path, "identity", options=["--singleRun", "--rotateOnly", "--user",
                                                            "daemon"])
    assert running.wait_supervisor_exit() == 0
    written = content(running)
    assert re.findall(rb"^Cannot .*\n", written, re.M) == [message] * bool(message)
    assert re.search(rb"^" + identity + b" groups", written, re.M)
    assert (b"Failed to get info about user: daemon\n" in running.stderr) == (path is not None)


# -- the watchdog device and the standard descriptors --------------------------------------------


def test_a_device_that_another_holds_counts_as_missing(start: Start, sample: str) -> None:
    running = start("wait")
    running.wait_for("watchdog device", "KEEPALIVE")
    done = running.run(["env", "LD_PRELOAD=/run/simulator/libwatchdogdevice.so",
                        "/supervisor/watchdog", "--singleRun", "--app", sample, "exit", "7"])
    assert done.status == 7
    assert b"Watchdog device doesn't exist!!!\n" in done.stderr


# The simulated device's library sends an ioctl with sendto().
def test_a_time_out_that_is_refused_leaves_the_drivers_own(failing: Failing) -> None:
    running = failing("sendto:error=EIO:when=1", None, "wait", alone=True)
    is_fed(running)
    assert not running.events("watchdog device", "SETTIMEOUT")


def test_a_feed_that_is_refused_is_followed_by_a_reset(failing: Failing) -> None:
    running = failing("sendto:error=EIO:when=2+", None, "wait", alone=True)
    is_reset(running)
    assert complaints(running) == b""


@pytest.mark.parametrize("redirection", ["<&-", "<&- >&- 2>&-"], ids=["input", "all three"])
@DISPATCHERS
def test_without_standard_descriptors_the_device_is_armed_and_fed(
        start: Start, redirection: str, environment: dict[str, str]) -> None:
    # The event loop has opened descriptor 0 before the device is opened.
    running = start("wait", launcher=shell(redirection), environment=environment)
    is_fed(running)
    assert running.events("watchdog device", "SETTIMEOUT")[0]["argument"] == 30


@pytest.mark.parametrize("launcher", [shell(">/dev/full 2>/dev/full"), shell(">&- 2>&-"),
                                      ["python3", "-c", BROKEN_PIPE]],
                         ids=["full", "closed", "reader gone"])
def test_messages_that_nobody_takes_are_lost(
        device: DeviceFactory, sample: str, launcher: Sequence[str]) -> None:
    running = device(arguments=["--user", "no-such-account", "--app", sample, "flood", "20000",
                                "1000", "wait"], launcher=launcher)
    is_fed(running)
    assert running.application().pid


@pytest.mark.parametrize("descriptor, end", [("1", ["wait"]), ("2", ["exit", "0"])],
                         ids=["output", "error"])
def test_a_reader_that_hangs_is_followed_by_a_reset(
        device: DeviceFactory, sample: str, descriptor: str, end: list[str]) -> None:
    # The supervisor prints the application's output, and killall finds no process. An end of the
    # application would interrupt the printing of its output.
    running = device(arguments=["--app", sample, "flood", "20000", "1000", *end],
                     launcher=["python3", "-c", FILLED_PIPE, descriptor])
    is_reset(running)


def test_without_system_log_its_messages_are_lost(start: Start) -> None:
    running = start("sleep", "1")
    running.run(["rm", "/dev/log"])
    running.wait_for("tool", "reboot -f")
    assert not running.events("system log")


SILENT_SYSTEM_LOG = """if True:
    import os, socket, time
    os.unlink("/dev/log")
    reader = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    reader.bind("/dev/log")
    writer = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_NONBLOCK)
    writer.connect("/dev/log")
    try:
        while True:
            writer.send(b"x")
    except BlockingIOError:
        print("filled", flush=True)
    if os.fork() == 0:
        os.setsid()
        time.sleep(3600)
"""
"""A system log that is full and no longer read."""


def test_a_system_log_that_hangs_is_followed_by_a_reset(start: Start) -> None:
    running = start("sleep", "2")
    assert running.run(["python3", "-c", SILENT_SYSTEM_LOG]).stdout == b"filled\n"
    is_reset(running)


# -- settings, memory ----------------------------------------------------------------------------


def test_a_settings_document_that_is_a_fifo_is_waited_for_until_the_reset(start: Start) -> None:
    running = start("wait")
    os.mkfifo(running.host_path("/supervisor/settings/WatchdogMemoryReportingConf.json"))
    running.reset()
    is_reset(running)


def test_a_supervisor_without_memory_aborts_and_the_board_is_reset(
        start: Start, sanitized: bool, tmp_path: Path) -> None:
    if sanitized:
        pytest.skip("a sanitizer needs more address space than any limit")
    running = start("wait", launcher=["prlimit", f"--as={300 << 20}"],
                    **tools(tmp_path, free="head -c 200M /dev/zero | tr '\\0' x"))
    running.wait_for("supervisor", "std::bad_alloc")
    is_reset(running)


def test_what_a_tool_prints_and_nobody_reads_takes_no_memory(
        start: Start, sanitized: bool, tmp_path: Path) -> None:
    if sanitized:
        pytest.skip("a sanitizer needs more address space than any limit")
    flood = "head -c 400M /dev/zero >&2"
    running = start("print", "==Report==flood\\n", "wait", settings=reporting([LOG]),
                    launcher=["prlimit", f"--as={300 << 20}"],
                    **tools(tmp_path, top=flood, free=flood,
                            tar=f'{flood}; exec /usr/bin/tar "$@"',
                            sfuflags="head -c 400M /dev/zero | tee /dev/stderr; "
                                     'exec /run/simulator/tools/sfuflags "$@"'))
    running.wait_for("tool", "sfuflags -f boot_count -v 0")
    wait_until(lambda: content(running, SNAPSHOTS), "the snapshots")
    wait_until(lambda: list(running.host_path("/tmp/upload").glob("*.tar.gz")), "an archive")
    is_fed(running)
