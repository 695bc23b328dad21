// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/guard/processes.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

// The fields of a stat line from the state on. The name before them may hold any character.
std::string statFields(const std::string &path)
{
    const std::string line = readStart(path + "/stat");
    const std::size_t nameEnd = line.rfind(") ");
    return nameEnd == std::string::npos ? std::string() : line.substr(nameEnd + 2);
}

pid_t number(const char *text)
{
    return static_cast<pid_t>(std::strtol(text, nullptr, 10));
}

// Whether the mask of this name in a thread's status holds the signal.
bool holds(const std::string &status, const char *name, int signal)
{
    const std::size_t at = status.find(name);
    if (at == std::string::npos)
        return false;
    const char *digits = status.c_str() + at + std::char_traits<char>::length(name);
    return (std::strtoull(digits, nullptr, 16) >> static_cast<unsigned>(signal - 1) & 1U) != 0;
}

std::string statusOf(pid_t thread)
{
    return readStart("/proc/" + std::to_string(thread) + "/status");
}

} // namespace

std::string readStart(const std::string &path)
{
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor == -1)
        return {};
    std::array<char, 8192> text;
    const ssize_t size = ::read(descriptor, text.data(), text.size());
    ::close(descriptor);
    return std::string(text.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
}

std::vector<pid_t> threadsOf(pid_t process)
{
    std::vector<pid_t> threads;
    DIR *directory = ::opendir(("/proc/" + std::to_string(process) + "/task").c_str());
    if (directory == nullptr)
        return threads;
    while (const dirent *entry = ::readdir(directory)) {
        const pid_t thread = number(entry->d_name); // "." and ".." give 0
        if (thread > 0)
            threads.push_back(thread);
    }
    ::closedir(directory);
    std::sort(threads.begin(), threads.end());
    // After the ids have been used up, a thread can have a lower one than its process.
    const auto main = std::find(threads.begin(), threads.end(), process);
    if (main != threads.end())
        std::rotate(threads.begin(), main, main + 1);
    return threads;
}

char stateOf(pid_t process, pid_t thread)
{
    const std::string fields =
        statFields("/proc/" + std::to_string(process) + "/task/" + std::to_string(thread));
    return fields.empty() ? 'X' : fields.front();
}

pid_t parentOf(pid_t process)
{
    const std::string fields = statFields("/proc/" + std::to_string(process));
    return fields.size() < 2 ? 0 : number(fields.c_str() + 2);
}

bool hasDefaultAction(pid_t thread, int signal)
{
    const std::string status = statusOf(thread);
    return !status.empty() && !holds(status, "\nSigIgn:", signal)
        && !holds(status, "\nSigCgt:", signal);
}

bool isBlocked(pid_t thread, int signal)
{
    return holds(statusOf(thread), "\nSigBlk:", signal);
}
