// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "load/statrecord.h"

/**
 * Returns the load that a process or thread made between two readings, in percent of the time of
 * all processors together.
 *
 * All differences wrap. A process that has vanished reads as zero, and its load then becomes
 * enormous. Readers of the log recognise its end by this figure.
 *
 * @param current the later reading
 * @param previous the earlier reading
 * @param cpuTotal the increase of the machine-wide counter between the two readings; with 0 the
 * load is infinite or not a number
 */
double processLoad(const StatRecord &current, const StatRecord &previous, quint64 cpuTotal);
