/* SPDX-FileCopyrightText: 2026 The watchdog developers
 * SPDX-License-Identifier: MIT
 *
 * The least that a load watcher can do: once a second, reads the files that the supervisor's load
 * watcher reads, and takes the same numbers out of them. It has no comparison, no text and no event
 * loop. Most of its processor time is spent in the kernel.
 *
 * minimalreader [-t] PID...    reads the processes, with -t their threads too
 * minimalreader -s COUNT       searches COUNT times through all processes
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

static char text[4096];
static volatile unsigned long long sink;

static int readFile(const char *path)
{
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (descriptor == -1)
        return 0;
    const ssize_t size = read(descriptor, text, 1024);
    close(descriptor);
    text[size > 0 ? size : 0] = '\0';
    return size > 0;
}

static void addNumbers(const char *field, int count)
{
    char *next = (char *)field;
    for (int i = 0; i < count; ++i)
        sink += strtoull(next, &next, 10);
}

static void readTotal(void)
{
    if (readFile("/proc/stat"))
        addNumbers(text + 4, 10);
}

static void readStat(const char *path)
{
    if (!readFile(path))
        return;
    const char *field = strrchr(text, ')');
    for (int i = 0; field != NULL && i < 12; ++i)
        field = strchr(field + 1, ' ');
    if (field != NULL)
        addNumbers(field + 1, 4);
}

static void readProcess(const char *pid, int threads)
{
    char path[600];
    readTotal();
    snprintf(path, sizeof path, "/proc/%s/stat", pid);
    readStat(path);
    if (!threads)
        return;
    snprintf(path, sizeof path, "/proc/%s/task", pid);
    DIR *directory = opendir(path);
    for (struct dirent *entry; directory != NULL && (entry = readdir(directory)) != NULL;) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9')
            continue;
        snprintf(path, sizeof path, "/proc/%s/task/%s/stat", pid, entry->d_name);
        readStat(path);
    }
    if (directory != NULL)
        closedir(directory);
}

static void search(const char *name)
{
    char path[600];
    DIR *directory = opendir("/proc");
    for (struct dirent *entry; directory != NULL && (entry = readdir(directory)) != NULL;) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9')
            continue;
        snprintf(path, sizeof path, "/proc/%s/stat", entry->d_name);
        if (!readFile(path))
            continue;
        const char *open = strchr(text, '(');
        const char *close = strrchr(text, ')');
        const size_t length = strlen(name);
        if (open != NULL && close == open + 1 + length && memcmp(open + 1, name, length) == 0)
            ++sink;
    }
    if (directory != NULL)
        closedir(directory);
}

int main(int argc, char *argv[])
{
    const int searches = argc == 3 && strcmp(argv[1], "-s") == 0 ? atoi(argv[2]) : 0;
    const int threads = argc > 1 && strcmp(argv[1], "-t") == 0;
    struct timespec due;
    clock_gettime(CLOCK_MONOTONIC, &due);
    for (;;) {
        for (int i = 0; i < searches; ++i)
            search("no-such-process");
        for (int i = threads ? 2 : 1; searches == 0 && i < argc; ++i)
            readProcess(argv[i], threads);
        ++due.tv_sec;
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, NULL);
    }
}
