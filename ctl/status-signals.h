// Stopping a read of the controller in good order.
#pragma once

#include <signal.h>

#include <array>

#include "stop-wait.h"

// While it lives, the first of the signals that end a program (SIGINT, SIGTERM, SIGHUP) is a request to stop,
// so that the session on the controller can still be closed; the second one ends the process at once. Signals
// that are ignored stay ignored. One at a time.
class SignalStop {
public:
    SignalStop();
    ~SignalStop();
    SignalStop(const SignalStop&) = delete;
    SignalStop& operator=(const SignalStop&) = delete;

    tovaserverutil::StopWait& wait() { return m_wait; }
    // The signal that has come; 0 for none.
    int signal() const;

private:
    static constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};

    tovaserverutil::Event m_event;
    tovaserverutil::StopWait m_wait{&m_event};
    std::array<struct sigaction, kSignals.size()> m_before{};
};
