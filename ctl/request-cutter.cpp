#include "request-cutter.h"

#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

namespace {

constexpr int kForever = -1;
constexpr int kBeat = 50;  // milliseconds

bool Is(int descriptor, int option, int value) {
    int found = 0;
    socklen_t size = sizeof found;
    return getsockopt(descriptor, SOL_SOCKET, option, &found, &size) == 0 && found == value;
}

std::set<int> TcpConnections() {
    std::set<int> connections;
    std::error_code error;
    for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end; !error && entry != end;
         entry.increment(error)) {
        const int descriptor = std::atoi(entry->path().filename().c_str());
        if (Is(descriptor, SO_TYPE, SOCK_STREAM) &&
            (Is(descriptor, SO_DOMAIN, AF_INET) || Is(descriptor, SO_DOMAIN, AF_INET6))) {
            connections.insert(descriptor);
        }
    }
    return connections;
}

}  // namespace

RequestCutter::RequestCutter(Limits limits, std::function<void()> onLimit)
    : m_limits(limits),
      m_onLimit(std::move(onLimit)),
      m_inherited(TcpConnections()),
      m_thread([this] { Work(); }) {}

RequestCutter::~RequestCutter() {
    {
        const std::lock_guard lock(m_lock);
        m_ending = true;
    }
    m_wake.Set();
    m_thread.join();
}

RequestCutter::Cut RequestCutter::WhatWasCut() const {
    const std::lock_guard lock(m_lock);
    return m_cut;
}

void RequestCutter::SetLogOut(std::optional<Clock::time_point> since) {
    const std::lock_guard lock(m_lock);
    m_logOutSince = since;
}

void RequestCutter::Work() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);  // a signal would break off the waits
    m_wake.Poll(kForever);
    const Clock::time_point start = Clock::now();
    do {
        const Clock::duration sinceStart = Clock::now() - start;
        {
            const std::lock_guard lock(m_lock);
            if (m_ending) {
                return;
            }
            Act(sinceStart);
        }
        if (sinceStart >= m_limits.all) {
            m_onLimit();
            return;
        }
    } while (!m_wake.Poll(kBeat));
}

// A request that was cut may be sent once more over a new connection; that one is cut, too.
void RequestCutter::Act(Clock::duration sinceStart) {
    if (m_logOutSince && Clock::now() - *m_logOutSince >= m_limits.logOut) {
        m_cut = Cut::kLogOut;
        CutConnections();
    } else if (!m_logOutSince && sinceStart >= m_limits.request) {
        if (CutConnections()) {
            m_cut = std::max(m_cut, Cut::kRequest);
        }
    }
}

// Whoever waits for a connection sees its end; closing it remains their business.
bool RequestCutter::CutConnections() const {
    bool any = false;
    for (const int connection : TcpConnections()) {
        if (m_inherited.count(connection) == 0 && shutdown(connection, SHUT_RDWR) == 0) {
            any = true;
        }
    }
    return any;
}
