# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""How a run comes to its end, and how that is told; what the application has of the guard."""

from __future__ import annotations

import os
import re
import signal
import subprocess
import time
from contextlib import suppress
from pathlib import Path

import pytest

from guarding import TIME_LIMIT, Guard, Running
from simulator import wait_until


@pytest.mark.parametrize("status", [0, 1, 42, 255])
def test_the_status_is_the_applications(guard: Guard, status: int) -> None:
    ended = guard.run("exit", str(status))
    assert ended.status == status
    assert ended.end == f"guard: ended: status {status} after N s, peak N kB"
    assert len(ended.errors) == 1


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL, signal.SIGHUP])
def test_the_signal_is_the_applications(guard: Guard, number: signal.Signals) -> None:
    ended = guard.run("signal", str(number.value))
    assert ended.status == -number
    assert ended.end == f"guard: ended: signal {number.value} ({number.name}) after N s, peak N kB"


def test_a_signal_without_a_name_has_a_number(guard: Guard) -> None:
    number = signal.SIGRTMIN + 3
    ended = guard.run("signal", str(number), options=("--stacks", ""))
    assert ended.status == -number
    assert ended.end.startswith(f"guard: ended: signal {number} (SIGRTMIN+3) after")


def test_time_and_memory_are_told(guard: Guard) -> None:
    ended = guard.run("use-memory", "60000", "sleep", "1100")
    found = re.fullmatch(r"guard: ended: status 0 after (\d+) s, peak (\d+) kB", ended.errors[-1])
    assert found
    assert int(found[1]) >= 1
    assert 60000 <= int(found[2]) < 120000


def test_the_last_status_text_is_told(guard: Guard) -> None:
    ended = guard.run("notify", "STATUS=one\\nREADY=1", "notify",
                      "STATUS=two ü ==x\t\x1b[1m\x7f\x9b\xa0.")
    assert ended.end == \
        "guard: ended: status 0 after N s, peak N kB, last status: two ü ==x??[1m??\xa0."


def test_a_status_text_that_is_no_utf8_is_told_as_ascii(guard: Guard) -> None:
    for text in ("a\udcc3", "a\udcff", "\udc80a", "\udce4\udcb8a", "\udcf8\udc80\udc80\udc80"):
        ended = guard.run("notify", "STATUS=" + text)
        told = "".join("?" if char > "~" else char for char in text)
        assert ended.end.endswith(f", last status: {told}")


