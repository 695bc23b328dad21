// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

// What this process holds, for tests that nothing is left behind.

/** The descriptors that are open. */
int openDescriptors();

/** Whether a child runs, or has ended and was not yet waited for. */
bool hasChildren();
