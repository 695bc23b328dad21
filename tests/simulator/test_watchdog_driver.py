# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The rules of the watchdog device's driver, with times that the test gives."""

import errno

import pytest

from simulator.box.watchdog_driver import Answer, Driver

KEEPALIVE, SETTIMEOUT, GETTIMEOUT, SETOPTIONS = 0x80045705, 0xC0045706, 0x80045707, 0x80045704


def opened(now: float = 100.0) -> Driver:
    driver = Driver()
    assert driver.open(now) == 0
    return driver


def test_it_is_not_armed_before_it_is_opened() -> None:
    assert Driver().deadline is None


def test_opening_arms_it_with_sixty_seconds() -> None:
    assert opened(100.0).deadline == 160.0


def test_a_second_open_is_refused_while_the_first_lasts() -> None:
    driver = opened()
    assert driver.open(101.0) == errno.EBUSY
    driver.close(102.0)
    assert driver.open(103.0) == 0


def test_a_feed_starts_the_countdown_anew() -> None:
    driver = opened()
    driver.ioctl(KEEPALIVE, 0, 130.0)
    assert driver.deadline == 190.0


def test_a_new_timeout_counts_from_now() -> None:
    driver = opened()
    assert driver.ioctl(SETTIMEOUT, 30, 110.0) == Answer(0, 30)
    assert driver.deadline == 140.0
    assert driver.ioctl(GETTIMEOUT, 0, 111.0) == Answer(0, 30)


@pytest.mark.parametrize("seconds", [0, -1])
def test_a_timeout_below_one_second_is_refused(seconds: int) -> None:
    driver = opened()
    assert driver.ioctl(SETTIMEOUT, seconds, 110.0).error == errno.EINVAL
    assert driver.deadline == 160.0


def test_a_plain_close_is_one_last_feed() -> None:
    driver = opened()
    driver.close(120.0)
    assert driver.deadline == 180.0


def test_a_close_after_the_magic_character_disarms() -> None:
    driver = opened()
    driver.write(b"V", 110.0)
    driver.close(120.0)
    assert driver.deadline is None


def test_another_write_takes_the_magic_back() -> None:
    driver = opened()
    driver.write(b"V", 110.0)
    driver.write(b"x", 111.0)
    driver.close(120.0)
    assert driver.deadline == 180.0


def test_the_magic_of_an_earlier_opening_does_not_count() -> None:
    driver = opened()
    driver.write(b"V", 110.0)
    driver.close(111.0)
    driver.open(112.0)
    driver.close(113.0)
    assert driver.deadline == 173.0


def test_the_card_is_switched_off_and_on() -> None:
    driver = opened()
    assert driver.ioctl(SETOPTIONS, 1, 110.0).error == 0
    assert driver.deadline is None
    assert driver.ioctl(SETOPTIONS, 2, 120.0).error == 0
    assert driver.deadline == 180.0
    assert driver.ioctl(SETOPTIONS, 4, 121.0).error == errno.EINVAL


def test_an_unknown_ioctl_is_refused() -> None:
    assert opened().ioctl(0x80285700, 0, 101.0).error == errno.ENOTTY


def test_a_reset_closes_it_and_brings_the_sixty_seconds_back() -> None:
    driver = opened()
    driver.ioctl(SETTIMEOUT, 30, 110.0)
    driver.reset()
    assert driver.deadline is None
    assert driver.open(300.0) == 0
    assert driver.deadline == 360.0
