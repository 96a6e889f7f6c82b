// Stopping a read of the controller in good order.
#pragma once

#include <signal.h>

#include <array>
#include <functional>

#include "request-cutter.h"
#include "stop-wait.h"

// While it lives, the first of the signals that end a program (SIGINT, SIGTERM, SIGHUP) is a request to stop,
// so that the session on the controller can still be closed, and starts the cutter, for the controller may
// not answer. The second one, of whichever kind, ends the process at once. Signals that are ignored stay
// ignored. One at a time.
class SignalStop {
public:
    // `onLimit` is the cutter's, with the signal that has come.
    SignalStop(RequestCutter::Limits limits, const std::function<void(int)>& onLimit);
    ~SignalStop();
    SignalStop(const SignalStop&) = delete;
    SignalStop& operator=(const SignalStop&) = delete;

    tovaserverutil::StopWait& wait() { return m_wait; }
    RequestCutter& cutter() { return m_cutter; }
    // The signal that has come; 0 for none. Any thread may ask.
    int signal() const;

private:
    tovaserverutil::Event m_event;
    tovaserverutil::StopWait m_wait{&m_event};
    RequestCutter m_cutter;
    std::array<struct sigaction, 3> m_before{};
};
