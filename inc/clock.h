// The doors to the clocks.
#pragma once

#include <chrono>
#include <cstdint>

namespace tovaserverutil {

inline constexpr std::uint32_t kMillisecondsPerMinute = 60000;

// Monotonic time, for rules that span hours: a change of the wall clock neither shortens nor lengthens a
// pause. Any thread may use it.
class Clock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~Clock() = default;
    virtual TimePoint Now() const { return std::chrono::steady_clock::now(); }
};

// The time of day, for rules that span days and for what carries a date. Any thread may use it.
class WallClock {
public:
    virtual ~WallClock() = default;
    // Whole seconds since the epoch.
    virtual std::uint64_t Now() const {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(now).count());
    }
};

}  // namespace tovaserverutil
