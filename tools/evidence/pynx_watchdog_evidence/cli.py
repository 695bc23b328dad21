# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The command line of pynx-watchdog-evidence."""

from __future__ import annotations

import argparse
import io
import json
import os
import re
import sqlite3
import sys
from collections.abc import Iterable, Mapping, Sequence
from contextlib import closing
from datetime import datetime, timedelta
from pathlib import Path

from .archives import Room
from .events import Event
from .fleet import MOST_TOGETHER, Fleet, fleet_of, read_fleet
from .fleetpage import write_fleet_page
from .join import MOST_HELD, Complain, events_of, held
from .page import write_page
from .reports import Row, Rows
from .sentence import MOST_SENTENCES, lines_of
from .sources import logs_of
from .spread import Failed, open_pool
from .store import Store, Unusable
from .table import tables
from .verdict import verdict
from .words import plain

INTERRUPTED = 130  # the exit status, as a shell has it


def main(arguments: Sequence[str] | None = None) -> int:
    """Read what the command line names, and print what happened. Returns the exit status."""
    parser = _parser()
    options = parser.parse_args(arguments)
    if options.jsonl and options.database:
        parser.error("argument --database: not allowed with argument --jsonl")
    if isinstance(sys.stdout, io.TextIOWrapper):
        sys.stdout.reconfigure(errors="replace")  # not every terminal has all letters
    complaints: dict[Path, list[str]] = {}

    def complain(path: Path, reason: str) -> None:
        complaints.setdefault(path, []).append(reason)
        print(plain(f"pynx-watchdog-evidence: {path}: {reason}"), file=sys.stderr)

    try:
        fleet = fleet_of(options.paths)
        if not fleet.archives and not fleet.others:
            complain(options.paths[0], "it has no files")
            return 1
        if options.database or options.scheduler or not fleet.is_one_story():
            is_read = _tell_fleet(fleet, options, complain, complaints)
        elif options.jsonl:
            is_read = _print_events(options.paths, complain) \
                or fleet.has_others_than(complaints)
        else:
            is_read = _tell_story(fleet, options, complain, complaints)
        sys.stdout.flush()
    except BrokenPipeError:
        sys.stderr.close()
        return 0
    except KeyboardInterrupt:
        # What is not written yet would wait for a reader of the pipe, who may not come.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return INTERRUPTED
    except (OSError, sqlite3.Error, Unusable, Failed) as error:
        print(f"pynx-watchdog-evidence: {error}", file=sys.stderr)
        return 1
    return 0 if is_read else 1


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="pynx-watchdog-evidence",
        description="Tells what happened, from the logs, archives and messages of the supervisor.",
        epilog="Archives of several devices, or more than "
               f"{MOST_TOGETHER} archives, are a fleet: what went wrong on them is counted by "
               "cause, application, firmware, version, device and week. Each archive and each "
               "incident counts once, however often it is found. Fewer archives, and logs alone, "
               "are told as one story.")
    parser.add_argument("paths", metavar="PATH", nargs="+", type=Path,
                        help="a log, an archive, a text of the system log or of the supervisor's "
                             "standard error, or a directory with any of these")
    output = parser.add_mutually_exclusive_group()
    output.add_argument("--jsonl", action="store_true",
                        help="print the events as JSON, one a line; those of a fleet archive by "
                             "archive")
    output.add_argument("--html", metavar="FILE", type=Path,
                        help="write a page for a browser, with the logs or with the figures of a "
                             "fleet; it needs nothing else")
    parser.add_argument("--database", metavar="FILE", type=Path,
                        help="add what is found to a database of SQLite, as a fleet")
    parser.add_argument("--scheduler", metavar="ADDRESS", type=_address,
                        help="let the workers of this scheduler of Dask read a fleet, instead of "
                             "the processors of this machine; they need the files at the same "
                             "paths")
    return parser


def _address(text: str) -> str:
    """The address of a scheduler, such as "tcp://host:8786"."""
    if not re.fullmatch(r"((tcp|tls|wss?)://)?[^\s/]+:\d+", text):
        raise argparse.ArgumentTypeError(f"'{text}' is no address such as tcp://host:8786")
    return text


def _print_events(paths: Sequence[Path], complain: Complain) -> bool:
    found = False
    for event in events_of(paths, complain):
        found = True
        print(json.dumps(event.as_dict()))
    return found


def _tell_story(fleet: Fleet, options: argparse.Namespace, complain: Complain,
                complaints: Mapping[Path, Sequence[str]]) -> bool:
    events = list(held(events_of(options.paths, complain), Room(MOST_HELD), options.paths[0],
                       complain))
    is_read = bool(events) or fleet.has_others_than(complaints)
    if is_read:
        if options.html:
            write_page(options.html, events, verdict(events), logs_of(events), complaints)
        else:
            _print_for_people(events)
    return is_read


def _tell_fleet(fleet: Fleet, options: argparse.Namespace, complain: Complain,
                complaints: Iterable[Path]) -> bool:
    tomorrow = datetime.now() + timedelta(days=1)
    rows = Rows.WHOLE if options.jsonl else Rows.SHORT if options.database else Rows.NONE

    def take(row: Row) -> None:
        if options.jsonl:
            print(row.as_json())

    with closing(Store(options.database, tomorrow)) as store:
        with open_pool(options.scheduler) as pool:
            found = read_fleet(fleet, store, pool, complain, rows, take)
        store.commit()
        if not found and not fleet.has_others_than(complaints):
            return False
        if options.html:
            write_fleet_page(options.html, store)
        elif rows == Rows.NONE:
            for line in tables(store):
                print(line)
    return True


def _print_for_people(events: list[Event]) -> None:
    sentences = verdict(events)
    for sentence in sentences[:MOST_SENTENCES]:
        lines = lines_of(events, sentence)
        print(plain(f"- {sentence.text} ({sentence.certainty}{lines and f': {lines}'})"))
    if len(sentences) > MOST_SENTENCES:
        print(f"- {len(sentences) - MOST_SENTENCES} older sentences left out")
    print()
    for event in events:
        time = event.time.isoformat(sep=" ", timespec="milliseconds") if event.time else "-"
        facts = "  ".join(f"{name}={value}" for name, value in event.fields.items()
                          if not isinstance(value, (list, dict)))
        print(plain(f"{time}  {event.kind}  {facts}  ({event.source}:{event.line})"))
