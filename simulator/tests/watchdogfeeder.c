/* SPDX-FileCopyrightText: 2026 The watchdog developers
 * SPDX-License-Identifier: MIT
 *
 * For the tests of the simulated watchdog device: carries out the steps named on its command line.
 *
 *   open         open the device
 *   timeout N    set the time-out to N s, print what was granted
 *   get          print the time-out
 *   feed N       feed N times, 0.2 s apart
 *   options N    set options
 *   magic        write the magic character
 *   close        close the descriptor
 *   environment  print LD_PRELOAD
 *   cat PATH     print a file
 *   wait         wait for ever
 *   exec …       execute a command
 *
 * A step that fails prints its name and the reason to standard error and ends the program with 1.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <linux/watchdog.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

static void expect(int holds, const char *step)
{
    if (holds)
        return;
    fprintf(stderr, "%s: %s\n", step, strerror(errno));
    exit(1);
}

static void feed(int device, int times)
{
    const struct timespec interval = {.tv_nsec = 200 * 1000 * 1000};
    for (int i = 0; i < times; ++i) {
        expect(ioctl(device, WDIOC_KEEPALIVE, 0) == 0, "feed");
        nanosleep(&interval, NULL);
    }
}

static void cat(const char *path)
{
    char buffer[4096];
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    expect(file >= 0, "cat");
    for (ssize_t size; (size = read(file, buffer, sizeof buffer)) > 0;)
        expect(write(STDOUT_FILENO, buffer, (size_t)size) == size, "cat");
    close(file);
}

int main(int argc, char *argv[])
{
    int device = -1;
    int value = 0;
    (void)argc;
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);
    for (char **step = argv + 1; *step; ++step) {
        if (strcmp(*step, "open") == 0) {
            device = open("/dev/watchdog", O_WRONLY);
            expect(device >= 0, *step);
        } else if (strcmp(*step, "timeout") == 0) {
            value = atoi(*++step);
            expect(ioctl(device, WDIOC_SETTIMEOUT, &value) == 0, "timeout");
            printf("granted %d\n", value);
        } else if (strcmp(*step, "get") == 0) {
            expect(ioctl(device, WDIOC_GETTIMEOUT, &value) == 0, *step);
            printf("timeout %d\n", value);
        } else if (strcmp(*step, "feed") == 0) {
            feed(device, atoi(*++step));
        } else if (strcmp(*step, "options") == 0) {
            value = atoi(*++step);
            expect(ioctl(device, WDIOC_SETOPTIONS, &value) == 0, "options");
        } else if (strcmp(*step, "magic") == 0) {
            expect(write(device, "V", 1) == 1, *step);
        } else if (strcmp(*step, "close") == 0) {
            expect(close(device) == 0, *step);
        } else if (strcmp(*step, "environment") == 0) {
            const char *preload = getenv("LD_PRELOAD");
            printf("LD_PRELOAD %s\n", preload ? preload : "is not set");
        } else if (strcmp(*step, "cat") == 0) {
            cat(*++step);
        } else if (strcmp(*step, "wait") == 0) {
            for (;;)
                pause();
        } else if (strcmp(*step, "exec") == 0) {
            execvp(step[1], step + 1);
            expect(0, *step);
        } else {
            errno = EINVAL;
            expect(0, *step);
        }
    }
    return 0;
}
