// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/check/contentrules.h"
#include "tools/check/schema.h"

/**
 * Adds to @p document where it does not fit @p schema, and what the supervisor makes of it. Leaves
 * out places where something was found already.
 */
void checkSchema(SettingsDocument &document, DocumentType type, const Schema &schema);
