// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>

/**
 * The board's hardware watchdog, which resets the board when it is not fed in time.
 *
 * The device is opened once and never given back. Destroying this object does not disable the card,
 * write the magic-close character or close the descriptor. Whenever a supervisor ends, the board is
 * to be reset, and a clean shutdown of the device would prevent that
 * (kept-behaviour.md: device-stays-armed).
 *
 * Without a usable device every operation does nothing. A request that the driver refuses is not
 * reported. Main thread only, so that the feeding stops when the main loop stops.
 */
class HwWatchdog : public QObject
{
    Q_OBJECT

public:
    /**
     * Opens the device at @p devicePath. If that fails, a message goes to standard error, and the
     * object works without a device; it does not try again.
     */
    explicit HwWatchdog(QObject *parent = nullptr, const char *devicePath = "/dev/watchdog");

    /** Feeds the watchdog: the time-out begins anew. */
    void keepAlive();

    /**
     * Sets the time-out: the board is reset @p seconds after the last feed. A driver that cannot do
     * that takes another time-out or keeps its own, see getTimeout().
     */
    void setTimeout(int seconds);

    // The program calls none of the following three (kept-behaviour.md: unused-slots).

    /** The driver's time-out in seconds; 0 when the driver cannot tell it. */
    int getTimeout();

    /** Switches the card off: the board is no longer reset. */
    void disable();

    /** Switches the card on again. */
    void enable();

private:
    void control(unsigned long request, int *argument);

    int m_fd; // -1: the device could not be opened
};
