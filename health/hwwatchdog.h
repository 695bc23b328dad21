// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>

/**
 * The board's hardware watchdog, which resets the board when it is not fed in time.
 *
 * The device is opened once and never given back: destroying this object neither disables the card
 * nor writes the magic-close character nor closes the descriptor. A supervisor that ends, for
 * whatever reason, is to be followed by a reset, and a clean shutdown of the device would take that
 * protection away (kept-behaviour.md: device-stays-armed).
 *
 * Without a usable device every operation does nothing; what the driver refuses is not reported.
 * Main thread only, so that the feed stops as soon as the main loop does.
 */
class HwWatchdog : public QObject
{
    Q_OBJECT

public:
    /**
     * Opens the device at @p devicePath. When that fails, says so on standard error and goes on
     * without one; there is no second try.
     */
    explicit HwWatchdog(QObject *parent = nullptr, const char *devicePath = "/dev/watchdog");

    /** Feeds the watchdog: the time-out begins anew. */
    void keepAlive();

    /**
     * Has the board reset @p seconds after the last feed. A driver that cannot do that takes
     * another time or none, see getTimeout().
     */
    void setTimeout(int seconds);

    // The program calls none of the following three.

    /** The driver's time-out in seconds; 0 when it tells none. */
    int getTimeout();

    /** Switches the card off: the board is no longer reset. */
    void disable();

    /** Switches the card on again. */
    void enable();

private:
    void control(unsigned long request, int *argument);

    int m_fd; // -1: the device could not be opened
};