def test_a_long_status_text_is_cut_between_characters(guard: Guard) -> None:
    ended = guard.run("notify", "STATUS=x" + "ü" * 1000)
    text = ended.errors[-1].split("last status: ")[1]
    assert text == "x" + "ü" * ((len(text.encode()) - 1) // 2) and len(text) > 100


def test_a_message_that_is_too_long_is_dropped(guard: Guard) -> None:
    longest = "STATUS=longest\\nX=" + "x" * (4096 - len("STATUS=longest X="))
    assert guard.run("notify", longest).end.endswith(", last status: longest")
    assert "last status" not in guard.run("notify", longest + "x").end


def _injected(guard: Guard, tmp_path: Path, fault: str, *behaviours: str,
              options: tuple[str, ...] = ()) -> Running:
    """A run in which a system call of the guard fails."""
    return Running(["strace", "-o", str(tmp_path / "trace"), "-e", f"inject={fault}",
                    *guard.command(*behaviours, options=("--stacks", "", *options))],
                   env=os.environ | {"ASAN_OPTIONS": "detect_leaks=0"})  # it would trace, too


def test_without_a_socket_no_hang_is_looked_for(guard: Guard, tmp_path: Path) -> None:
    ended = _injected(guard, tmp_path, "socket:error=EMFILE", "environment", "NOTIFY_SOCKET",
                      "environment", "WATCHDOG_USEC", "sleep", "1500",
                      options=("--timeout", "1")).end()
    assert ended.output == ["NOTIFY_SOCKET=(unset)", "WATCHDOG_USEC=(unset)"]
    assert ended.told == ["guard: no hang is looked for: there is no notification socket: "
                          "Too many open files"]
    assert ended.status == 0


def test_without_a_descriptor_for_signals_they_are_read_later(
        guard: Guard, tmp_path: Path) -> None:
    running = _injected(guard, tmp_path, "signalfd4:error=ENOSYS", "handle", "15", "ids",
                        "await-signal", "exit", "3")
    os.kill(int(running.line().split()[3]), signal.SIGTERM)
    ended = running.end()
    assert ended.output == ["handled 15"]
    assert ended.told == ["guard: signals and ends are noticed up to a second late: "
                          "Function not implemented"]
    assert ended.status == 3


def test_an_application_that_cannot_be_started_ends_with_255(guard: Guard, tmp_path: Path) -> None:
    ended = _injected(guard, tmp_path, "fork,vfork,clone,clone3:error=EAGAIN", "exit", "0").end()
    assert ended.errors == ["guard: cannot start the application: Resource temporarily unavailable"]
    assert ended.status == 255


def test_the_guard_leaves_no_core(guard: Guard, tmp_path: Path) -> None:
    # A core that the application itself leaves would have the same name, so it must not leave one.
    tracer = ["strace", "-f", "-o", str(tmp_path / "trace"), "-e", "trace=prctl,prlimit64"]
    subprocess.run([*tracer, *guard.command("abort", options=("--stacks", ""))], check=False,
                   capture_output=True)
    trace = (tmp_path / "trace").read_text("utf-8")
    assert "PR_SET_DUMPABLE, SUID_DUMP_DISABLE) = 0" in trace
    assert re.search(r"RLIMIT_CORE, {rlim_cur=0, rlim_max=0}, NULL\) = 0", trace)


def test_a_program_that_cannot_be_executed_ends_with_255(guard: Guard) -> None:
    ended = Running([str(guard.program), "--", "/nowhere/product", "x"]).end()
    assert ended.status == 255
    assert ended.told == ["guard: cannot execute /nowhere/product: No such file or directory"]
    assert ended.end == "guard: ended: status 255 after N s, peak N kB"


def test_the_application_is_found_in_the_path(guard: Guard) -> None:
    ended = Running([str(guard.program), "--", "sh", "-c", "exit 7"]).end()
    assert (ended.status, len(ended.errors)) == (7, 1)


@pytest.mark.parametrize("arguments, message", [
    ([], "no application is named"),
    (["--"], "no application is named"),
    (["--timeout", "1"], "no application is named"),
    (["--timeout"], "--timeout needs a value"),
    (["--timeout", "1s", "true"], "--timeout cannot be: 1s"),
    (["--timeout", "", "true"], "--timeout cannot be: "),
    (["--startup=-1", "true"], "--startup cannot be: -1"),
    (["--grace=9999999999", "true"], "--grace cannot be: 9999999999"),
    (["--restart-on", "1,,2", "true"], "--restart-on cannot be: 1,,2"),
    (["--restart-on", "256", "true"], "--restart-on cannot be: 256"),
    (["--restart-on", "3,", "true"], "--restart-on cannot be: 3,"),
    (["--quick", "true"], "unknown option: --quick"),
    (["-x", "true"], "unknown option: -x"),
    (["--help=1"], "unknown option: --help=1"),
])
def test_wrong_usage(guard: Guard, arguments: list[str], message: str) -> None:
    ended = Running([str(guard.program), *arguments]).end()
    assert ended.status == 64
    assert ended.errors == [f"pynx-watchdog-guard: {message}", "Try pynx-watchdog-guard --help."]


def test_help_and_version(guard: Guard) -> None:
    told = Running([str(guard.program), "--help"]).end()
    assert told.status == 0 and not told.errors
    assert told.output[0] == \
        "Usage: pynx-watchdog-guard [OPTION]... -- APPLICATION [ARGUMENT]..."
    told = Running([str(guard.program), "--version"]).end()
    assert told.status == 0
    assert re.fullmatch(r"pynx-watchdog-guard \d+\.\d+\.\d+", "\n".join(told.output))


def test_the_application_has_the_guards_channels_and_group(guard: Guard) -> None:
    running = guard.start("ids", "say", "before", "read", "say", "after")
    ids = running.line().split()
    assert ids[3] == str(running.process.pid)
    assert ids[5] == str(os.getpgid(running.process.pid))
    for channel in (0, 1, 2):
        assert os.readlink(f"/proc/{ids[1]}/fd/{channel}") \
            == os.readlink(f"/proc/{running.process.pid}/fd/{channel}")
    assert sorted(os.listdir(f"/proc/{ids[1]}/fd")) == ["0", "1", "2"]
    assert running.end().output == ["before", "after"]


def test_the_application_has_the_signals_that_the_guard_was_given(guard: Guard) -> None:
    def set_signals() -> None:
        signal.pthread_sigmask(signal.SIG_SETMASK, {signal.SIGUSR1})
        signal.signal(signal.SIGHUP, signal.SIG_IGN)
        signal.signal(signal.SIGCHLD, signal.SIG_IGN)
        signal.signal(signal.SIGPIPE, signal.SIG_DFL)

    plain = subprocess.run([guard.application, "signals"], preexec_fn=set_signals, check=True,
                           capture_output=True, encoding="utf-8")
    ended = guard.run("signals", "exit", "3", preexec_fn=set_signals)
    assert ended.output == plain.stdout.splitlines()
    assert ended.status == 3  # it is known in spite of the ignored SIGCHLD


def test_closed_channels_stay_closed_for_the_application(guard: Guard) -> None:
    script = "for i in 0 1 2; do [ ! -e /proc/$$/fd/$i ] || exit 1$i; done; exit 3"
    done = subprocess.run(["sh", "-c", '"$@" <&- >&- 2>&-', "sh", guard.program, "--timeout", "60",
                           "--", "sh", "-c", script], check=False, timeout=TIME_LIMIT)
    assert done.returncode == 3


def _is_gone(process: int) -> bool:
    """Whether there is no such process, or only a zombie that nobody collects."""
    try:
        return Path(f"/proc/{process}/stat").read_text("utf-8").split(") ")[-1][0] == "Z"
    except (FileNotFoundError, ProcessLookupError):
        return True


@pytest.mark.parametrize("options", [(), ("--stacks", "")], ids=["traced", "untraced"])
def test_the_application_dies_with_the_guard(guard: Guard, options: tuple[str, ...]) -> None:
    running = guard.start("ids", "wait", options=options)
    process = int(running.line().split()[1])
    running.send(signal.SIGKILL)
    assert running.end().status == -signal.SIGKILL
    wait_until(lambda: _is_gone(process), "the end of the application")


def test_signals_are_passed_on(guard: Guard) -> None:
    for number in (signal.SIGUSR1, signal.SIGTERM, signal.SIGHUP, signal.SIGALRM):
        running = guard.start("handle", str(number.value), "say", "ready", "await-signal",
                              "exit", "9")
        assert running.line() == "ready"
        running.send(number)
        ended = running.end()
        assert ended.output == [f"handled {number.value}"]
        assert ended.status == 9


def test_a_signal_to_the_process_group_comes_once(guard: Guard) -> None:
    """The guard does not pass on what the application got itself."""
    for _ in range(20):
        running = guard.start("handle", "15", "say", "ready", "await-signal", "sleep", "100",
                              start_new_session=True)
        assert running.line() == "ready"
        os.killpg(running.process.pid, signal.SIGTERM)
        ended = running.end()
        assert ended.output == ["handled 15"]
        assert ended.status == 0


@pytest.mark.parametrize("options, output", [
    ((), ["epoll_wait: Interrupted system call"]), (("--stacks", ""), [])],
    ids=["traced", "untraced"])
def test_an_ignored_signal_ends_a_wait_if_it_is_traced(guard: Guard, options: tuple[str, ...],
                                                       output: list[str]) -> None:
    """So the kernel does it. The manual says it."""
    running = guard.start("ids", "epoll", options=options)
    process = int(running.line().split()[1])
    assert running.line() == "waiting"
    with suppress(ProcessLookupError):
        for _ in range(200 if output else 5):
            os.kill(process, signal.SIGCHLD)
            time.sleep(0.05)
        running.send(signal.SIGTERM)
    assert running.end().output == output


def test_a_second_signal_is_passed_on_too(guard: Guard) -> None:
    running = guard.start("handle", "15", "say", "ready", "wait")
    assert running.line() == "ready"
    for _ in range(3):
        running.send(signal.SIGTERM)
        assert running.line() == "handled 15"
    running.send(signal.SIGKILL)
    running.end()


def test_it_waits_for_an_application_that_takes_its_time_to_end(guard: Guard) -> None:
    running = guard.start("handle", "15", "say", "ready", "await-signal",
                          "notify", "WATCHDOG_USEC=500000", "sleep", "1500", "say", "saved",
                          "exit", "0", options=("--timeout", "600"))
    assert running.line() == "ready"
    running.send(signal.SIGTERM)
    ended = running.end()
    assert ended.output == ["handled 15", "saved"]
    assert ended.status == 0 and not ended.told


def test_a_named_status_is_started_again(guard: Guard, tmp_path: Path) -> None:
    script = f'''read -r time rest </proc/uptime; echo $time >>{tmp_path}/runs
        [ $(wc -l <{tmp_path}/runs) -lt 3 ] && exit 42; exit 5'''
    ended = Running([str(guard.program), "--restart-on", "41,42", "--", "sh", "-c", script]).end()
    assert ended.status == 5
    assert [re.sub(r"after.*", "", line) for line in ended.errors] \
        == ["guard: ended: status 42 "] * 2 + ["guard: ended: status 5 "]
    runs = (tmp_path / "runs").read_text("ascii").replace(".", "").split()
    assert all(int(later) - int(run) >= 100 for run, later in zip(runs, runs[1:]))  # 1/100 s


def test_a_signal_between_two_runs_ends_the_guard(guard: Guard) -> None:
    running = guard.start("say", "run", "exit", "42", options=("--restart-on", "42"))
    assert running.line() == "run"
    assert running.process.stderr
    running.process.stderr.readline()
    running.send(signal.SIGTERM)
    assert running.end().status == -signal.SIGTERM


def test_an_application_that_was_told_to_end_is_not_started_again(guard: Guard) -> None:
    running = guard.start("handle", "15", "say", "ready", "await-signal", "exit", "42",
                          options=("--restart-on", "42"))
    assert running.line() == "ready"
    running.send(signal.SIGTERM)
    assert running.end().status == 42


def test_a_hang_is_an_end_for_the_supervisor_whatever_its_status(guard: Guard) -> None:
    ended = guard.run("handle", "6", "notify", "WATCHDOG=trigger", "await-signal", "exit", "42",
                      options=("--restart-on", "42"))
    assert ended.status == 42
    assert len(ended.told) == 1
