// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

/** One process to be watched and the state of the search for it; a plain value. */
struct WatchEntry
{
    QString name;     ///< as in the kernel's stat line
    QStringList args; ///< each of which the process's command line must contain
    int pid = 0;      ///< 0: not found yet, or lost
    int period = 0;   ///< consecutive ticks at or over the threshold that cause an alarm
    int cpuLoad = 0;  ///< the threshold, in percent of all processors' time together
    bool readThreads = false;
    int notFoundCount = 0;  ///< consecutive failed look-ups
    int notFoundPeriod = 0; ///< failed look-ups before the absence is reported; 0 or less: never
};

/** The lines gathered for an alarm that is not due yet; a plain value. */
struct ExceedState
{
    int count = 0; ///< consecutive ticks at or over the threshold
    QStringList lines;
};
