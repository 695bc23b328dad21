# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The command line of ./simulate and its output."""

import base64
import gzip
import json
import os
import pty
import re
import signal
import subprocess
import sys
import tarfile
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest

from simulator import wait_until
from simulator.cli import options
from simulator.cli.follow import ArchiveFollower

from standin import Script

_PROJECT = Path(__file__).resolve().parents[2]
_CLOCK = r"[0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{3}"

Simulate = Callable[..., subprocess.Popen[bytes]]


@pytest.fixture
def build(tmp_path: Path, script: Script, build_directory: Path) -> Path:
    """A build tree whose supervisor is a script, which runs what the test writes into `act`."""
    tree = tmp_path / "build"
    (tree / "simulator").mkdir(parents=True)
    for name in ("settings-default", "packaging", "pynx-watchdog-check",
                 "simulator/libwatchdogdevice.so"):
        (tree / name).symlink_to(build_directory / name)
    script('echo "arguments: $*"; while [ "$1" != --app ]; do shift; done; shift; "$@"',
           "build/watchdog")
    return tree


@pytest.fixture
def simulate(tmp_path: Path, build: Path) -> Iterator[Simulate]:
    """Starts the simulation as ./simulate does after the build, in a directory of the test."""
    started: list[subprocess.Popen[bytes]] = []

    def start(*arguments: str, **keywords: Any) -> subprocess.Popen[bytes]:
        keywords.setdefault("stdout", subprocess.PIPE)
        process = subprocess.Popen(
            [sys.executable, "-B", "-P", "-m", "simulator.cli", "--build-dir", str(build),
             *arguments], cwd=tmp_path, env={**os.environ, "PYTHONPATH": str(_PROJECT)},
            stderr=subprocess.PIPE, stdin=subprocess.DEVNULL, **keywords)
        started.append(process)
        return process

    yield start
    for process in started:
        process.kill()
        process.communicate()


def outcome(process: subprocess.Popen[bytes]) -> tuple[int, str, str]:
    out, err = process.communicate(timeout=120)
    return process.returncode, (out or b"").decode(), err.decode()


@pytest.mark.parametrize(("option", "first"), [
    (["--packaged"], "/supervisor/tools"), ([], "/run/simulator/tools")])
def test_the_boards_tar_stands_behind_that_of_the_package(
        simulate: Simulate, option: list[str], first: str) -> None:
    script = 'echo "first is ${PATH%%:*}"; command -v tar'
    _, out, _ = outcome(simulate(*option, "sh", "-c", script))
    assert f"first is {first}" in out
    assert ("/supervisor/tools/tar" in out) == bool(option)


@pytest.mark.parametrize(("arguments", "message"), [
    (["--unknown"], "unrecognized arguments: --unknown"),
    (["--user"], "argument --user: expected one argument"),
    (["./none"], "there is no such application: ./none"),
    (["none"], "there is no such command: none"),
    (["text"], "there is no such command: text; did you mean ./text ?"),
    (["./text"], "the application is not executable: ./text"),
    (["."], "there is no such command: ."),
    (["./"], "the application is a directory: ./"),
    (["--tool", "reboot"], "'' is no behaviour of reboot"),
    (["--tool", "halt=hang"], "there is no tool 'halt'"),
    (["--tool", "killall=return"], "'return' is no behaviour of killall"),
    (["--space", "/tmp/log"], "--space takes an absolute directory and a size"),
    (["--space", "/tmp/log=0"], "'0' is not a size"),
    (["--settings", "none.json"], "there are no such settings: none.json"),
    (["--settings", "empty"], "there is no *.json in empty"),
    (["--settings", "WatchdogWatchProcessList.json", "--watch", "top=20"],
     "WatchdogWatchProcessList.json is among the settings given"),
    (["--watch", "burner"], "--watch takes a process name and a load in percent"),
    (["--watch", "=20"], "--watch takes a process name and a load in percent"),
    (["--watch", "burner=much"], "--watch takes a process name and a load in percent"),
    (["--watch", "sample-application=5"], "did you mean --watch sample-applicat=5 ?"),
    (["--app", "/bin/true"], "the application comes last, without --app"),
    (["--duration", "soon"], "--duration takes a time"),
    (["--bad-boots", "0"], "--boots takes a number from 0, --bad-boots one from 1"),
    (["--bad-boots", "x"], "invalid int value: 'x'"),
    (["--device-dir", "text"], "the device directory is not a directory: text"),
    (["--keep", "--fresh"], "not allowed with"),
])
def test_wrong_usage_is_told_and_nothing_is_done(simulate: Simulate, tmp_path: Path,
                                                 arguments: list[str], message: str) -> None:
    (tmp_path / "text").write_text("no program", encoding="utf-8")
    (tmp_path / "WatchdogWatchProcessList.json").write_text("{}", encoding="utf-8")
    (tmp_path / "empty").mkdir()
    before = sorted(tmp_path.iterdir())
    status, out, err = outcome(simulate(*arguments))
    assert status == 2
    assert message in err and err.startswith("simulate: ")
    assert out == ""
    assert sorted(tmp_path.iterdir()) == before


