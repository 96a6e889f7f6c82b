#include "stop-wait.h"

#include <algorithm>

namespace tovaserverutil {

StopWait::StopWait(Event* stop, std::vector<Event*> others) : m_stop(stop) {
    m_events.push_back(stop);
    m_events.insert(m_events.end(), others.begin(), others.end());
    m_events.erase(std::remove(m_events.begin(), m_events.end(), nullptr), m_events.end());
}

bool StopWait::Wait(unsigned int timeoutMs) {
    if (m_requested) {
        return true;
    }
    if (m_events.empty()) {
        // A wait for nothing returns at once; the caller still wants its pause.
        Event never;
        std::vector<Event*> events{&never};
        Event::WaitAny(events, timeoutMs);
        return false;
    }
    const Event* set = Event::WaitAny(m_events, timeoutMs);
    m_requested = set != nullptr && set == m_stop;
    return m_requested;
}

}  // namespace tovaserverutil
