// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "behaviours.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using std::chrono::duration;

void writeAll(int descriptor, const char *data, std::size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(descriptor, data, size);
        if (written <= 0)
            std::exit(74); // the reader has closed the pipe
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

void writeText(int descriptor, const std::string &text)
{
    writeAll(descriptor, text.data(), text.size());
}

std::string take(Arguments &arguments)
{
    if (arguments.empty())
        throw std::invalid_argument("missing value");
    std::string value = arguments.front();
    arguments.pop_front();
    return value;
}

long long takeNumber(Arguments &arguments)
{
    return std::stoll(take(arguments));
}

// Replaces "\n", "\r", "\0" and "\\" in a text from the command line.
std::string unescape(const std::string &text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            result += text[i];
            continue;
        }
        ++i;
        switch (text[i]) {
        case 'n':
            result += '\n';
            break;
        case 'r':
            result += '\r';
            break;
        case '0':
            result += '\0';
            break;
        default:
            result += text[i];
        }
    }
    return result;
}

char setHighestBit(char byte)
{
    return static_cast<char>(byte | 0x80);
}

// Writes numbered lines of 100 bytes, so that a reader can see whether one is missing. On standard
// error each byte has its highest bit set, so that the reader can tell the channels apart.
void flood(const std::vector<int> &descriptors, long long bytes, std::size_t perWrite)
{
    constexpr std::size_t lineSize = 100;
    std::vector<std::string> pending(descriptors.size());
    long long lineNumber = 0;
    for (long long done = 0; done < bytes; done += lineSize, ++lineNumber) {
        for (std::size_t i = 0; i < descriptors.size(); ++i) {
            std::string line = "out " + std::to_string(lineNumber) + ' ';
            line.resize(lineSize - 1, '.');
            line += '\n';
            if (descriptors[i] == STDERR_FILENO)
                std::transform(line.begin(), line.end(), line.begin(), setHighestBit);
            pending[i] += line;
            if (pending[i].size() >= perWrite) {
                writeText(descriptors[i], pending[i]);
                pending[i].clear();
            }
        }
    }
    for (std::size_t i = 0; i < descriptors.size(); ++i)
        writeText(descriptors[i], pending[i]);
}

void printIdentity()
{
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(::getgroups(0, nullptr), 0)));
    const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
    groups.resize(static_cast<std::size_t>(std::max(count, 0)));
    std::sort(groups.begin(), groups.end());
    std::string text = "uid " + std::to_string(::getuid()) + " euid " + std::to_string(::geteuid())
        + " gid " + std::to_string(::getgid()) + " egid " + std::to_string(::getegid()) + " groups";
    for (const gid_t group : groups)
        text += ' ' + std::to_string(group);
    writeText(STDOUT_FILENO, text + '\n');
}

void printDescriptors()
{
    std::vector<int> descriptors;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) != -1)
            descriptors.push_back(descriptor);
    }
    std::string text = "descriptors";
    for (const int descriptor : descriptors)
        text += ' ' + std::to_string(descriptor);
    writeText(STDOUT_FILENO, text + '\n');
}

int exitCodeOnTerm = 0;

void exitOnTerm(int /*number*/)
{
    writeText(STDOUT_FILENO, "terminated\n");
    ::_exit(exitCodeOnTerm);
}

void dieBySignal(int number)
{
    ::signal(number, SIG_DFL);
    ::raise(number);
}

void leaveGrandchild(long long seconds)
{
    if (::fork() != 0)
        return;
    ::prctl(PR_SET_NAME, "grandchild");
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    writeText(STDOUT_FILENO, "grandchild was here\n");
    ::_exit(0);
}

// Keeps `share` percent of one processor busy, in slices that are short for every sampler.
void burn(int share)
{
    using Clock = std::chrono::steady_clock;
    constexpr auto slice = std::chrono::milliseconds(10);
    for (;;) {
        const Clock::time_point start = Clock::now();
        while (Clock::now() - start < slice * share / 100) { }
        std::this_thread::sleep_until(start + slice);
    }
}

void burnInThreads(long long count, int share)
{
    for (long long i = 0; i < count; ++i) {
        std::thread thread(burn, share);
        ::pthread_setname_np(thread.native_handle(), ("burner-" + std::to_string(i)).c_str());
        thread.detach();
    }
}