def test_help_is_shown_before_any_build() -> None:
    completed = subprocess.run([_PROJECT / "simulate", "--help"], capture_output=True, check=False)
    assert completed.returncode == 0
    assert b"examples:" in completed.stdout and b"exit status:" in completed.stdout


def test_wrong_usage_is_told_before_any_build() -> None:
    completed = subprocess.run([_PROJECT / "simulate", "--no-such-option"], capture_output=True,
                               check=False)
    assert completed.returncode == 2
    assert b"unrecognized arguments: --no-such-option" in completed.stderr


def test_the_supervisors_options_are_passed_on_in_their_order() -> None:
    assert options.supervisor_arguments(options.parse(["true"])) == [
        "--logfileName", "/tmp/log/application.log", "--logfileSize", "64k", "--app", "true"]
    given = options.parse(["--logfileSizeConf", "name", "--logTime", "--logfileSize", "1M",
                           "--user", "nobody", "true", "--logTime"])
    assert options.supervisor_arguments(given) == [
        "--logfileSizeConf", "name", "--logTime", "--logfileSize", "1M", "--user", "nobody",
        "--logfileName", "/tmp/log/application.log", "--app", "true", "--logTime"]


def test_a_relative_application_is_made_absolute(tmp_path: Path, script: Script,
                                                 monkeypatch: pytest.MonkeyPatch) -> None:
    script("true", "application")
    monkeypatch.chdir(tmp_path)
    assert options.parse(["./application", "./argument"]).application == [
        str(tmp_path / "application"), "./argument"]


def test_the_supervisors_end_is_shown_and_is_the_exit_status(simulate: Simulate,
                                                             script: Script) -> None:
    script("echo said; echo logged > /tmp/log/application.log; logger -p user.err -t me hi; exit 7",
           "application")
    status, out, err = outcome(simulate("--singleRun", "./application", "one", "two"))
    assert (status, err) == (7, "")

    for source, text in (
            ("boot loader", "last boot good; sets fail=1 boot_count=1 and starts the system"),
            ("supervisor", "said"), ("system log", "err: hi"), ("application log", "logged"),
            ("simulator", "supervisor ended by itself: exit status 7")):
        assert re.search(f"^{_CLOCK}  {source:15}  {re.escape(text)}$", out, re.MULTILINE), out
    assert "arguments: --singleRun " in out and "/application one two" in out
    assert "\033" not in out


def test_a_signal_and_the_fallback_as_exit_status(simulate: Simulate, script: Script) -> None:
    script("kill -15 $PPID; sleep 600", "application")
    assert outcome(simulate("./application"))[0] == 128 + 15
    script("reboot -f", "application")
    status, out, _ = outcome(simulate("--bad-boots", "1", "./application"))
    assert status == 3
    assert "the fallback system would start now" in out
    assert "\nboots            1, resets by reboot (1)\n" in out


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_an_interrupted_simulation_ends_with_a_summary(simulate: Simulate, script: Script,
                                                       tmp_path: Path,
                                                       number: signal.Signals) -> None:
    script("sfuflags -f fail -v 0; mkdir /tmp/upload; touch /tmp/upload/main-1.tar.gz; "
           "exec sleep 600", "application")
    process = simulate("./application")
    place = tmp_path / "simulated-device"
    wait_until((place / "tmp" / "upload" / "main-1.tar.gz").exists, "the application's file")
    process.send_signal(number)
    status, out, err = outcome(process)
    assert (status, err) == (0, "")
    summary = out[out.index("\ntime "):]
    assert "tools called     sfuflags (1)\n" in summary
    assert "boot flags       fail=0 boot_count=1, boot environment update_url_cache\n" in summary
    assert f"account          {place}/account.jsonl\n" in summary
    assert f"{place}/tmp/upload/main-1.tar.gz (0 bytes)\n" in summary


