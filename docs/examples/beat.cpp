// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// Sends beats from the event loop, so that they stop when it stands still. With QGuiApplication in
// place of QCoreApplication this is the loop that draws.
#include <QByteArray>
#include <QCoreApplication>
#include <QTimer>

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

// What sd_notify() of libsystemd does, for a board without it.
static void notify(const QByteArray &text)
{
    const QByteArray name = qgetenv("NOTIFY_SOCKET");
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (name.isEmpty() || name.size() > int(sizeof address.sun_path))
        return; // nobody wants to know
    std::copy(name.cbegin(), name.cend(), address.sun_path);
    if (name.startsWith('@'))
        address.sun_path[0] = '\0';
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket == -1)
        return;
    ::sendto(socket, text.constData(), size_t(text.size()), MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr *>(&address),
             socklen_t(offsetof(sockaddr_un, sun_path)) + socklen_t(name.size()));
    ::close(socket);
}

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    notify("READY=1\nSTATUS=the valve is open");
    int turn = 0;
    QTimer beat;
    QObject::connect(&beat, &QTimer::timeout, [&turn] {
        std::printf("turn %d\n", ++turn);
        std::fflush(stdout);
        notify("WATCHDOG=1");
        if (turn == 3)
            ::pause(); // a hang
    });
    // Twice within the time in which a beat has to come.
    const int milliseconds = int(qgetenv("WATCHDOG_USEC").toLongLong() / 1000 / 2);
    if (milliseconds > 0)
        beat.start(milliseconds);
    return QCoreApplication::exec();
}
