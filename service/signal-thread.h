// What the service body and its signal thread agree on.
#pragma once

#include "server-util.h"

// The signal thread is never joined: it may sit in sigwait, or be about to log a signal, while the service
// body takes down what it uses. It therefore touches StopEvent and Parameter under one lock only, and looks
// there whether it still may. The two classes below are the service body's side of that lock; each acts when
// its scope ends, also by an exception.

// Publishes the stop event; withdraws it at the end, so declare it right after the event.
class StopEventPublication {
public:
    explicit StopEventPublication(tovaserverutil::Event& event);
    ~StopEventPublication();
    StopEventPublication(const StopEventPublication&) = delete;
    StopEventPublication& operator=(const StopEventPublication&) = delete;
};

// From the end of its scope on the signal thread touches nothing any more. Declare it after the parameters'
// owner.
class SignalGate {
public:
    SignalGate();
    ~SignalGate();
    SignalGate(const SignalGate&) = delete;
    SignalGate& operator=(const SignalGate&) = delete;
};
