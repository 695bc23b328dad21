// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/guard/application.h"

#include "tools/guard/output.h"
#include "tools/guard/processes.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

// An application that gives work to its tracer without end does not keep it from its other duties.
constexpr int mostEventsAtOnce = 1000;
constexpr std::chrono::seconds longestHold{3};
// Two copies of a signal to the process group come closer together than this.
constexpr std::chrono::seconds copyTime{1};
constexpr timespec holdPause = {0, 50'000'000};

// The path that execvp() takes; empty when there is none.
std::string executablePath(const std::string &name)
{
    if (name.find('/') != std::string::npos)
        return name;
    const char *variable = std::getenv("PATH");
    std::string directories = variable != nullptr ? variable : "/bin:/usr/bin";
    directories += ':';
    for (std::size_t begin = 0, end = 0; (end = directories.find(':', begin)) != std::string::npos;
         begin = end + 1) {
        std::string path = directories.substr(begin, end - begin) + '/' + name;
        if (::access(path.c_str(), X_OK) == 0)
            return path;
    }
    return {};
}

// The kernel withholds these rights from a program that a tracer without rights watches.
bool gainsRights(const std::string &path)
{
    struct stat file = {};
    if (::geteuid() == 0 || ::stat(path.c_str(), &file) != 0)
        return false;
    return (file.st_mode & (S_ISUID | S_ISGID)) != 0
        || ::getxattr(path.c_str(), "security.capability", nullptr, 0) > 0;
}

bool isGroupStop(int signal)
{
    return signal == SIGSTOP || signal == SIGTSTP || signal == SIGTTIN || signal == SIGTTOU;
}

int eventOf(int status)
{
    return status >> 16;
}

// Whether the signal in this stop ends the application, and was not sent to that end.
bool isCrash(pid_t thread, int status)
{
    static constexpr std::array harmless = {SIGCHLD, SIGCONT, SIGURG, SIGWINCH};
    const int signal = WSTOPSIG(status);
    return eventOf(status) == 0 && !isGroupStop(signal)
        && std::find(harmless.begin(), harmless.end(), signal) == harmless.end()
        && (!asksForEnd(signal) || signal == SIGQUIT) // this one asks for a core, too
        && hasDefaultAction(thread, signal);
}

} // namespace

bool asksForEnd(int signal)
{
    return signal == SIGTERM || signal == SIGINT || signal == SIGHUP || signal == SIGQUIT;
}

bool Application::start(char *const *command, const InheritedSignals &inherited,
                        const std::string &address, const std::string &timeoutUsec, bool trace)
{
    m_end.reset();
    m_crash.reset();
    m_held.clear();
    m_traced = false;
    m_looking = false;

    std::array<int, 2> go = {};
    if (::pipe2(go.data(), O_CLOEXEC) != 0) {
        say(std::string("cannot start the application: ") + std::strerror(errno));
        return false;
    }
    const pid_t guard = ::getpid();
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(go[1]);
        runApplication(command, inherited, address, timeoutUsec, go[0], guard);
    }
    const int error = errno;
    ::close(go[0]);
    if (child == -1) {
        say(std::string("cannot start the application: ") + std::strerror(error));
    } else {
        m_pid = child;
        if (trace && gainsRights(executablePath(*command)))
            say("no stacks: " + std::string(*command)
                + " gains rights when it is started, and would not if it were traced");
        else if (trace)
            m_traced = m_looking = this->trace(child);
        const ssize_t written = ::write(go[1], "", 1);
        static_cast<void>(written); // a child that is dead already needs no byte
    }
    ::close(go[1]);
    return child != -1;
}

bool Application::trace(pid_t child)
{
    if (::ptrace(PTRACE_SEIZE, child, nullptr, PTRACE_O_EXITKILL | PTRACE_O_TRACECLONE) == 0)
        return true;
    say(std::string("no stacks: the application cannot be traced: ") + std::strerror(errno));
    return false;
}

void Application::send(int signal) const
{
    if (m_pid != 0)
        ::kill(m_pid, signal);
}

void Application::abort() const
{
    const std::vector<pid_t> held = heldThreads();
    const auto takes = [](pid_t thread) { return !isBlocked(thread, SIGABRT); };
    const auto thread = std::find_if(held.begin(), held.end(), takes);
    if (thread != held.end())
        ::syscall(SYS_tgkill, m_pid, *thread, SIGABRT);
    else
        send(SIGABRT);
    send(SIGCONT);
}

void Application::passOn(int signal, pid_t sender)
{
    m_passedOnFor = sender;
    send(signal);
}

