# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Settings documents for the device."""

from __future__ import annotations

from typing import Any


def document(payload: Any) -> dict[str, Any]:
    """A document in its envelope."""
    return {"value": {"type": "payload", "payload": payload}}


def watch_list(*entries: dict[str, Any]) -> dict[str, Any]:
    """The settings with this watch list."""
    return {"WatchdogWatchProcessList.json": document(list(entries))}


def reporting(files: list[str], upload_path: str = "/tmp/upload",
              prefix: str = "report") -> dict[str, Any]:
    """The settings with automatic reporting switched on."""
    return {
        "WatchdogAutomaticReporting.json": document(True),
        "WatchdogAutomaticReportingConf.json": document(
            {"uploadPath": upload_path, "uploadFilePrefix": prefix}),
        "SystemManagerLogReportConfig.json": document({"files": files}),
    }


def log_sizes(**sizes: str) -> dict[str, Any]:
    """The settings with these limits of logs by their names."""
    return {"SystemManagerLogFilesSizeConfig.json": document(sizes)}


def memory_reporting(switched_on: Any) -> dict[str, Any]:
    """The settings with memory reporting switched on or off."""
    return {"WatchdogMemoryReportingConf.json": document(switched_on)}
