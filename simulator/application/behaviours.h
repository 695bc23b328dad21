// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <string>

using Arguments = std::deque<std::string>;

/**
 * Carries out the behaviour @p name, taking the values it needs from the front of @p arguments.
 * Returns false when there is no such behaviour or a value is missing or bad. Some never return.
 */
bool runBehaviour(const std::string &name, Arguments &arguments);

/** Writes the names of all behaviours with their values to standard error. */
void printBehaviours();
