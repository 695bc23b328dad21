/* SPDX-FileCopyrightText: 2026 The watchdog developers
 * SPDX-License-Identifier: MIT
 *
 * Runs a command and says what that one process has cost.
 *
 * measure RESULT COMMAND [ARGUMENT]...
 *
 * Writes a line to the file RESULT: processor time in ns, wall time in ns, peak resident memory in
 * KiB, and the exit status (128 + number for a signal).
 *
 * The processor time is that of the process's own clock, read between its end and its burial. Other
 * than the usage that wait4() tells, it leaves out children: a supervisor has the application as
 * its child, a logger at the end of a pipe has not. It counts what the scheduler has counted, in
 * ns, not in ticks.
 *
 * The peak is that of wait4(). The kernel takes it over from whoever started the process, and from
 * children: this small program stands between the script and the logger, and the application is
 * smaller than any logger.
 */
#define _GNU_SOURCE
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static long long nanoseconds(clockid_t clock)
{
    struct timespec time;
    if (clock_gettime(clock, &time) == -1) {
        perror("measure: clock_gettime");
        exit(1);
    }
    return time.tv_sec * 1000000000LL + time.tv_nsec;
}

int main(int argc, char *argv[])
{
    if (argc < 3) {
        fputs("Usage: measure RESULT COMMAND [ARGUMENT]...\n", stderr);
        return 2;
    }
    const long long start = nanoseconds(CLOCK_MONOTONIC);
    const pid_t child = fork();
    if (child == 0) {
        execvp(argv[2], argv + 2);
        perror(argv[2]);
        _exit(127);
    }
    clockid_t clock;
    siginfo_t info;
    int status = 0;
    struct rusage usage;
    if (child == -1 || clock_getcpuclockid(child, &clock) != 0
        || waitid(P_PID, (id_t)child, &info, WEXITED | WNOWAIT) == -1) {
        perror("measure");
        return 1;
    }
    const long long wall = nanoseconds(CLOCK_MONOTONIC) - start;
    const long long processor = nanoseconds(clock);
    wait4(child, &status, 0, &usage);

    FILE *result = fopen(argv[1], "w");
    if (result == NULL) {
        perror(argv[1]);
        return 1;
    }
    fprintf(result, "%lld %lld %ld %d\n", processor, wall, usage.ru_maxrss,
            WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status));
    return fclose(result) == 0 ? 0 : 1;
}
