#include "login-failures.h"

bool isOneHourPassed(tovaserverutil::Clock::TimePoint since, const tovaserverutil::Clock& clock) {
    constexpr std::chrono::minutes kPause{60};
    return std::chrono::duration_cast<std::chrono::minutes>(clock.Now() - since) >= kPause;
}
