// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "health/hwwatchdog.h"

#include "common/errorline.h"

#include <fcntl.h>
#include <linux/watchdog.h>
#include <sys/ioctl.h>

HwWatchdog::HwWatchdog(QObject *parent, const char *devicePath)
    : QObject(parent), m_fd(::open(devicePath, O_WRONLY))
{
    if (m_fd == -1)
        writeErrorLine(QStringLiteral("Watchdog device doesn't exist!!!"));
}

void HwWatchdog::keepAlive()
{
    control(WDIOC_KEEPALIVE, nullptr);
}

void HwWatchdog::setTimeout(int seconds)
{
    // What the driver writes back, the time-out that it took, is of no use here.
    control(WDIOC_SETTIMEOUT, &seconds);
}

int HwWatchdog::getTimeout()
{
    int seconds = 0;
    control(WDIOC_GETTIMEOUT, &seconds);
    return seconds;
}

void HwWatchdog::disable()
{
    int option = WDIOS_DISABLECARD;
    control(WDIOC_SETOPTIONS, &option);
}

void HwWatchdog::enable()
{
    int option = WDIOS_ENABLECARD;
    control(WDIOC_SETOPTIONS, &option);
}

// Not const: what it changes is the device.
// NOLINTNEXTLINE(readability-make-member-function-const)
void HwWatchdog::control(unsigned long request, int *argument)
{
    // Descriptor 0 is left alone on purpose: it is where a program expects its standard input, also
    // when it was started without one. A device with this number would be armed by its opening and
    // never fed, so that the driver's own time-out resets the board. In the program it does not
    // come to that: the event loop, which is made first, has taken 0 by then.
    // (kept-behaviour.md: descriptor-0)
    if (m_fd > 0)
        ::ioctl(m_fd, request, argument);
}