def test_a_new_archive_is_shown_with_what_it_holds(simulate: Simulate, script: Script,
                                                   tmp_path: Path) -> None:
    script("mkdir -p /tmp/upload; cd /tmp; printf 12345 > evidence; "
           "tar czf upload/tmp_one evidence; cp upload/tmp_one upload/one.tar.gz; "
           "echo nonsense > upload/two.tar.gz; exec sleep 600", "application")
    place = tmp_path / "simulated-device" / "tmp" / "upload"
    process = simulate("./application")
    wait_until((place / "two.tar.gz").exists, "the second archive")
    process.terminate()
    shown = re.findall(f"^{_CLOCK}  report archive   (.*)$", outcome(process)[1], re.MULTILINE)
    assert shown[0] == f"{place}/one.tar.gz ({(place / 'one.tar.gz').stat().st_size} bytes)"
    assert shown[1] == "  evidence (5 bytes)"
    assert shown[2] == f"{place}/two.tar.gz (9 bytes)"
    assert shown[3].startswith("  cannot be read: ")
    assert len(shown) == 4  # the unfinished archive is not shown


def test_archives_of_an_earlier_simulation_are_not_shown_again(simulate: Simulate, script: Script,
                                                               tmp_path: Path) -> None:
    script("mkdir -p /tmp/upload; cd /tmp; tar czf upload/$1.tar.gz log", "application")
    arguments = ["--singleRun", "--no-watchdog-device", "--keep", "./application"]
    assert "/first.tar.gz (" in outcome(simulate(*arguments, "first"))[1].partition("\ntime ")[0]
    second = outcome(simulate(*arguments, "second"))[1].partition("\ntime ")[0]
    assert "/second.tar.gz (" in second and "/first.tar.gz (" not in second


def test_the_upload_directory_is_the_one_in_the_settings(tmp_path: Path) -> None:
    program = tmp_path / "supervisor"
    for settings, path in (("settings-default", "/tmp/factory"), ("settings", "/home/root/mine")):
        (program / settings).mkdir(parents=True)
        document = {"value": {"type": "payload", "payload": {"uploadPath": path}}}
        (program / settings / "WatchdogAutomaticReportingConf.json").write_text(
            json.dumps(document), encoding="utf-8")
    for name in ("tmp/factory", "home-root/mine"):
        (tmp_path / name).mkdir(parents=True)
    archives = ArchiveFollower(tmp_path)
    for name in ("tmp/factory/a.tar.gz", "home-root/mine/b.tar.gz"):
        with tarfile.open(tmp_path / name, "w:gz"):
            pass
    assert [(found.path.name, found.contents) for found in archives.poll()] == [
        ("b.tar.gz", ["(no members)"])]
    assert archives.poll() == []


def test_reports_and_watch_stand_for_settings_documents() -> None:
    given = options.parse(["--reports", "--watch", "a=b=20", "--watch", "top=0", "true"])
    documents = {name: json.loads(data)["value"]["payload"]
                 for name, data in given.settings.items()}
    assert documents.keys() == {"WatchdogAutomaticReporting.json", "WatchdogWatchProcessList.json"}
    assert documents["WatchdogAutomaticReporting.json"] is True
    assert [(entry["name"], entry["maxLoad"], entry["threadInfo"])
            for entry in documents["WatchdogWatchProcessList.json"]] == [
        ("a=b", 20, True), ("top", 0, True)]


