// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/guard/childprocess.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

/** Whether a process that gets @p signal is asked to end. */
bool asksForEnd(int signal);

/**
 * One run of the application: its process, of which the guard is the parent and, where it may be,
 * the tracer.
 *
 * The tracer sees each signal before it does its work, and can stop all threads. Threads are
 * traced, other processes of the application are not. The application dies with the guard.
 */
class Application
{
public:
    /** A signal that is about to end the application. The thread that gets it is stopped. */
    struct Crash
    {
        pid_t thread;
        int signal;
    };

    struct End
    {
        int status;  ///< as waitpid(2) tells it
        long peakKb; ///< the most memory that it, or a child that it waited for, had
    };

    Application() = default;
    Application(const Application &) = delete;
    Application &operator=(const Application &) = delete;

    /** Starts the process. If @p trace, tries to trace it, and says it where that cannot be done.
     *  Returns false, after a message, when there can be no process. */
    bool start(char *const *command, const InheritedSignals &inherited, const std::string &address,
               const std::string &timeoutUsec, bool trace);

    pid_t pid() const { return m_pid; } ///< 0: there is none
    bool traced() const { return m_traced; }

    void send(int signal) const;
    /** Sends SIGABRT, also to a process that is stopped. Among held threads, the main thread gets
     * it, so that it does nothing else before. */
    void abort() const;
    /** Sends a signal that the guard got from @p sender. */
    void passOn(int signal, pid_t sender);

    /** Takes in what has happened to the application and its orphans. Returns false when there may
     *  be more of it. */
    bool takeEvents();

    /** Set by takeEvents(); once for each run, and only if traced. */
    const std::optional<Crash> &crash() const { return m_crash; }
    /** Set by takeEvents(), when there is no process any more. */
    const std::optional<End> &end() const { return m_end; }

    /** Stops all threads, where it is traced. After a bounded time, those that cannot be stopped
     * are left out. */
    void hold();
    /** The threads that are stopped, the main thread first. */
    std::vector<pid_t> heldThreads() const;
    /** What is known of the signal that stopped this thread; empty when none did. */
    std::string signalText(pid_t thread) const;
    /** Lets all threads go on. A signal that was held back does its work. From here on, no crash is
     *  looked for. */
    void release();

private:
    bool trace(pid_t child);
    void takeStop(pid_t thread, int status);
    void goOn(pid_t thread, int status);
    bool isSecondCopy(pid_t thread, int signal);

    struct Delivery
    {
        int signal;
        pid_t sender;
        bool passedOn; // by the guard
        std::chrono::steady_clock::time_point time;
    };

    pid_t m_pid = 0;
    bool m_traced = false;
    bool m_holding = false;
    bool m_looking = false;              // for a crash
    std::map<pid_t, int> m_held;         // the stopped threads, and the status of each stop
    pid_t m_passedOnFor = 0;             // who sent the signal that was passed on last
    std::optional<Delivery> m_delivered; // the last signal that asked for an end
    std::optional<Crash> m_crash;
    std::optional<End> m_end;
};
