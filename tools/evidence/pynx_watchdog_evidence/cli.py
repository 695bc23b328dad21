# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The command line of pynx-watchdog-evidence."""

from __future__ import annotations

import argparse
import json
import sys
from collections.abc import Sequence
from pathlib import Path

from .events import Event
from .join import events_of
from .page import write_page
from .sources import logs_of
from .verdict import CERTAIN, verdict


def main(arguments: Sequence[str] | None = None) -> int:
    """Read what the command line names, and print what happened. Returns the exit status."""
    parser = argparse.ArgumentParser(
        prog="pynx-watchdog-evidence",
        description="Tells what happened, from the logs, archives and messages of the supervisor.")
    parser.add_argument("paths", metavar="PATH", nargs="+", type=Path,
                        help="a log, an archive, a text of the system log or of the supervisor's "
                             "standard error, or a directory with any of these")
    output = parser.add_mutually_exclusive_group()
    output.add_argument("--jsonl", action="store_true",
                        help="print the events as JSON, one a line")
    output.add_argument("--html", metavar="FILE", type=Path,
                        help="write a page for a browser, with the logs; it needs nothing else")
    options = parser.parse_args(arguments)

    failed: list[Path] = []

    def complain(path: Path, reason: str) -> None:
        failed.append(path)
        print(f"pynx-watchdog-evidence: {path}: {reason}", file=sys.stderr)

    events = events_of(options.paths, complain)
    found = 0
    try:
        if options.jsonl:
            for event in events:
                found += 1
                print(json.dumps(event.as_dict()))
        else:
            kept = list(events)
            found = len(kept)
            if kept or not failed:
                if options.html:
                    write_page(options.html, kept, verdict(kept), logs_of(kept))
                else:
                    _print_for_people(kept)
        sys.stdout.flush()
    except BrokenPipeError:
        sys.stderr.close()
    except OSError as error:
        print(f"pynx-watchdog-evidence: {error}", file=sys.stderr)
        return 1
    return 1 if failed and not found else 0


def _print_for_people(events: list[Event]) -> None:
    for sentence in verdict(events):
        sure = "" if sentence.certainty == CERTAIN else f" ({sentence.certainty})"
        print(f"- {sentence.text}{sure}")
    print()
    for event in events:
        time = event.time.isoformat(sep=" ", timespec="milliseconds") if event.time else "-"
        facts = "  ".join(f"{name}={value}" for name, value in event.fields.items()
                          if not isinstance(value, (list, dict)))
        print(f"{time}  {event.kind}  {facts}  ({event.source}:{event.line})")
