# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Settings documents for a device."""

from __future__ import annotations

from typing import Any


def document(payload: Any) -> dict[str, Any]:
    """A document in its envelope."""
    return {"value": {"type": "payload", "payload": payload}}


def watch_list(*entries: dict[str, Any]) -> dict[str, Any]:
    """Settings with this watch list."""
    return {"WatchdogWatchProcessList.json": document(list(entries))}


def reporting(files: list[str], upload_path: str = "/tmp/upload",
              prefix: str = "report") -> dict[str, Any]:
    """Settings that switch automatic reporting on."""
    return {
        "WatchdogAutomaticReporting.json": document(True),
        "WatchdogAutomaticReportingConf.json": document(
            {"uploadPath": upload_path, "uploadFilePrefix": prefix}),
        "SystemManagerLogReportConfig.json": document({"files": files}),
    }


def log_sizes(**sizes: str) -> dict[str, Any]:
    """Settings with size limits of logs, by name."""
    return {"SystemManagerLogFilesSizeConfig.json": document(sizes)}


def memory_reporting(switched_on: Any) -> dict[str, Any]:
    """Settings that switch memory reporting on or off."""
    return {"WatchdogMemoryReportingConf.json": document(switched_on)}
