// Ending what hangs when a read of the controller is to stop.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <thread>

#include "server-util.h"

// Once started, it lets the request under way take a moment longer, and then cuts this process's connections
// again and again, so that whatever waits for the controller fails. A log-out is spared for a moment of its
// own. It works on a thread of its own, because the one that reads is stuck in the request.
class RequestCutter {
public:
    using Clock = std::chrono::steady_clock;

    struct Limits {
        std::chrono::milliseconds request{500};  // from the start on
        std::chrono::milliseconds logOut{1000};  // from the log-out's beginning on
        std::chrono::milliseconds all{2000};     // from the start on
    };
    // Each worse than the one before. A request has a connection that was cut; a log-out took too long.
    enum class Cut { kNothing, kRequest, kLogOut };

    // While one lives, the log-out is under way.
    class LogOut {
    public:
        explicit LogOut(RequestCutter& cutter) : m_cutter(cutter) { m_cutter.SetLogOut(Clock::now()); }
        ~LogOut() { m_cutter.SetLogOut(std::nullopt); }
        LogOut(const LogOut&) = delete;
        LogOut& operator=(const LogOut&) = delete;

    private:
        RequestCutter& m_cutter;
    };

    // `onLimit` is called on the cutter's thread when all limits have not helped: what hangs is no connection
    // then, but a look-up of a name, say. It may end the process.
    RequestCutter(Limits limits, std::function<void()> onLimit);
    ~RequestCutter();
    RequestCutter(const RequestCutter&) = delete;
    RequestCutter& operator=(const RequestCutter&) = delete;

    // May be called by a signal handler, once.
    void Start() { m_wake.Set(); }
    // The worst so far.
    Cut WhatWasCut() const;

private:
    void Work();
    void Act(Clock::duration sinceStart);
    void SetLogOut(std::optional<Clock::time_point> since);
    // False when there was none.
    bool CutConnections() const;

    const Limits m_limits;
    const std::function<void()> m_onLimit;
    const std::set<int> m_inherited;  // connections of whoever started this process
    tovaserverutil::Event m_wake;     // to start, or to end
    mutable std::mutex m_lock;        // for what follows
    std::optional<Clock::time_point> m_logOutSince;
    Cut m_cut = Cut::kNothing;
    bool m_ending = false;
    std::thread m_thread;  // the last one: it uses the others
};
