// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/guard/guard.h"

#include "tools/guard/output.h"
#include "tools/guard/processes.h"
#include "tools/guard/stacks.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int notStarted = 255;
// More than wait in the socket, and not so many that a flood of them keeps the guard from the rest.
constexpr int mostMessagesAtOnce = 2000;
// A process that still is there this long after SIGKILL is stuck in the kernel.
constexpr seconds longestDeath{30};
constexpr seconds restartDelay{1}; // as the supervisor has it
constexpr int turnWithoutSignalsMs = 1000;

// All signals are blocked and read, but for those that tell of the guard's own faults, and those of
// a terminal that stop the guard and the application together.
sigset_t readSignalSet()
{
    sigset_t set;
    ::sigfillset(&set);
    for (const int signal :
         {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT, SIGTSTP, SIGTTIN, SIGTTOU})
        ::sigdelset(&set, signal);
    return set;
}

long long wholeSeconds(Clock::duration time)
{
    return std::chrono::duration_cast<seconds>(time).count();
}

// A name of letters, digits and little else, so that it is one word in a path and in a marker.
std::string plainName(const std::string &path)
{
    std::string name = path.substr(path.rfind('/') + 1);
    for (char &byte : name) {
        if (std::isalnum(static_cast<unsigned char>(byte)) == 0
            && std::strchr("._+-", byte) == nullptr)
            byte = '_';
    }
    return name;
}

std::string timeText()
{
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    ::localtime_r(&now, &local);
    std::array<char, 64> text;
    std::strftime(text.data(), text.size(), "%F %T %z", &local);
    return text.data();
}

// Looking for symbols on a server could take minutes, and a board has none.
class WithoutSymbolServer
{
public:
    WithoutSymbolServer()
    {
        const char *urls = std::getenv(variable);
        m_urls = urls != nullptr ? urls : "";
        ::unsetenv(variable);
    }
    ~WithoutSymbolServer()
    {
        if (!m_urls.empty())
            ::setenv(variable, m_urls.c_str(), 1);
    }
    WithoutSymbolServer(const WithoutSymbolServer &) = delete;
    WithoutSymbolServer &operator=(const WithoutSymbolServer &) = delete;

private:
    static constexpr char variable[] = "DEBUGINFOD_URLS";
    std::string m_urls;
};

[[noreturn]] void endBy(int signal)
{
    // The application has had its core, if it was to have one. The guard's own would hide it. Some
    // receivers of cores look at the first of these, others at the second.
    ::prctl(PR_SET_DUMPABLE, 0);
    const rlimit none = {0, 0};
    ::setrlimit(RLIMIT_CORE, &none);

    ::signal(signal, SIG_DFL);
    sigset_t only;
    ::sigemptyset(&only);
    ::sigaddset(&only, signal);
    ::sigprocmask(SIG_UNBLOCK, &only, nullptr);
    ::raise(signal);
    ::_exit(128 + signal); // the first process of a namespace does not die by its own signal
}

} // namespace

Guard::Guard(const Options &options) : m_options(options), m_liveness({}, {}, {})
{
    const int socketError = errno;
    // With the action "ignore", the kernel would not tell how a child ended.
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    ::sigaction(SIGCHLD, &action, &m_inherited.childAction);
    const sigset_t read = readSignalSet();
    ::sigprocmask(SIG_SETMASK, &read, &m_inherited.mask);
    m_signals = ::signalfd(-1, &read, SFD_CLOEXEC);
    if (m_signals == -1)
        say(std::string("signals and ends are noticed up to a second late: ")
            + std::strerror(errno));
    // Orphans of the application become children of the guard, so that they are still known.
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    if (m_socket.descriptor() == -1)
        say(std::string("no hang is looked for: there is no notification socket: ")
            + std::strerror(socketError));
}

Guard::~Guard()
{
    ::close(m_signals);
}

