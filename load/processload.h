// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "load/statrecord.h"

/**
 * The load that a process or thread made between two readings, in percent of the time of all
 * processors together.
 *
 * All differences wrap: a process that has vanished reads as zero, and the enormous load that comes
 * out of it is what tells of its end.
 *
 * @param current the later reading
 * @param previous the earlier reading
 * @param cpuTotal how far the machine-wide counter went between the two; with 0 the load is
 * infinite or not a number
 */
double processLoad(const StatRecord &current, const StatRecord &previous, quint64 cpuTotal);
