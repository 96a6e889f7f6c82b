// Cutting a real number down to a whole one.
#pragma once

#include <cstdint>
#include <limits>

// The whole part. A number beyond the range of 64 bits becomes the range's nearest end; not-a-number becomes
// 0.
inline std::int64_t WholeNumber(double real) {
    constexpr double kEnd =
        9223372036854775808.0;  // 2 to the power of 63, the first number that does not fit
    if (real >= kEnd) {
        return std::numeric_limits<std::int64_t>::max();
    }
    if (real <= -kEnd) {
        return std::numeric_limits<std::int64_t>::min();
    }
    return real == real ? static_cast<std::int64_t>(real) : 0;
}
