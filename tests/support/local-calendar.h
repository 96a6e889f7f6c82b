// The local calendar, reckoned by the C library alone.
#pragma once

#include <cstdint>
#include <ctime>

// Seconds since the epoch of a local time that exists and lies behind it.
inline std::uint64_t LocalTime(int year, int month, int day, int hour, int minute, int second) {
    std::tm local{};
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    local.tm_isdst = -1;
    return static_cast<std::uint64_t>(std::mktime(&local));
}

// Of "Fri Oct  2 05:41:23 2026".
inline const std::uint64_t kTime = LocalTime(2026, 10, 2, 5, 41, 23);
