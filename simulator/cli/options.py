# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The command line of ./simulate."""

from __future__ import annotations

import argparse
import json
import os
import re
import shutil
import sys
from pathlib import Path
from typing import Any, NoReturn

from simulator import Bind, Device, SimulatorError
from simulator.common.configuration import TOOLS
from simulator.common.paths import COMMAND_PATH
from simulator.preparation import is_replaced

SAMPLE = "sample-application"
DEFAULT_LOG = "/tmp/log/application.log"
DEFAULT_LOG_SIZE = "64k"
DEFAULT_DIRECTORY = "simulated-device"
USAGE_ERROR = 2

_ROOT = Path(__file__).resolve().parents[2]
_LONGEST_NAME = 15  # TASK_COMM_LEN without its NUL
_WATCH_TICKS = 3
_WATCH_REPORTS = 5
_DURATION = re.compile(r"([0-9]+(?:\.[0-9]+)?)([smh]?)")
_DURATION_UNITS = {"": 1, "s": 1, "m": 60, "h": 3600}

_USAGE = "./simulate [OPTION]... [APPLICATION [ARGUMENT]...]"
_EPILOG = """\
APPLICATION is a path, a command of this machine, or sample-application, which is the default. The
sample application lists its behaviours when it gets an unknown one.
All of this machine's file system is visible in the simulated device, read-only. /tmp, /home/root,
/run and /dev are its own.

examples:
  ./simulate                                      the sample application
  ./simulate sample-application sleep 3 signal 11 the same, told to crash after 3 s
  ./simulate ./build/my-application --port 80     your application with its arguments
  ./simulate --tool reboot=return /bin/false      what if the third end does not reboot?
  ./simulate --reports sample-application sleep 3 print '==Report==on request\\n' sleep 10 signal 11
                                                  report archives after a marker and after a crash
  ./simulate --watch burner=5 sample-application name burner burn 4 50 wait
                                                  load alarms with the busiest threads
  ./simulate --read-only-root                     a root file system that has failed
  ./simulate --tool sfuflags=hang                 a flag tool that never ends
  ./simulate --space /tmp/log=64k                 a file system that fills up
  ./simulate --no-watchdog-device --singleRun sh -c 'echo hello; exit 5'

exit status:
  0      ended by Ctrl-C, by --duration or by --boots
  1      what it needs could not be installed or built
  2      wrong usage, nothing was started
  3      the boot loader gave up and would start the fallback system
  125    the simulated device could not be built, or failed
  other  the supervisor ended by itself, and so did its exit status: 128 + N for signal N. As on a
         real board this ends the simulation only while the watchdog device is not armed.
"""


class _Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        self.exit(USAGE_ERROR, f"simulate: {message}\nTry './simulate --help'.\n")


class _WithoutApp(argparse.Action):
    """Refuses --app, which only the supervisor's own command line has."""

    def __call__(self, parser: argparse.ArgumentParser, *_: Any) -> None:
        parser.error("the application comes last, without --app")


class _PassOn(argparse.Action):
    """Keeps an option for the supervisor. The order is kept, because the last one counts there."""

    def __call__(self, parser: argparse.ArgumentParser, namespace: argparse.Namespace,
                 values: Any, option_string: str | None = None) -> None:
        setattr(namespace, self.dest, values)
        words = [option_string or "", *([] if isinstance(values, list) else [values])]
        namespace.passed_on = [*namespace.passed_on, *words]


def parse(arguments: list[str]) -> argparse.Namespace:
    """Read and check the command line; ends the program with a message if it is wrong.

    Everything that can be checked without a build is checked here, so that a mistake is reported
    at once.
    """
    parser = _make_parser()
    options = parser.parse_args(arguments, argparse.Namespace(passed_on=[]))
    try:
        options.settings = _with_documents(_settings(options.settings), options)
        options.seconds = _duration(options.duration)
        directory = _device_directory(options.device_dir)
        if options.boots < 0 or options.bad_boots < 1:
            raise SimulatorError("--boots takes a number from 0, --bad-boots one from 1")
        build = (_ROOT / options.build_dir).resolve()
        name, *values = options.application or [SAMPLE]
        sample = build / "simulator" / "application" / SAMPLE
        options.application = [str(sample) if name == SAMPLE else _application(name), *values]
        options.binds = [Bind(argument) for argument in options.application[1:]
                         if is_replaced(argument) and os.path.isfile(argument)]
        options.device = Device(
            build / "watchdog", directory, supervisor_arguments(options),
            settings=options.settings or None,
            tools=dict(_pair(text) for text in options.tool),
            spaces=dict(_space(text) for text in options.space),
            packaged=options.packaged, checked=True, read_only_root=options.read_only_root,
            watchdog_device=not options.no_watchdog_device,
            bad_boots=options.bad_boots, boots=options.boots, binds=options.binds)
    except SimulatorError as error:
        parser.error(str(error))
    return options


