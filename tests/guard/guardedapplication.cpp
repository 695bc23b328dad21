// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The application of the tests of pynx-watchdog-guard. It carries out the behaviours on its command
// line one after the other and ends with status 0 after the last.
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Arguments = std::deque<std::string>;

std::string take(Arguments &arguments)
{
    if (arguments.empty()) {
        std::fputs("guarded-application: a value is missing\n", stderr);
        std::exit(64);
    }
    std::string value = arguments.front();
    arguments.pop_front();
    return value;
}

int takeNumber(Arguments &arguments)
{
    return std::atoi(take(arguments).c_str());
}

void say(const std::string &text)
{
    const std::string line = text + '\n';
    if (::write(STDOUT_FILENO, line.data(), line.size()) == -1)
        std::exit(65);
}

[[noreturn]] void waitForEver()
{
    for (;;)
        ::pause();
}

// ---- The notification protocol, as sd_notify(3) describes it

// Sends the text to the guard, with this descriptor if it is not -1.
bool send(const std::string &text, int descriptor = -1)
{
    const char *variable = std::getenv("NOTIFY_SOCKET");
    if (variable == nullptr)
        return false;
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::size_t size = std::min(std::strlen(variable), sizeof address.sun_path);
    std::memcpy(address.sun_path, variable, size);
    if (address.sun_path[0] == '@')
        address.sun_path[0] = '\0';
    iovec data = {const_cast<char *>(text.data()), text.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control = {};
    msghdr header = {};
    header.msg_name = &address;
    header.msg_namelen = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size);
    header.msg_iov = &data;
    header.msg_iovlen = 1;
    if (descriptor != -1) {
        header.msg_control = control.data();
        header.msg_controllen = control.size();
        cmsghdr *item = CMSG_FIRSTHDR(&header);
        item->cmsg_level = SOL_SOCKET;
        item->cmsg_type = SCM_RIGHTS;
        item->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(item), &descriptor, sizeof(int));
    }
    const bool sent = ::sendmsg(socket, &header, MSG_NOSIGNAL) != -1;
    ::close(socket);
    return sent;
}

// "\n" on the command line is a line feed.
std::string unescape(std::string text)
{
    for (std::size_t at = 0; (at = text.find("\\n", at)) != std::string::npos;)
        text.replace(at, 2, "\n");
    return text;
}

void notify(const std::string &text)
{
    if (!send(unescape(text)))
        say("cannot send");
}

// Waits until all that was sent before has been taken in.
void passBarrier(int withDescriptors)
{
    std::array<int, 2> ends = {};
    if (::pipe(ends.data()) != 0)
        std::exit(65);
    for (int i = 0; i < withDescriptors; ++i)
        send(i == 0 ? "BARRIER=1" : "FDSTORE=1", ends[1]);
    ::close(ends[1]);
    pollfd closed = {ends[0], 0, 0};
    ::poll(&closed, 1, -1);
    say("passed");
}

void beat(std::chrono::milliseconds every, int times)
{
    for (int i = 0; i < times; ++i) {
        send("WATCHDOG=1");
        std::this_thread::sleep_for(every);
    }
}

// A child, or an orphan of the second generation, sends the text.
void notifyFromChild(const std::string &text, bool orphan)
{
    const pid_t child = ::fork();
    if (child == 0) {
        if (orphan && ::fork() != 0)
            ::_exit(0);
        // It lives until the guard has closed the pipe, so that it can look for its parents.
        send(unescape(text));
        passBarrier(1);
        ::_exit(0);
    }
    ::waitpid(child, nullptr, 0);
}

// ---- Functions whose names are looked for in the stacks

volatile int *volatile nowhere = nullptr;
volatile int one = 1;

extern "C" __attribute__((noinline)) void innermostFunction()
{
    *nowhere = one;
}

// Compiled into one another, they still are functions of their own in a stack.
inline __attribute__((always_inline)) void inlinedInner()
{
    *nowhere = one + 1;
}

inline __attribute__((always_inline)) void inlinedOuter()
{
    one = 2;
    inlinedInner();
    one = 1;
}

extern "C" __attribute__((noinline)) void crashInline()
{
    inlinedOuter();
    one = 3;
}

extern "C" __attribute__((noinline)) int overflowTheStack(int depth)
{
    volatile char room[512];
    room[0] = static_cast<char>(depth);
    return one == 0 ? 0 : overflowTheStack(depth + 1) + room[0];
}

