/* SPDX-FileCopyrightText: 2026 The watchdog developers
 * SPDX-License-Identifier: MIT
 *
 * The application whose output is logged. Prints records of 100 bytes, each a number of 16 digits,
 * counting from 0, and dots; so any piece of the output says where it belongs. The last byte of a
 * record is a line end, or, where all is to be one line, that of the last record only.
 *
 * logwriter [-1] [-2] [-f] WRITE_SIZE TOTAL
 *
 * WRITE_SIZE  bytes per write
 * TOTAL       bytes to print on standard output; a multiple of 100
 * -1          all is one line
 * -2          print the same on standard error, at the same time
 * -f          print each record with printf(), line-buffered; WRITE_SIZE must then be 100
 */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

enum { recordSize = 100, digits = 16 };

static char record[recordSize + 1]; /* ends with a NUL */
static size_t recordUsed = 0;

static void startRecords(int oneLine)
{
    memset(record, '.', recordSize);
    memset(record, '0', digits);
    if (!oneLine)
        record[recordSize - 1] = '\n';
}

static void countUp(void)
{
    size_t i = digits;
    while (i > 0 && record[--i] == '9')
        record[i] = '0';
    ++record[i];
}

static void fill(char *to, size_t size)
{
    while (size > 0) {
        const size_t rest = recordSize - recordUsed;
        const size_t part = size < rest ? size : rest;
        memcpy(to, record + recordUsed, part);
        to += part;
        size -= part;
        recordUsed += part;
        if (recordUsed == recordSize) {
            recordUsed = 0;
            countUp();
        }
    }
}

static int writeAll(int descriptor, const char *from, size_t size)
{
    while (size > 0) {
        const ssize_t written = write(descriptor, from, size);
        if (written == -1 && errno == EINTR)
            continue;
        if (written == -1)
            return 0;
        from += written;
        size -= (size_t)written;
    }
    return 1;
}

static int printFormatted(FILE *stream, unsigned long long total)
{
    setvbuf(stream, NULL, _IOLBF, BUFSIZ);
    for (unsigned long long number = 0; number < total / recordSize; ++number) {
        if (fprintf(stream, "%0*llu%s", digits, number, record + digits) != recordSize) {
            perror("logwriter");
            return 1;
        }
    }
    return 0;
}

static int print(FILE *stream, size_t writeSize, unsigned long long total)
{
    char *chunk = malloc(writeSize);
    if (chunk == NULL)
        return 1;
    for (unsigned long long left = total; left > 0;) {
        const size_t size = left < writeSize ? (size_t)left : writeSize;
        fill(chunk, size);
        left -= size;
        if (left == 0)
            chunk[size - 1] = '\n';
        if (!writeAll(fileno(stream), chunk, size)) {
            perror("logwriter");
            return 1;
        }
    }
    free(chunk);
    return 0;
}

int main(int argc, char *argv[])
{
    int oneLine = 0;
    int bothChannels = 0;
    int formatted = 0;
    for (int option; (option = getopt(argc, argv, "12f")) != -1;) {
        oneLine |= option == '1';
        bothChannels |= option == '2';
        formatted |= option == 'f';
    }
    if (argc - optind != 2) {
        fputs("Usage: logwriter [-1] [-2] [-f] WRITE_SIZE TOTAL\n", stderr);
        return 2;
    }
    const size_t writeSize = strtoul(argv[optind], NULL, 10);
    const unsigned long long total = strtoull(argv[optind + 1], NULL, 10);
    startRecords(oneLine);

    FILE *stream = stdout;
    pid_t child = 0;
    if (bothChannels) {
        child = fork();
        if (child == -1)
            return 1;
        if (child == 0)
            stream = stderr;
    }
    int status = formatted ? printFormatted(stream, total) : print(stream, writeSize, total);
    /* The parent ends last: what is printed after its end would be lost. */
    int childStatus = 0;
    if (child > 0 && (waitpid(child, &childStatus, 0) == -1 || childStatus != 0))
        status = 1;
    return status;
}
