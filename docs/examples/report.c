// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// Asks the supervisor for a report. The marker is one write of its own, after all that was printed
// before, so that the supervisor cannot get it in two pieces.
#include <stdio.h>
#include <unistd.h>

static int request_report(const char *name)
{
    char line[256];
    int length = snprintf(line, sizeof line, "==Report==%s\n", name);
    if (length < 0 || length >= (int)sizeof line || fflush(stdout) != 0)
        return -1;
    return write(STDOUT_FILENO, line, (size_t)length) == length ? 0 : -1;
}

int main(void)
{
    puts("the valve does not close");
    return request_report("valve") == 0 ? 0 : 1;
}
