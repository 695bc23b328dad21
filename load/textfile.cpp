// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "load/textfile.h"

#include <algorithm>

#include <fcntl.h>
#include <unistd.h>

bool readTextFile(int directory, const char *path, FileText &text)
{
    constexpr int chunkSize = 1024;
    text.clear();
    const int descriptor = ::openat(directory, path, O_RDONLY | O_CLOEXEC);
    if (descriptor == -1)
        return false;
    int size = 0;
    ssize_t count = chunkSize;
    // The kernel returns a whole line of the process table in one read. A read that does not fill
    // the buffer was therefore the last one, which saves a second call for each file.
    while (count == chunkSize) {
        text.resize(size + chunkSize);
        count = ::read(descriptor, text.data() + size, chunkSize);
        if (count > 0)
            size += static_cast<int>(count);
    }
    ::close(descriptor);
    text.resize(static_cast<int>(std::remove(text.data(), text.data() + size, '\r') - text.data()));
    return true;
}