extern "C" __attribute__((noinline)) void spinForEver()
{
    for (;;)
        one = one + 1;
}

struct Locker
{
    std::mutex first;
    std::mutex second;
    std::atomic<int> locked{0};

    __attribute__((noinline)) void lockBoth(std::mutex &mine, std::mutex &other)
    {
        const std::lock_guard<std::mutex> one(mine);
        ++locked;
        while (locked != 2)
            std::this_thread::yield();
        const std::lock_guard<std::mutex> two(other);
    }
};

[[noreturn]] void deadlock()
{
    static Locker locker;
    std::thread([] { locker.lockBoth(locker.first, locker.second); }).detach();
    locker.lockBoth(locker.second, locker.first);
    waitForEver();
}

extern "C" __attribute__((noinline)) void fillStandardOutput()
{
    const std::string text(4096, 'x');
    while (::write(STDOUT_FILENO, text.data(), text.size()) > 0) { }
}

void startThreads(int count)
{
    static std::mutex mutex;
    static std::condition_variable allRun;
    static int running = 0;
    for (int i = 0; i < count; ++i) {
        std::thread([i] {
            ::pthread_setname_np(::pthread_self(), ("waiter-" + std::to_string(i)).c_str());
            {
                const std::lock_guard<std::mutex> lock(mutex);
                ++running;
            }
            allRun.notify_one();
            waitForEver();
        }).detach();
    }
    std::unique_lock<std::mutex> lock(mutex);
    allRun.wait(lock, [=] { return running == count; });
}

[[noreturn]] void forkForEver()
{
    for (;;) {
        if (::fork() == -1)
            ::poll(nullptr, 0, 10);
    }
}

// Starts and ends threads without pause, so that at each moment one is about to begin.
void churnThreads()
{
    std::thread([] {
        for (;;) {
            try {
                std::thread([] {}).join();
            } catch (const std::system_error &) {
                // No thread can begin while another one ends the process or executes a program.
            }
        }
    }).detach();
}

// ---- Signals

volatile std::sig_atomic_t handled = 0;

void noteSignal(int signal)
{
    handled = signal;
    std::array<char, 16> text;
    const int size = std::snprintf(text.data(), text.size(), "handled %d\n", signal);
    if (::write(STDOUT_FILENO, text.data(), static_cast<std::size_t>(size)) == -1)
        ::_exit(65);
}

void setHandler(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    ::sigaction(signal, &action, nullptr);
}

// Keeps a tracer busy: there always is a signal that it has to look at.
void raiseForEver()
{
    setHandler(SIGUSR1, [](int) {});
    for (int i = 0; i < 8; ++i) {
        std::thread([] {
            for (;;)
                ::raise(SIGUSR1);
        }).detach();
    }
}

void dieBySignal(int signal)
{
    setHandler(signal, SIG_DFL);
    ::raise(signal);
}

// As crash reporters do it: their handler notes the crash and has the signal sent again.
void reportAndDie(int signal)
{
    noteSignal(signal);
    dieBySignal(signal);
}

// "signals blocked=MASK ignored=MASK" as /proc shows them.
void printSignals()
{
    std::FILE *file = std::fopen("/proc/self/status", "r");
    std::array<char, 256> line;
    while (std::fgets(line.data(), line.size(), file) != nullptr) {
        if (std::strncmp(line.data(), "SigBlk", 6) == 0
            || std::strncmp(line.data(), "SigIgn", 6) == 0)
            std::fputs(line.data(), stdout);
    }
    std::fclose(file);
    std::fflush(stdout);
}

void waitInEpoll()
{
    const int descriptor = ::epoll_create1(EPOLL_CLOEXEC);
    epoll_event event = {};
    say("waiting");
    const int result = ::epoll_wait(descriptor, &event, 1, -1);
    say("epoll_wait: " + std::string(result == -1 ? std::strerror(errno) : "event"));
}

[[noreturn]] void execute(Arguments &arguments)
{
    std::deque<char *> words;
    std::array<char *, 64> command = {};
    std::size_t i = 0;
    for (std::string &argument : arguments)
        command[i++] = argument.data();
    ::execvp(command[0], command.data());
    std::exit(66);
}

// A process by clone() that has no signal for its end, as sandboxes start one.
int child(void *)
{
    say("the child runs");
    ::raise(SIGSEGV);
    return 0;
}

