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
    // The driver writes back the time-out that it took, which is not used here.
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

// Not const, because it changes the device.
// NOLINTNEXTLINE(readability-make-member-function-const)
void HwWatchdog::control(unsigned long request, int *argument)
{
    // Descriptor 0 is not used, because it is where a program expects its standard input, also when
    // it was started without one. A device with this descriptor would be armed by its opening and
    // never fed, so the board would be reset after the driver's own time-out. This does not happen
    // in the program: the event loop, which is made first, has taken 0 by then
    // (kept-behaviour.md: descriptor-0).
    if (m_fd > 0)
        ::ioctl(m_fd, request, argument);
}
