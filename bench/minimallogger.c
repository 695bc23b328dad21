/* SPDX-FileCopyrightText: 2026 The watchdog developers
 * SPDX-License-Identifier: MIT
 *
 * The least that a logger with an event loop can do: wait with poll(), read, write, and rename the
 * file when it has reached the limit. Nearly all of its processor time is spent in the kernel.
 *
 * minimallogger FILE LIMIT
 *
 * FILE   the log file; its old generation is FILE.0
 * LIMIT  bytes in the log file
 */
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

static char chunk[65536];

static ssize_t readChunk(void)
{
    struct pollfd input = {.fd = STDIN_FILENO, .events = POLLIN};
    if (poll(&input, 1, -1) == -1)
        return -1;
    return read(STDIN_FILENO, chunk, sizeof chunk);
}

static int openNew(const char *path)
{
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor == -1) {
        perror(path);
        exit(1);
    }
    return descriptor;
}

int main(int argc, char *argv[])
{
    if (argc != 3) {
        fputs("Usage: minimallogger FILE LIMIT\n", stderr);
        return 2;
    }
    const char *path = argv[1];
    char oldPath[4096];
    snprintf(oldPath, sizeof oldPath, "%s.0", path);
    const long limit = strtol(argv[2], NULL, 10);

    int file = openNew(path);
    long inFile = 0;
    for (ssize_t size; (size = readChunk()) > 0;) {
        if (write(file, chunk, (size_t)size) != size) {
            perror(path);
            return 1;
        }
        inFile += size;
        if (inFile < limit)
            continue;
        close(file);
        rename(path, oldPath);
        file = openNew(path);
        inFile = 0;
    }
    return 0;
}