void cloneProcess()
{
    static std::array<char, 65536> stack;
    const pid_t process = ::clone(child, stack.data() + stack.size(), 0, nullptr);
    int status = 0;
    ::waitpid(process, &status, __WALL);
    say("its signal was " + std::to_string(WTERMSIG(status)));
}

const std::map<std::string, std::function<void(Arguments &)>> behaviours = {
    {"say", [](Arguments &a) { say(take(a)); }},
    {"sleep",
     [](Arguments &a) { std::this_thread::sleep_for(std::chrono::milliseconds(takeNumber(a))); }},
    {"wait", [](Arguments &) { waitForEver(); }},
    {"read", [](Arguments &) { std::getchar(); }},
    {"exit", [](Arguments &a) { ::_exit(takeNumber(a)); }},
    {"environment",
     [](Arguments &a) {
         const std::string name = take(a);
         const char *value = std::getenv(name.c_str());
         say(name + '=' + (value == nullptr ? "(unset)" : value));
     }},
    {"ids",
     [](Arguments &) {
         say("pid " + std::to_string(::getpid()) + " parent " + std::to_string(::getppid())
             + " group " + std::to_string(::getpgrp()));
     }},
    {"use-memory",
     [](Arguments &a) { static const std::string memory(takeNumber(a) * std::size_t(1024), 'x'); }},

    {"notify", [](Arguments &a) { notify(take(a)); }},
    {"notify-from-child", [](Arguments &a) { notifyFromChild(take(a), false); }},
    {"notify-from-orphan", [](Arguments &a) { notifyFromChild(take(a), true); }},
    {"barrier", [](Arguments &) { passBarrier(1); }},
    {"send-descriptors", [](Arguments &a) { passBarrier(takeNumber(a)); }},
    {"beat",
     [](Arguments &a) {
         const std::chrono::milliseconds every(takeNumber(a));
         beat(every, takeNumber(a));
     }},

    {"crash", [](Arguments &) { innermostFunction(); }},
    {"crash-in-thread", [](Arguments &) { std::thread(innermostFunction).join(); }},
    {"inline-crash", [](Arguments &) { crashInline(); }},
    {"overflow", [](Arguments &) { overflowTheStack(0); }},
    {"abort", [](Arguments &) { std::abort(); }},
    {"signal", [](Arguments &a) { dieBySignal(takeNumber(a)); }},
    {"raise", [](Arguments &a) { ::raise(takeNumber(a)); }},
    {"deadlock", [](Arguments &) { deadlock(); }},
    {"spin", [](Arguments &) { spinForEver(); }},
    {"fill-output", [](Arguments &) { fillStandardOutput(); }},
    {"threads", [](Arguments &a) { startThreads(takeNumber(a)); }},
    {"fork-bomb", [](Arguments &) { forkForEver(); }},
    {"churn", [](Arguments &) { churnThreads(); }},
    {"raise-for-ever", [](Arguments &) { raiseForEver(); }},
    {"end-main-thread", [](Arguments &) { ::pthread_exit(nullptr); }},
    {"clone-process", [](Arguments &) { cloneProcess(); }},
    {"execute-in-thread", [](Arguments &a) { std::thread([&a] { execute(a); }).join(); }},

    {"handle", [](Arguments &a) { setHandler(takeNumber(a), noteSignal); }},
    {"report-and-die", [](Arguments &a) { setHandler(takeNumber(a), reportAndDie); }},
    {"ignore", [](Arguments &a) { setHandler(takeNumber(a), SIG_IGN); }},
    {"await-signal",
     [](Arguments &) {
         while (handled == 0)
             std::this_thread::sleep_for(std::chrono::milliseconds(1));
     }},
    {"signals", [](Arguments &) { printSignals(); }},
    {"epoll", [](Arguments &) { waitInEpoll(); }},
};

} // namespace

int main(int argc, char *argv[])
{
    Arguments arguments(argv + 1, argv + argc);
    while (!arguments.empty()) {
        const std::string name = take(arguments);
        const auto behaviour = behaviours.find(name);
        if (behaviour == behaviours.end()) {
            std::fprintf(stderr, "guarded-application: unknown behaviour: %s\n", name.c_str());
            return 64;
        }
        behaviour->second(arguments);
    }
    return 0;
}