def test_the_check_tells_what_the_supervisor_will_not(simulate: Simulate, script: Script,
                                                      tmp_path: Path) -> None:
    script("exit 0", "application")
    name = "WatchdogMemoryReportingConf.json"
    (tmp_path / name).write_text('{"value": {"type": "bool", "bool": true,}}', encoding="utf-8")
    status, out, _ = outcome(simulate(
        "--settings", name, "--logfileSize", "huge", "--singleRun", "--no-watchdog-device",
        "./application", "two words"))
    assert status == 0
    assert "/application 'two words'\n" in out
    places = re.findall(f"(?m)^{_CLOCK}  check            (.*): error: ", out)
    assert places == [f"/supervisor/settings/{name}:1:41", "arguments:2"], out
    assert out.index("  check  ") < out.index("supervisor started")


@pytest.mark.parametrize("given", [
    [], ["--reports", "--watch", "burner=20"], ["--packaged", "--logTime", "--logfileSize", "1M"]])
def test_the_check_is_quiet_where_nothing_is_wrong(simulate: Simulate, script: Script,
                                                   given: list[str]) -> None:
    script("kill $PPID; sleep 600", "application")
    _, out, _ = outcome(simulate("--no-watchdog-device", *given, "./application"))
    assert "supervisor started" in out and "  check  " not in out


@pytest.mark.parametrize(("text", "said"), [
    ("echo seen; exit 2", ["seen", "ended with 2"]),
    ("kill -11 $$", ["ended with -11"])])
def test_a_check_that_fails_is_told(simulate: Simulate, script: Script, build: Path, text: str,
                                    said: list[str]) -> None:
    script("exit 0", "application")
    (build / "pynx-watchdog-check").unlink()
    script(text, "build/pynx-watchdog-check")
    _, out, _ = outcome(simulate("--singleRun", "--no-watchdog-device", "./application"))
    assert re.findall(f"(?m)^{_CLOCK}  check            (.*)$", out) == said


def test_a_start_that_took_too_long_is_explained(simulate: Simulate, script: Script) -> None:
    script("logger -p user.err -t me 'Error occured during process startup, code: 2'; kill $PPID; "
           "exec sleep 600", "application")
    _, out, _ = outcome(simulate("--no-watchdog-device", "./application"))
    assert "Note: the application was not up within 500 ms" in out


def test_a_reader_who_has_seen_enough_is_no_failure(simulate: Simulate, script: Script) -> None:
    script("exec sleep 600", "application")
    process = simulate("./application")
    assert process.stdout and process.stderr
    assert process.stdout.readline().startswith(b"Application:")
    process.stdout.close()
    assert process.wait(timeout=120) == 0
    assert process.stderr.read() == b""


def test_a_time_limit(simulate: Simulate, script: Script) -> None:
    script("exec sleep 600", "application")
    status, out, err = outcome(simulate("--duration", "1", "./application"))
    assert (status, err) == (0, "")
    assert float(out[out.index("\ntime "):].split()[1]) >= 0.5


def test_a_page_of_the_run(simulate: Simulate, script: Script, tmp_path: Path) -> None:
    page = tmp_path / "simulated-device/page.html"
    line = "2026-11-22 10:00:00.000 Watchdog: Starting app: product "
    tell = script(f'mkdir -p /tmp/log; echo "{line}" >/tmp/log/application.log')
    for again in ("--fresh", "--keep"):
        status, out, err = outcome(simulate("--page", "--singleRun", again, str(tell)))
        assert (status, err) == (0, "")
        assert out.endswith(f"\nPage: {page}\n")
        data = re.search('id="data">([^<]*)', page.read_text("utf-8"))
        assert data and b'"product"' in gzip.decompress(base64.b64decode(data[1]))
    page.unlink()
    page.mkdir()
    status, _, err = outcome(simulate("--page", "--singleRun", "--keep", str(tell)))
    assert status == 125
    assert f"simulate: {page}: " in err


def test_the_last_device_is_kept_and_only_that(simulate: Simulate, script: Script,
                                               tmp_path: Path) -> None:
    script('touch "/tmp/log/$1"', "application")
    place = tmp_path / "simulated-device"
    for name in ("one", "two", "three"):
        assert outcome(simulate("./application", name))[0] == 0
    assert os.listdir(place / "tmp" / "log") == ["three"]
    assert os.listdir(tmp_path / "simulated-device.old" / "tmp" / "log") == ["two"]
    assert outcome(simulate("--keep", "./application", "four"))[0] == 0
    assert sorted(os.listdir(place / "tmp" / "log")) == ["four", "three"]