int Guard::run()
{
    for (;;) {
        if (!start())
            return notStarted;
        const Application::End end = watch();
        tellEnd(end);
        if (!isToStartAgain(end)) {
            if (WIFSIGNALED(end.status))
                endBy(WTERMSIG(end.status));
            return WEXITSTATUS(end.status);
        }
        pauseBeforeRestart();
        if (m_toldToEnd != 0)
            endBy(m_toldToEnd);
    }
}

bool Guard::start()
{
    const bool hasSocket = m_socket.descriptor() != -1;
    const seconds timeout = hasSocket ? m_options.timeout : seconds(0);
    const std::string usec =
        timeout.count() == 0 ? "" : std::to_string(std::chrono::microseconds(timeout).count());
    m_status.clear();
    m_hung = false;
    m_stacksTaken = false;
    m_killAt.reset();
    m_abandonAt.reset();
    const bool started =
        m_application.start(m_options.application, m_inherited, hasSocket ? m_socket.address() : "",
                            usec, !m_options.stacks.empty());
    m_process = m_application.pid();
    m_started = Clock::now();
    m_liveness = Liveness(m_options.startup.value_or(timeout), timeout, m_started);
    return started;
}

Application::End Guard::watch()
{
    // The end can also come to light while threads are being stopped.
    while (!m_application.end()) {
        takeTurn(m_abandonAt ? m_abandonAt : m_killAt ? m_killAt : m_liveness.deadline());
        checkCrash();
        checkTimes();
    }
    readMessages(); // what it said last
    return *m_application.end();
}

bool Guard::isToStartAgain(const Application::End &end) const
{
    return m_toldToEnd == 0 && !m_hung && WIFEXITED(end.status)
        && m_options.restartOn.test(static_cast<std::size_t>(WEXITSTATUS(end.status)));
}

void Guard::pauseBeforeRestart()
{
    const Clock::time_point until = Clock::now() + restartDelay;
    while (m_toldToEnd == 0 && Clock::now() < until)
        takeTurn(until);
}

// ---- One turn of the loop

