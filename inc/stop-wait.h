// The stop request of one thread, remembered.
#pragma once

#include <vector>

#include "server-util.h"

namespace tovaserverutil {

// Owns a thread's view of its stop event. A wait consumes the event's signal, so whoever sees it first would
// hide it from every later wait; this class remembers it instead: once a stop has been seen, every wait
// returns at once. Used by one thread. Virtual so that tests can replace the waiting.
class StopWait {
public:
    // `stop` is borrowed and may be null (then nothing ever stops); `others` are further events that end a
    // wait early.
    explicit StopWait(Event* stop, std::vector<Event*> others = {});
    virtual ~StopWait() = default;
    StopWait(const StopWait&) = delete;
    StopWait& operator=(const StopWait&) = delete;

    // Waits at most timeoutMs milliseconds. True when a stop has been requested. Throws what
    // Event::WaitMultiple throws.
    virtual bool Wait(unsigned int timeoutMs);

    // True when a stop has been requested; does not wait.
    bool IsRequested() { return Wait(0); }

private:
    std::vector<Event*> m_events;  // the stop event first, when there is one
    Event* m_stop;
    bool m_requested = false;
};

}  // namespace tovaserverutil