// Whoever stops all processes of a service or a process group sends the signal to the guard, which
// passes it on, and to the application itself. Many applications take a second one as an order to
// stop at once, so it gets only the one that comes first.
bool Application::isSecondCopy(pid_t thread, int signal)
{
    siginfo_t info = {};
    if (!asksForEnd(signal) || ::ptrace(PTRACE_GETSIGINFO, thread, nullptr, &info) != 0
        || info.si_code > 0)
        return false;
    const bool passedOn = info.si_pid == ::getpid();
    const Delivery delivery = {signal, passedOn ? m_passedOnFor : info.si_pid, passedOn,
                               std::chrono::steady_clock::now()};
    const bool second = m_delivered && m_delivered->signal == delivery.signal
        && m_delivered->sender == delivery.sender && m_delivered->passedOn != passedOn
        && delivery.time - m_delivered->time < copyTime;
    if (second)
        m_delivered.reset();
    else
        m_delivered = delivery;
    return second;
}

bool Application::takeEvents()
{
    for (int i = 0; i < mostEventsAtOnce; ++i) {
        int status = 0;
        rusage usage = {};
        const pid_t id = ::wait4(-1, &status, WNOHANG | __WALL, &usage);
        if (id <= 0)
            return true;
        if (WIFSTOPPED(status)) {
            takeStop(id, status);
        } else {
            m_held.erase(id); // a thread or an orphan has ended, or the application itself
            if (id == m_pid) {
                m_end = {status, usage.ru_maxrss};
                m_pid = 0;
            }
        }
    }
    return false;
}

void Application::takeStop(pid_t thread, int status)
{
    const bool crashes = m_looking && !m_crash && isCrash(thread, status);
    if (crashes)
        m_crash = {thread, WSTOPSIG(status)};
    if (crashes || m_holding)
        m_held[thread] = status;
    else
        goOn(thread, status);
}

void Application::goOn(pid_t thread, int status)
{
    const int event = eventOf(status);
    const int signal = WSTOPSIG(status);
    if (event == 0) {
        ::ptrace(PTRACE_CONT, thread, nullptr, isSecondCopy(thread, signal) ? 0 : signal);
    } else if (event != PTRACE_EVENT_STOP) {
        ::ptrace(PTRACE_CONT, thread, nullptr, nullptr);
    } else if (stateOf(m_pid, thread) == 'X') {
        // clone() has made a process, not a thread. It is none of ours.
        ::ptrace(PTRACE_DETACH, thread, nullptr, nullptr);
    } else {
        // The application stays stopped until it gets SIGCONT, as without a tracer.
        ::ptrace(isGroupStop(signal) ? PTRACE_LISTEN : PTRACE_CONT, thread, nullptr, nullptr);
    }
}

void Application::hold()
{
    if (!m_traced)
        return;
    m_holding = true;
    sigset_t childSignal;
    ::sigemptyset(&childSignal);
    ::sigaddset(&childSignal, SIGCHLD);
    std::map<pid_t, bool> asked;
    const auto until = std::chrono::steady_clock::now() + longestHold;
    for (;;) {
        bool all = true;
        for (const pid_t thread : threadsOf(m_pid)) {
            if (m_held.count(thread) != 0)
                continue;
            const char state = stateOf(m_pid, thread);
            if (state == 'Z' || state == 'X')
                continue;
            all = false;
            if (!asked[thread])
                asked[thread] = ::ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr) == 0;
        }
        if (all || std::chrono::steady_clock::now() >= until)
            return;
        ::sigtimedwait(&childSignal, nullptr, &holdPause);
        while (!takeEvents()) { }
    }
}

std::vector<pid_t> Application::heldThreads() const
{
    std::vector<pid_t> threads;
    for (const pid_t thread : threadsOf(m_pid)) {
        if (m_held.count(thread) != 0)
            threads.push_back(thread);
    }
    return threads;
}

std::string Application::signalText(pid_t thread) const
{
    const auto held = m_held.find(thread);
    if (held == m_held.end() || eventOf(held->second) != 0)
        return {};
    const int signal = WSTOPSIG(held->second);
    std::string text = "signal " + std::to_string(signal) + " (" + signalName(signal) + ')';
    siginfo_t info = {};
    if (::ptrace(PTRACE_GETSIGINFO, thread, nullptr, &info) != 0)
        return text;
    if (info.si_code <= 0) {
        text += ", sent by process " + std::to_string(info.si_pid);
    } else if (signal == SIGSEGV || signal == SIGBUS || signal == SIGILL || signal == SIGFPE) {
        std::array<char, 32> address;
        std::snprintf(address.data(), address.size(), ", address 0x%llx",
                      reinterpret_cast<unsigned long long>(info.si_addr));
        text += address.data();
    }
    return text;
}

void Application::release()
{
    m_holding = false;
    m_looking = false;
    const std::map<pid_t, int> held = std::move(m_held);
    m_held.clear();
    for (const auto &[thread, status] : held)
        goOn(thread, status);
}