[[noreturn]] void demonstrate()
{
    for (int tick = 1;; ++tick) {
        writeText(STDOUT_FILENO, "sample application: alive for " + std::to_string(tick) + " s\n");
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
}

struct Behaviour
{
    const char *name;
    const char *values;
    const char *meaning;
    std::function<void(Arguments &)> run;
};

const std::vector<Behaviour> &behaviours()
{
    static const std::vector<Behaviour> all = {
        {"print", "TEXT", "write TEXT (with \\n, \\r, \\0) to standard output, in one write",
         [](Arguments &a) { writeText(STDOUT_FILENO, unescape(take(a))); }},
        {"error", "TEXT", "the same to standard error",
         [](Arguments &a) { writeText(STDERR_FILENO, unescape(take(a))); }},
        {"flood", "BYTES PER_WRITE", "numbered lines of 100 bytes to standard output",
         [](Arguments &a) {
             const long long bytes = takeNumber(a);
             flood({STDOUT_FILENO}, bytes, static_cast<std::size_t>(takeNumber(a)));
         }},
        {"flood-both", "BYTES PER_WRITE", "the same to both channels at once",
         [](Arguments &a) {
             const long long bytes = takeNumber(a);
             flood({STDOUT_FILENO, STDERR_FILENO}, bytes, static_cast<std::size_t>(takeNumber(a)));
         }},
        {"sleep", "SECONDS", "wait; fractions are allowed",
         [](Arguments &a) { std::this_thread::sleep_for(duration<double>(std::stod(take(a)))); }},
        {"wait", "", "wait for ever",
         [](Arguments &) {
             for (;;)
                 ::pause();
         }},
        {"exit", "CODE", "end with this exit code",
         [](Arguments &a) { std::exit(static_cast<int>(takeNumber(a))); }},
        {"signal", "NUMBER", "end by this signal",
         [](Arguments &a) { dieBySignal(static_cast<int>(takeNumber(a))); }},
        {"ignore-term", "", "ignore SIGTERM from here on",
         [](Arguments &) { ::signal(SIGTERM, SIG_IGN); }},
        {"on-term", "CODE", "on SIGTERM print \"terminated\" and end with this exit code",
         [](Arguments &a) {
             exitCodeOnTerm = static_cast<int>(takeNumber(a));
             ::signal(SIGTERM, exitOnTerm);
         }},
        {"name", "NAME", "take this process name",
         [](Arguments &a) { ::prctl(PR_SET_NAME, take(a).c_str()); }},
        {"grandchild", "SECONDS", "leave a child behind that prints a line after this time",
         [](Arguments &a) { leaveGrandchild(takeNumber(a)); }},
        {"burn", "THREADS PERCENT", "from here on, burn that share of a processor in each thread",
         [](Arguments &a) {
             const long long count = takeNumber(a);
             burnInThreads(count, static_cast<int>(takeNumber(a)));
         }},
        {"cat", "", "copy standard input to standard output until its end",
         [](Arguments &) {
             char buffer[4096];
             for (ssize_t n = 0; (n = ::read(STDIN_FILENO, buffer, sizeof buffer)) > 0;)
                 writeAll(STDOUT_FILENO, buffer, static_cast<std::size_t>(n));
         }},
        {"identity", "", "print the user and group ids", [](Arguments &) { printIdentity(); }},
        {"descriptors", "", "print the open descriptors", [](Arguments &) { printDescriptors(); }},
        {"arguments", "…", "print all that follows, one to a line",
         [](Arguments &a) {
             while (!a.empty())
                 writeText(STDOUT_FILENO, "argument: " + take(a) + '\n');
         }},
        {"demonstrate", "", "print a line a second, for ever (this is done without arguments)",
         [](Arguments &) { demonstrate(); }},
    };
    return all;
}

} // namespace

bool runBehaviour(const std::string &name, Arguments &arguments)
{
    for (const Behaviour &behaviour : behaviours()) {
        if (name != behaviour.name)
            continue;
        try {
            behaviour.run(arguments);
            return true;
        } catch (const std::logic_error &) { // the value is missing or is no number
            return false;
        }
    }
    return false;
}

void printBehaviours()
{
    std::fputs("sample-application [BEHAVIOUR [VALUES]]...\n", stderr);
    for (const Behaviour &behaviour : behaviours())
        std::fprintf(stderr, "  %-11s %-15s %s\n", behaviour.name, behaviour.values,
                     behaviour.meaning);
}
