// The door to the clock, for rules that span hours.
#pragma once

#include <chrono>

namespace tovaserverutil {

// Monotonic time: a change of the wall clock neither shortens nor lengthens a pause. Any thread may use it.
class Clock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~Clock() = default;
    virtual TimePoint Now() const { return std::chrono::steady_clock::now(); }
};

}  // namespace tovaserverutil