def supervisor_arguments(options: argparse.Namespace) -> list[str]:
    """The supervisor's own command line."""
    arguments = list(options.passed_on)
    if options.logfileName is None:
        arguments += ["--logfileName", DEFAULT_LOG]
    if options.logfileSize is None and options.logfileSizeConf is None:
        arguments += ["--logfileSize", DEFAULT_LOG_SIZE]
    return [*arguments, "--app", *options.application]


def _make_parser() -> argparse.ArgumentParser:
    parser = _Parser(prog="simulate", usage=_USAGE, epilog=_EPILOG, allow_abbrev=False,
                     add_help=False, formatter_class=argparse.RawDescriptionHelpFormatter,
                     description="Builds the supervisor and runs it with an application on a "
                                 "simulated device. Shows what happens until Ctrl-C.")
    own = parser.add_argument_group("the supervisor's options, passed on")
    own.add_argument("--logfileName", metavar="PATH", action=_PassOn,
                     help=f"log of the application (default: {DEFAULT_LOG})")
    own.add_argument("--logfileSize", metavar="SIZE", action=_PassOn,
                     help=f"its largest size, with k or M (default: {DEFAULT_LOG_SIZE})")
    own.add_argument("--logfileSizeConf", metavar="NAME", action=_PassOn,
                     help="look its size up in the settings")
    own.add_argument("--logTime", nargs=0, action=_PassOn, help="add time lines to the log")
    own.add_argument("--rotateOnly", nargs=0, action=_PassOn,
                     help="only keep the log: no watchdog device, load, reports or flags")
    own.add_argument("--singleRun", nargs=0, action=_PassOn, help="end with the application")
    own.add_argument("--user", metavar="NAME", action=_PassOn,
                     help="account to run the application as; it takes a simulator started by "
                          "root to really switch accounts")
    device = parser.add_argument_group("the simulated device")
    device.add_argument("--settings", metavar="FILE|DIR", action="append", default=[],
                        help="settings document, or a directory of *.json, for the supervisor's "
                             "directory 'settings'; may be repeated")
    device.add_argument("--reports", action="store_true",
                        help="switch automatic reporting on, as the document "
                             "WatchdogAutomaticReporting.json does; a real board makes no archive "
                             "in the first 30 s after its boot")
    device.add_argument("--watch", metavar="NAME=LOAD", action="append", default=[],
                        help="write an alarm with the busiest threads into the application's log "
                             "when process NAME takes at least LOAD percent of all processors for "
                             f"{_WATCH_TICKS} s, as an entry of WatchdogWatchProcessList.json "
                             "does; the first process of that name is watched, without its "
                             "children; may be repeated")
    device.add_argument("--tool", metavar="NAME=BEHAVIOUR", action="append", default=[],
                        help=f"what one of {', '.join(TOOLS)} does: normal, fail, "
                             "fail=STATUS, hang, absent, for reboot also return (do nothing); "
                             "may be repeated")
    device.add_argument("--packaged", action="store_true",
                        help="with the board tools of the package: archives that are complete, "
                             "limited and guarded, and a last one at the third end; the reason of "
                             "a reboot is kept in /home/root/pynx-watchdog")
    device.add_argument("--read-only-root", action="store_true",
                        help="/home/root cannot be written to")
    device.add_argument("--no-watchdog-device", action="store_true",
                        help="there is no /dev/watchdog")
    device.add_argument("--bad-boots", metavar="N", type=int, default=3,
                        help="boots without cleared flags before the boot loader starts the "
                             "fallback system (default: %(default)s)")
    device.add_argument("--space", metavar="DIR=SIZE", action="append", default=[],
                        help="a file system of its own, such as /tmp/log=64k, gone with the "
                             "device; may be repeated")
    run = parser.add_argument_group("the simulation")
    run.add_argument("--duration", metavar="TIME",
                     help="end after so many seconds; also 5m, 2h")
    run.add_argument("--boots", metavar="N", type=int, default=0,
                     help="end after so many boots (default: 0, without limit)")
    run.add_argument("--device-dir", metavar="DIR", default=DEFAULT_DIRECTORY,
                     help="where the device's files, the logs and the account lie "
                          "(default: %(default)s)")
    run.add_argument("--page", action="store_true",
                     help="write a page for a browser at the end, which shows what happened, as "
                          "page.html in the device directory")
    keep = run.add_mutually_exclusive_group()
    keep.add_argument("--fresh", action="store_true",
                      help="start with a new device (default); the last one is kept as DIR.old")
    keep.add_argument("--keep", action="store_true",
                      help="go on with the device in DIR: same files, same boot flags")
    run.add_argument("--build-dir", metavar="DIR", default="build/release",
                     help="build to run (default: %(default)s)")
    run.add_argument("-h", "--help", action="help", help="show this and end")
    parser.add_argument("--app", nargs=0, action=_WithoutApp, help=argparse.SUPPRESS)
    parser.add_argument("application", nargs=argparse.REMAINDER, help=argparse.SUPPRESS)
    return parser