@pytest.mark.parametrize("name", ["simulated-device", "simulated-device.old"])
def test_a_directory_of_somebody_else_is_left_alone(simulate: Simulate, script: Script,
                                                    tmp_path: Path, name: str) -> None:
    script("true", "application")
    if name.endswith(".old"):
        assert outcome(simulate("./application"))[0] == 0
    (tmp_path / name).mkdir()
    (tmp_path / name / "thesis").write_text("all of it", encoding="utf-8")
    status, _, err = outcome(simulate("./application"))
    assert status == 125 and "something else than a simulated device" in err
    assert (tmp_path / name / "thesis").read_text(encoding="utf-8") == "all of it"


def test_a_running_device_is_left_alone(simulate: Simulate, script: Script, tmp_path: Path) -> None:
    script("exec sleep 600", "application")
    simulate("./application", stdout=subprocess.DEVNULL)
    wait_until((tmp_path / "simulated-device" / "tmp" / "log").is_dir, "the device directory")
    status, _, err = outcome(simulate("true"))
    assert status == 125 and "another simulated device is running in" in err


def test_settings_are_given_anew_or_kept_with_the_device(simulate: Simulate, script: Script,
                                                         tmp_path: Path) -> None:
    (tmp_path / "a.json").write_text("1", encoding="utf-8")
    (tmp_path / "more").mkdir()
    (tmp_path / "more" / "b.json").write_text("2", encoding="utf-8")
    script("echo settings: $(cd /supervisor/settings && grep -rs '' . | sort)", "application")
    started: list[tuple[list[str], str]] = [
        (["--settings", "a.json", "--settings", "more"], " ./a.json:1 ./b.json:2"),
        (["--keep"], " ./a.json:1 ./b.json:2"), (["--keep", "--settings", "more"], " ./b.json:2"),
        ([], "")]
    for arguments, documents in started:
        assert f"settings:{documents}\n" in outcome(simulate(*arguments, "./application"))[1]


def test_the_sample_application_by_name(simulate: Simulate, build: Path, script: Script) -> None:
    (build / "simulator" / "application").mkdir()
    script('echo "sample: $*"', "build/simulator/application/sample-application")
    assert "sample: exit 5\n" in outcome(simulate("sample-application", "exit", "5"))[1]
    assert "sample: \n" in outcome(simulate())[1]


def test_a_file_argument_below_tmp_is_shown(simulate: Simulate, script: Script,
                                            tmp_path: Path) -> None:
    (tmp_path / "data").write_text("seen it", encoding="utf-8")
    script('cat "$1"', "application")
    _, out, _ = outcome(simulate("./application", str(tmp_path / "data")))
    assert f"Shown to the application, read-only: {tmp_path}/data" in out
    assert "seen it" in out
    assert "\nfiles in /tmp    0\n" in out  # the mount point is removed


@pytest.mark.parametrize(("missing", "message"), [
    ("watchdog", "the supervisor's program cannot be executed"),
    ("pynx-watchdog-check", "the check is missing")])
def test_a_missing_build_is_told(simulate: Simulate, build: Path, missing: str,
                                 message: str) -> None:
    (build / missing).unlink()
    status, _, err = outcome(simulate("true"))
    assert status == 125 and message in err


@pytest.mark.parametrize("colour", [True, False])
def test_colour_on_a_terminal_unless_unwanted(simulate: Simulate, script: Script,
                                              monkeypatch: pytest.MonkeyPatch,
                                              colour: bool) -> None:
    if colour:
        monkeypatch.delenv("NO_COLOR", raising=False)
    else:
        monkeypatch.setenv("NO_COLOR", "1")
    script("printf 'a\\033[2Jb\\n'", "application")
    master, slave = pty.openpty()
    process = simulate("./application", stdout=slave)
    os.close(slave)
    shown = b""
    while data := _read(master):
        shown += data
    os.close(master)
    assert outcome(process)[0] == 0
    assert (b"\033[" in shown) == colour
    assert b"a\\x1b[2Jb" in shown  # the program's output does not control the terminal


def _read(master: int) -> bytes:
    try:
        return os.read(master, 4096)
    except OSError:
        return b""  # the last process that wrote to the terminal has ended
