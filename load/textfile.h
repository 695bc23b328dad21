// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QVarLengthArray>

/** The bytes of a text file. Lines of the process table fit without an allocation. */
using FileText = QVarLengthArray<char, 1024>;

/**
 * Reads the whole file at @p path into @p text, without its carriage returns, as in text mode. A
 * relative path starts at the open directory @p directory (AT_FDCWD: the working directory).
 *
 * Returns whether the file could be opened. If the file then cannot be read, @p text is empty. This
 * happens with the stat file of a process that ended after the file was opened.
 */
bool readTextFile(int directory, const char *path, FileText &text);
