// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/guard/notifysocket.h"

#include <cerrno>
#include <cstddef>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr std::size_t mostDescriptors = 253; // of one message; the kernel's limit

int openSocket()
{
    const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor == -1)
        return -1;
    const int on = 1;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    // An address without a name has the kernel choose one.
    if (::setsockopt(descriptor, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) == 0
        && ::bind(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address.sun_family)
            == 0)
        return descriptor;
    const int error = errno;
    ::close(descriptor);
    errno = error;
    return -1;
}

pid_t takeControlData(msghdr &header)
{
    pid_t sender = 0;
    for (cmsghdr *item = CMSG_FIRSTHDR(&header); item != nullptr;
         item = CMSG_NXTHDR(&header, item)) {
        if (item->cmsg_level != SOL_SOCKET)
            continue;
        if (item->cmsg_type == SCM_CREDENTIALS) {
            ucred credentials = {};
            std::memcpy(&credentials, CMSG_DATA(item), sizeof credentials);
            sender = credentials.pid;
        } else if (item->cmsg_type == SCM_RIGHTS) {
            // BARRIER=1 waits for just this.
            for (std::size_t at = CMSG_LEN(0); at < item->cmsg_len; at += sizeof(int)) {
                int descriptor = -1;
                std::memcpy(&descriptor, reinterpret_cast<char *>(item) + at, sizeof descriptor);
                ::close(descriptor);
            }
        }
    }
    return sender;
}

} // namespace

NotifySocket::NotifySocket() : m_descriptor(openSocket()), m_text()
{ }

NotifySocket::~NotifySocket()
{
    if (m_descriptor != -1)
        ::close(m_descriptor);
}

std::string NotifySocket::address() const
{
    sockaddr_un address = {};
    socklen_t size = sizeof address;
    if (::getsockname(m_descriptor, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        return {};
    // "@" stands for the NUL byte that begins an abstract address.
    const std::size_t before = offsetof(sockaddr_un, sun_path) + 1;
    return '@' + std::string(address.sun_path + 1, size - before);
}

std::optional<NotifySocket::Message> NotifySocket::receive()
{
    for (;;) {
        alignas(cmsghdr)
            std::array<char, CMSG_SPACE(sizeof(ucred)) + CMSG_SPACE(mostDescriptors * sizeof(int))>
                control;
        iovec text = {m_text.data(), m_text.size()};
        msghdr header = {};
        header.msg_iov = &text;
        header.msg_iovlen = 1;
        header.msg_control = control.data();
        header.msg_controllen = control.size();
        const ssize_t size = ::recvmsg(m_descriptor, &header, MSG_CMSG_CLOEXEC);
        if (size == -1 && errno == EINTR)
            continue;
        if (size == -1)
            return std::nullopt;
        const pid_t sender = takeControlData(header);
        if ((static_cast<unsigned>(header.msg_flags) & MSG_TRUNC) == 0)
            return Message{sender, {m_text.data(), static_cast<std::size_t>(size)}};
    }
}
