// How often the controller has refused the account, and how long to leave it alone then.
#pragma once

#include "clock.h"

// True when 60 whole minutes or more have passed since that time.
bool isOneHourPassed(tovaserverutil::Clock::TimePoint since, const tovaserverutil::Clock& clock);

// Counts consecutive credential errors of log-ins and remembers the time of the last one. From the second one
// on log-ins pause for an hour, so that a wrong password does not lock the account. When to count and when to
// report differs between start-up and the monitoring cycle, and stands there.
class LoginFailures {
public:
    // The clock is borrowed.
    explicit LoginFailures(const tovaserverutil::Clock& clock) : m_clock(clock) {}

    unsigned int count() const { return m_count; }
    // Sets the count and leaves the time alone.
    void SetCount(unsigned int count) { m_count = count; }
    void Clear() { m_count = 0; }
    void RecordTime() { m_last = m_clock.Now(); }

    bool IsPausing() const { return m_count > 1 && !isOneHourPassed(m_last, m_clock); }

private:
    const tovaserverutil::Clock& m_clock;
    unsigned int m_count = 0;
    tovaserverutil::Clock::TimePoint m_last{};
};