void Guard::takeTurn(std::optional<Clock::time_point> until)
{
    int waitMs = m_moreEvents ? 0 : -1;
    if (until && !m_moreEvents) {
        const auto rest = std::chrono::ceil<milliseconds>(*until - Clock::now());
        waitMs = static_cast<int>(std::clamp<long long>(rest.count(), 0, 1'000'000'000));
    }
    if (m_signals == -1 && (waitMs == -1 || waitMs > turnWithoutSignalsMs))
        waitMs = turnWithoutSignalsMs;
    std::array<pollfd, 2> sources = {{{m_signals, POLLIN, 0}, {m_socket.descriptor(), POLLIN, 0}}};
    ::poll(sources.data(), sources.size(), waitMs);
    // What came before this moment is read before a time that is over by then counts.
    m_now = Clock::now();
    readSignals();
    readMessages();
    m_moreEvents = !m_application.takeEvents();
}

void Guard::readSignals()
{
    const sigset_t read = readSignalSet();
    const timespec noTime = {};
    siginfo_t info = {};
    for (int signal = 0; (signal = ::sigtimedwait(&read, &info, &noTime)) != -1;) {
        // The last two come from the guard's own writing, and are of no interest.
        if (signal != SIGCHLD && signal != SIGPIPE && signal != SIGXFSZ)
            passOn(signal, info.si_pid, info.si_code > 0);
    }
}

void Guard::passOn(int signal, pid_t sender, bool fromKernel)
{
    if (signal == SIGCONT)
        m_liveness.resume(m_now);
    if (asksForEnd(signal)) {
        m_toldToEnd = signal;
        m_liveness.stop(m_now);
    }
    // A terminal sends its signals to the whole process group.
    if (!fromKernel || ::getpgid(m_process) != ::getpgrp())
        m_application.passOn(signal, sender);
}

void Guard::readMessages()
{
    for (int i = 0; i < mostMessagesAtOnce; ++i) {
        const auto message = m_socket.receive();
        if (!message)
            return;
        if (!isOwn(message->sender))
            continue;
        const Notification said = parseNotification(message->text);
        m_liveness.take(said, m_now);
        if (said.status)
            m_status = *said.status;
        if (said.trigger)
            endHang();
    }
}

// Whether it is a process of the application: all children of the guard are.
bool Guard::isOwn(pid_t sender) const
{
    const pid_t guard = ::getpid();
    while (sender > 1 && sender != m_process && sender != guard)
        sender = parentOf(sender);
    return sender > 1;
}

// ---- Hangs and crashes

void Guard::checkCrash()
{
    const auto &crash = m_application.crash();
    if (!crash || m_application.end() || m_stacksTaken)
        return;
    takeStacks("crash", m_application.signalText(crash->thread));
    m_application.release();
    m_liveness.stop(Clock::now()); // writing a core takes time, too
}

void Guard::checkTimes()
{
    if (m_abandonAt && m_now >= *m_abandonAt) {
        // Only this way the supervisor can do something about it.
        say("the application does not end, not even by SIGKILL");
        endBy(SIGKILL);
    }
    if (m_killAt && m_now >= *m_killAt) {
        m_killAt.reset();
        m_abandonAt = m_now + longestDeath;
        m_application.send(SIGKILL);
    }
    const auto deadline = m_liveness.deadline();
    if (deadline && m_now >= *deadline)
        endHang();
}

void Guard::endHang()
{
    if (m_hung || m_application.end())
        return;
    m_hung = true;
    const std::string text =
        "no beat for " + std::to_string(wholeSeconds(m_now - m_liveness.lastBeat())) + " s";
    say("hang: " + text);
    takeStacks("hang", text);
    m_application.abort();
    m_application.release();
    m_killAt = Clock::now() + m_options.grace;
}

void Guard::takeStacks(const std::string &kind, const std::string &what)
{
    if (!m_application.traced() || m_stacksTaken)
        return;
    m_stacksTaken = true;
    m_application.hold();
    if (m_application.end()) // somebody has killed it
        return;
    const std::string path = m_options.stacks + "/guard-" + plainName(*m_options.application) + '-'
        + std::to_string(m_process) + ".txt";
    if (!writeStackFile(path, kind + ": " + what))
        return;
    waitUntilRead();
    print("==Report file:" + path + "==" + kind + '\n');
}

bool Guard::writeStackFile(const std::string &path, const std::string &what) const
{
    // A new file, so that a link that somebody has placed in the directory is not followed. The
    // supervisor's tools pack only a file that everybody can read.
    ::unlink(path.c_str());
    const int descriptor =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    std::FILE *file = descriptor == -1 ? nullptr : ::fdopen(descriptor, "w");
    if (file == nullptr) {
        say("no stacks: " + path + ": " + std::strerror(errno));
        return false;
    }
    ::fchmod(descriptor, 0644);
    std::fprintf(file, "%s\n%s, process %d, %lld s after its start\n%s\n", what.c_str(),
                 *m_options.application, m_process, wholeSeconds(Clock::now() - m_started),
                 timeText().c_str());
    std::vector<pid_t> threads = m_application.heldThreads();
    // The thread that crashed comes first.
    if (m_application.crash())
        std::stable_partition(threads.begin(), threads.end(), [this](pid_t thread) {
            return thread == m_application.crash()->thread;
        });
    const WithoutSymbolServer without;
    writeStacks(file, m_process, threads);
    const bool failed = std::ferror(file) != 0;
    if (std::fclose(file) != 0 || failed)
        say("the stacks are not whole: " + path + ": " + std::strerror(errno));
    return true;
}

void Guard::tellEnd(const Application::End &end) const
{
    std::string how = "status " + std::to_string(WEXITSTATUS(end.status));
    if (WIFSIGNALED(end.status)) {
        const int signal = WTERMSIG(end.status);
        how = "signal " + std::to_string(signal) + " (" + signalName(signal) + ')';
    }
    say("ended: " + how + " after " + std::to_string(wholeSeconds(Clock::now() - m_started))
        + " s, peak " + std::to_string(end.peakKb) + " kB"
        + (m_status.empty() ? "" : ", last status: " + m_status));
}
