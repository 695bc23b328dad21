# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The boot loader: flags, counting, falling back."""

from pathlib import Path

import pytest

from simulator import BootState
from simulator.boot_loader import decide, set_flag


def test_a_fresh_board_has_cleared_flags_and_the_update_cache() -> None:
    state = BootState()
    assert (state.fail, state.boot_count) == (0, 0)
    assert list(state.environment) == ["update_url_cache"]


def test_every_boot_is_marked_as_failed_and_counted() -> None:
    state = BootState()
    for count in (1, 2, 3):
        assert decide(state, bad_boots=3).boots
        assert (state.fail, state.boot_count) == (1, count)


@pytest.mark.parametrize("allowed", [1, 3, 5])
def test_one_boot_more_than_allowed_falls_back(allowed: int) -> None:
    state = BootState()
    assert all(decide(state, allowed).boots for _ in range(allowed))
    decision = decide(state, allowed)
    assert not decision.boots
    assert "the fallback system would start now" in decision.text
    assert (state.fail, state.boot_count) == (1, allowed)


def test_cleared_flags_make_the_next_boot_the_first() -> None:
    state = BootState(fail=1, boot_count=3)
    assert set_flag(state, "fail", 0) and set_flag(state, "boot_count", 0)
    assert decide(state, bad_boots=3).boots
    assert (state.fail, state.boot_count) == (1, 1)


def test_the_failure_flag_alone_does_not_reset_the_count() -> None:
    state = BootState(fail=1, boot_count=3)
    set_flag(state, "fail", 0)
    assert not decide(state, bad_boots=3).boots


def test_an_unknown_flag_is_refused() -> None:
    state = BootState()
    assert not set_flag(state, "environment", 1)
    assert state == BootState()


def test_the_state_survives_its_file(tmp_path: Path) -> None:
    state = BootState(fail=1, boot_count=2, environment={"a": "b c"})
    (tmp_path / "state").write_text(state.to_json(), encoding="utf-8")
    assert BootState.load(tmp_path / "state") == state
    assert BootState.load(tmp_path / "none") == BootState()
