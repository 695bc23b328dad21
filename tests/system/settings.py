# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Settings documents for a device.

Each has to fit its schema. A test that needs one that does not says so with fits=False.
"""

from __future__ import annotations

import json
from pathlib import Path
from typing import Any

import jsonschema  # type: ignore[import]

_SCHEMAS = Path(__file__).resolve().parents[2] / "schemas"


def document(payload: Any) -> dict[str, Any]:
    """A document in its envelope."""
    return {"value": {"type": "payload", "payload": payload}}


def _settings(name: str, payload: Any, fits: bool = True) -> dict[str, Any]:
    schema = json.loads((_SCHEMAS / f"{name}.schema.json").read_text("utf-8"))
    errors = [error.message
              for error in jsonschema.Draft7Validator(schema).iter_errors(document(payload))]
    assert fits == (not errors), f"{name}: {errors or 'fits its schema'}"
    return {f"{name}.json": document(payload)}


def watch_list(*entries: dict[str, Any], fits: bool = True) -> dict[str, Any]:
    """Settings with this watch list."""
    return _settings("WatchdogWatchProcessList", list(entries), fits)


def reporting(files: list[str], upload_path: str = "/tmp/upload",
              prefix: str = "report") -> dict[str, Any]:
    """Settings that switch automatic reporting on."""
    return {
        **_settings("WatchdogAutomaticReporting", True),
        **_settings("WatchdogAutomaticReportingConf",
                    {"uploadPath": upload_path, "uploadFilePrefix": prefix}),
        **_settings("SystemManagerLogReportConfig", {"files": files}),
    }


def log_sizes(*, fits: bool = True, **sizes: str) -> dict[str, Any]:
    """Settings with size limits of logs, by name."""
    return _settings("SystemManagerLogFilesSizeConfig", sizes, fits)


def memory_reporting(switched_on: bool) -> dict[str, Any]:
    """Settings that switch memory reporting on or off."""
    return _settings("WatchdogMemoryReportingConf", switched_on)
