// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

/**
 * The socket to which the application sends its notifications, as systemd's service manager has it.
 *
 * It has an address of the abstract kind, which the kernel chooses. So it needs no directory that
 * can be written to, the application reaches it also as another user, and nothing of it is left
 * when the guard is killed. Any process may send to it: each message tells its sender.
 */
class NotifySocket
{
public:
    NotifySocket();
    ~NotifySocket();
    NotifySocket(const NotifySocket &) = delete;
    NotifySocket &operator=(const NotifySocket &) = delete;

    /** -1: it could not be opened, and errno tells why. */
    int descriptor() const { return m_descriptor; }

    /** For the variable NOTIFY_SOCKET. */
    std::string address() const;

    struct Message
    {
        pid_t sender;          ///< 0: a process outside the guard's namespace
        std::string_view text; ///< valid until the next call
    };

    /** The next message; nothing when all are read. File descriptors that come along are closed. */
    std::optional<Message> receive();

private:
    int m_descriptor;
    std::array<char, 4096> m_text; // what is longer is dropped, as systemd does it
};
