# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The boot loader: its flags, the fallback system, and the tools that change its state."""

from pathlib import Path

import pytest

from simulator import BootState
from simulator.box.boot_loader import BootLoader


def kept(directory: Path) -> BootState:
    return BootState.load(directory / "boot-loader.json")


def test_a_fresh_board_has_cleared_flags_and_the_update_cache(tmp_path: Path) -> None:
    state = kept(tmp_path)
    assert (state.fail, state.boot_count) == (0, 0)
    assert list(state.environment) == ["update_url_cache"]


@pytest.mark.parametrize("allowed", [1, 3, 5])
def test_one_boot_more_than_allowed_falls_back(tmp_path: Path, allowed: int) -> None:
    for count in range(1, allowed + 1):
        assert BootLoader(tmp_path, allowed).decide().boots
        assert (kept(tmp_path).fail, kept(tmp_path).boot_count) == (1, count)
    decision = BootLoader(tmp_path, allowed).decide()
    assert not decision.boots
    assert "the fallback system would start now" in decision.text
    assert (kept(tmp_path).fail, kept(tmp_path).boot_count) == (1, allowed)


def test_both_flags_cleared_make_the_next_boot_the_first(tmp_path: Path) -> None:
    loader = BootLoader(tmp_path, bad_boots=1)
    assert loader.decide().boots
    assert loader.sfuflags(["-f", "fail", "-v", "0"]).status == 0
    assert not loader.decide().boots  # one cleared flag is not enough
    assert loader.sfuflags(["-f", "boot_count", "-v", "0"]).status == 0
    assert loader.decide().boots
    assert (kept(tmp_path).fail, kept(tmp_path).boot_count) == (1, 1)


def test_the_environment_is_set_and_deleted(tmp_path: Path) -> None:
    loader = BootLoader(tmp_path, bad_boots=1)
    assert loader.fw_setenv(["update_url_cache"]).status == 0
    assert loader.fw_setenv(["other", "a", "value"]).status == 0
    assert kept(tmp_path).environment == {"other": "a value"}


@pytest.mark.parametrize(("tool", "arguments"), [
    ("sfuflags", []), ("sfuflags", ["-f"]), ("sfuflags", ["-f", "fail"]),
    ("sfuflags", ["-f", "fail", "-v", "x"]), ("sfuflags", ["-f", "fail", "-v", "-1"]),
    ("sfuflags", ["-f", "environment", "-v", "0"]), ("sfuflags", ["-v", "0", "-f", "fail"]),
    ("fw_setenv", []), ("fw_setenv", ["-x"]), ("fw_setenv", ["-x", "y"])])
def test_what_a_tool_does_not_know_is_refused(tmp_path: Path, tool: str,
                                              arguments: list[str]) -> None:
    loader = BootLoader(tmp_path, bad_boots=1)
    loader.decide()
    before = kept(tmp_path)
    outcome = getattr(loader, tool)(arguments)
    assert outcome.status == 1 and outcome.message
    assert kept(tmp_path) == before
