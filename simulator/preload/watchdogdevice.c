/* SPDX-FileCopyrightText: 2026 The watchdog developers
 * SPDX-License-Identifier: MIT
 *
 * This library is preloaded into the supervisor in the simulated device and gives it a
 * /dev/watchdog.
 *
 * Opening the device connects to the board, and the descriptor is this connection. So dup, fork,
 * exec and the end of the process treat it like any other descriptor, and a write sends the bytes.
 * Only open and ioctl are replaced here. An ioctl is one request and one answer. This process keeps
 * no list of descriptors: a descriptor is the device if its peer has the address of the board.
 */
#define _GNU_SOURCE
#undef _FORTIFY_SOURCE /* its inline open and openat would conflict with the ones below */
#undef _FILE_OFFSET_BITS
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/ioctl.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#define DEVICE "/dev/watchdog"
#define BOARD "/run/simulator/watchdog"
#define IOCTL_TYPE 'W'

struct request
{
    char mark[8]; /* distinguishes a request from bytes that the program writes */
    uint32_t ioctl;
    int32_t value;
};

struct answer
{
    int32_t error;
    int32_t value;
};

static const char mark[8] = {'\0', 'w', 'd', 'i', 'o', 'c', 't', 'l'};

/* Takes this library out of LD_PRELOAD. Children of the supervisor then get the environment that
 * the board gave to the supervisor, and they have no device. Other libraries in the list stay. */
__attribute__((constructor)) static void leaveEnvironment(void)
{
    const char *list = getenv("LD_PRELOAD");
    if (!list)
        return;
    char *others = calloc(strlen(list) + 1, 1);
    char *entries = strdup(list);
    if (!others || !entries)
        abort();
    char *rest = entries;
    for (char *entry; (entry = strsep(&rest, ": ")) != NULL;) {
        const char *name = strrchr(entry, '/');
        if (!*entry || strcmp(name ? name + 1 : entry, "libwatchdogdevice.so") == 0)
            continue;
        if (*others)
            strcat(others, ":");
        strcat(others, entry);
    }
    if (*others)
        setenv("LD_PRELOAD", others, 1);
    else
        unsetenv("LD_PRELOAD");
    free(others);
    free(entries);
}

static int receiveAnswer(int descriptor, struct answer *answer)
{
    ssize_t size;
    do {
        size = recv(descriptor, answer, sizeof *answer, 0);
    } while (size < 0 && errno == EINTR);
    if (size != (ssize_t)sizeof *answer) {
        errno = EIO;
        return -1;
    }
    if (answer->error) {
        errno = answer->error;
        return -1;
    }
    return 0;
}

static int openDevice(int flags)
{
    const struct sockaddr_un board = {.sun_family = AF_UNIX, .sun_path = BOARD};
    struct answer answer;
    int descriptor = socket(AF_UNIX, SOCK_SEQPACKET | (flags & O_CLOEXEC ? SOCK_CLOEXEC : 0), 0);
    if (descriptor < 0)
        return -1;
    if (connect(descriptor, (const struct sockaddr *)&board, sizeof board) == 0
        && receiveAnswer(descriptor, &answer) == 0)
        return descriptor;
    const int error = errno;
    close(descriptor);
    errno = error;
    return -1;
}

static int isDevice(int descriptor)
{
    struct sockaddr_un peer;
    socklen_t size = sizeof peer;
    const int error = errno;
    memset(&peer, 0, sizeof peer);
    const int found = getpeername(descriptor, (struct sockaddr *)&peer, &size) == 0
        && peer.sun_family == AF_UNIX && strncmp(peer.sun_path, BOARD, sizeof peer.sun_path) == 0;
    errno = error;
    return found;
}

static int passIoctl(int descriptor, unsigned long number, int *argument)
{
    struct request request = {.ioctl = (uint32_t)number, .value = argument ? *argument : 0};
    struct answer answer;
    memcpy(request.mark, mark, sizeof mark);
    if (send(descriptor, &request, sizeof request, MSG_NOSIGNAL) != (ssize_t)sizeof request) {
        errno = EIO;
        return -1;
    }
    if (receiveAnswer(descriptor, &answer) != 0)
        return -1;
    if (argument)
        *argument = answer.value;
    return 0;
}

/* Returns the function that the program would have called without this library. */
static void *next(const char *name)
{
    void *function = dlsym(RTLD_NEXT, name);
    if (!function)
        abort();
    return function;
}

#define TAKE_MODE(flags, mode)                                                                     \
    mode_t mode = 0;                                                                               \
    if ((flags) & (O_CREAT | (O_TMPFILE & ~O_DIRECTORY))) {                                        \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        mode = va_arg(arguments, mode_t);                                                          \
        va_end(arguments);                                                                         \
    }

#define STAND_IN_OPEN(name)                                                                        \
    __attribute__((visibility("default"))) int name(const char *path, int flags, ...)              \
    {                                                                                              \
        TAKE_MODE(flags, mode)                                                                     \
        if (strcmp(path, DEVICE) == 0)                                                             \
            return openDevice(flags);                                                              \
        return ((int (*)(const char *, int, ...))next(#name))(path, flags, mode);                  \
    }

#define STAND_IN_OPENAT(name)                                                                      \
    __attribute__((visibility("default"))) int name(int directory, const char *path, int flags,    \
                                                    ...)                                           \
    {                                                                                              \
        TAKE_MODE(flags, mode)                                                                     \
        if (strcmp(path, DEVICE) == 0)                                                             \
            return openDevice(flags);                                                              \
        return ((int (*)(int, const char *, int, ...))next(#name))(directory, path, flags, mode);  \
    }

/* A program built with _FORTIFY_SOURCE calls this for open when the flags are not a constant. */
#define STAND_IN_OPEN_2(name)                                                                      \
    __attribute__((visibility("default"))) int name(const char *path, int flags)                   \
    {                                                                                              \
        if (strcmp(path, DEVICE) == 0)                                                             \
            return openDevice(flags);                                                              \
        return ((int (*)(const char *, int))next(#name))(path, flags);                             \
    }

STAND_IN_OPEN(open)
STAND_IN_OPEN(open64)
STAND_IN_OPENAT(openat)
STAND_IN_OPENAT(openat64)
STAND_IN_OPEN_2(__open_2)
STAND_IN_OPEN_2(__open64_2)

__attribute__((visibility("default"))) int ioctl(int descriptor, unsigned long number, ...)
{
    va_list arguments;
    va_start(arguments, number);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (_IOC_TYPE(number) == IOCTL_TYPE && isDevice(descriptor))
        return passIoctl(descriptor, number, argument);
    return ((int (*)(int, unsigned long, ...))next("ioctl"))(descriptor, number, argument);
}