def _application(name: str) -> str:
    if "/" not in name:
        if shutil.which(name, path=COMMAND_PATH):
            return name
        hint = f"; did you mean ./{name} ?" if os.path.isfile(name) else ""
        raise SimulatorError(f"there is no such command: {name}{hint}")
    path = os.path.abspath(name)
    if not os.path.exists(path):
        raise SimulatorError(f"there is no such application: {name}")
    if os.path.isdir(path):
        raise SimulatorError(f"the application is a directory: {name}")
    if not os.access(path, os.X_OK):
        raise SimulatorError(f"the application is not executable: {name}")
    return path


def _pair(text: str) -> tuple[str, str]:
    name, _, value = text.partition("=")
    return name, value


def _space(text: str) -> tuple[str, str]:
    place, size = _pair(text)
    if not size or not os.path.isabs(place):
        raise SimulatorError(f"--space takes an absolute directory and a size, such as "
                             f"/tmp/log=64k, not '{text}'")
    return os.path.normpath(place), size


def _settings(paths: list[str]) -> dict[str, bytes]:
    documents: dict[str, bytes] = {}
    for name in paths:
        path = Path(name)
        if not path.exists():
            raise SimulatorError(f"there are no such settings: {name}")
        files = sorted(path.glob("*.json")) if path.is_dir() else [path]
        if not files:
            raise SimulatorError(f"there is no *.json in {name}")
        try:
            documents.update((file.name, file.read_bytes()) for file in files)
        except OSError as error:
            raise SimulatorError(f"cannot read {error.filename}: {error.strerror}") from error
    return documents


def _with_documents(documents: dict[str, bytes], options: argparse.Namespace) -> dict[str, bytes]:
    """`documents` and those that --reports and --watch add to them."""
    added: dict[str, Any] = {}
    if options.reports:
        added["WatchdogAutomaticReporting.json"] = True
    if options.watch:
        added["WatchdogWatchProcessList.json"] = [_watch_entry(text) for text in options.watch]
    for name, payload in added.items():
        if name in documents:
            raise SimulatorError(f"{name} is among the settings given: --reports and --watch stand "
                                 "for such a document")
        envelope = {"value": {"type": "payload", "payload": payload}}
        documents[name] = json.dumps(envelope).encode()
    return documents


def _watch_entry(text: str) -> dict[str, Any]:
    name, _, load = text.rpartition("=")
    if not name or not load.isascii() or not load.isdigit():
        raise SimulatorError(f"--watch takes a process name and a load in percent, such as "
                             f"burner=20, not '{text}'")
    if len(name.encode()) > _LONGEST_NAME:
        known = name.encode()[:_LONGEST_NAME].decode(errors="ignore")
        raise SimulatorError(f"the kernel knows a process by the first {_LONGEST_NAME} bytes of "
                             f"its name; did you mean --watch {known}={load} ?")
    return {"name": name, "arguments": [], "period": _WATCH_TICKS, "maxLoad": int(load),
            "threadInfo": True, "maxReports": _WATCH_REPORTS}


def _duration(text: str | None) -> float | None:
    if text is None:
        return None
    match = _DURATION.fullmatch(text)
    if match is None:
        raise SimulatorError(f"--duration takes a time such as 30, 5m or 2h, not '{text}'")
    return float(match[1]) * _DURATION_UNITS[match[2]]


def _device_directory(name: str) -> Path:
    path = Path(name).resolve()
    if path.exists() and not path.is_dir():
        raise SimulatorError(f"the device directory is not a directory: {name}")
    return path


# ./simulate runs this before the build. Exit status 3 tells it that --help was asked for.
if __name__ == "__main__":
    try:
        parse(sys.argv[1:])
    except SystemExit as end:
        sys.exit(end.code or 3)
