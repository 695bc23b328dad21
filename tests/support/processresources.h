// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

// The resources of this process, for tests that check that nothing is left.

/** The number of open descriptors. */
int openDescriptors();

/** Whether there is a child that runs or that was not yet waited for. */
bool hasChildren();
