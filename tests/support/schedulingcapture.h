// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QVector>

/** One request to schedule a thread in a certain way. */
struct SchedulingRequest
{
    int thread = -1; ///< 0: the calling one
    int policy = -1;
    int priority = -1;
};

/**
 * The requests since the last call. In a test that links this none reaches the kernel, so that its
 * own thread never runs in real time. Any thread.
 */
QVector<SchedulingRequest> takeSchedulingRequests();

/** Whether the scheduling parameters can be read, and set; both at first. */
void setSchedulingReadable(bool readable);
void setSchedulingAllowed(bool allowed);
