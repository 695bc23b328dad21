// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/guard/application.h"
#include "tools/guard/liveness.h"
#include "tools/guard/notifysocket.h"
#include "tools/guard/options.h"

#include <optional>
#include <string>

/**
 * Stands between the supervisor and the application. It ends a run that gives no sign of life,
 * keeps the stacks of a hang and of a crash, and tells how each run came to its end.
 *
 * Everything happens in turns of one loop, which sleeps until something comes or a time is over. A
 * turn can take longer: up to 3 s for threads to stop, 10 s to write stacks, and 1 s each for
 * output and for its reader.
 */
class Guard
{
public:
    explicit Guard(const Options &options);
    ~Guard();
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;

    /** Runs the application. Returns the status to end with, or ends by the application's signal.
     */
    int run();

private:
    bool start();
    Application::End watch();
    bool isToStartAgain(const Application::End &end) const;
    void pauseBeforeRestart();

    void takeTurn(std::optional<Clock::time_point> until);
    void readSignals();
    void passOn(int signal, pid_t sender, bool fromKernel);
    void readMessages();
    bool isOwn(pid_t sender) const;

    void checkCrash();
    void checkTimes();
    void endHang();
    void takeStacks(const std::string &kind, const std::string &what);
    bool writeStackFile(const std::string &path, const std::string &what) const;
    void tellEnd(const Application::End &end) const;

    const Options &m_options;
    InheritedSignals m_inherited = {};
    int m_signals = -1; // wakes the loop when there is a signal to read
    NotifySocket m_socket;
    Application m_application;
    Liveness m_liveness;
    Clock::time_point m_now;   // when this turn began to read what had come
    bool m_moreEvents = false; // of the application than one turn takes in
    int m_toldToEnd = 0;       // the last signal that asked for an end

    // of the present run
    Clock::time_point m_started;
    pid_t m_process = 0;
    std::string m_status; // as last heard
    bool m_hung = false;
    bool m_stacksTaken = false;
    std::optional<Clock::time_point> m_killAt;
    std::optional<Clock::time_point> m_abandonAt;
};
