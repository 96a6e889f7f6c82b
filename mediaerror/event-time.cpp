#include "event-time.h"

#include <locale.h>
#include <time.h>

#include <optional>

#include "local-time.h"

namespace {

constexpr std::uint64_t kNoForm = 1;
constexpr std::uint64_t kNoTime = 0;
constexpr std::time_t kDay = 24 * 60 * 60;  // seconds

std::uint64_t Counted(std::time_t seconds) {
    return seconds < 0 ? kNoTime : static_cast<std::uint64_t>(seconds);
}

// A time as it is written, converted by the C library.
struct LocalTime {
    tm written{};
    tm corrected{};  // another one when there is no such time, or no such day
    std::time_t seconds = 0;
};

// Nothing when the text has another form.
std::optional<LocalTime> Convert(const std::string& text) {
    // The "C" locale is part of the C library: asking for it takes no memory and cannot fail.
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    LocalTime time;
    if (strptime_l(text.c_str(), "%a %b %d %H:%M:%S %Y", &time.written, plain) == nullptr) {
        return std::nullopt;
    }
    time.corrected = time.written;
    time.corrected.tm_isdst = -1;
    time.seconds = tovaserverutil::SecondsOfLocalTime(time.corrected);
    return time;
}

// A text in which everything has its usual place: "Fri Oct  2 05:41:23 2026", and perhaps more.
struct Parts {
    std::string_view day;   // "Fri Oct  2 "
    std::string_view year;  // "2026"
    int secondOfDay = 0;
};

std::optional<int> TwoDigits(std::string_view text, std::size_t at, int limit) {
    const int tens = text[at] - '0';
    const int ones = text[at + 1] - '0';
    const int number = 10 * tens + ones;
    const bool digits = tens >= 0 && tens <= 9 && ones >= 0 && ones <= 9;
    return digits && number < limit ? std::optional(number) : std::nullopt;
}

std::optional<Parts> Split(std::string_view text) {
    constexpr std::string_view kForm = "Fri Oct  2 05:41:23 2026";
    constexpr std::size_t kHour = 11;
    constexpr std::size_t kMinute = 14;
    constexpr std::size_t kSecond = 17;
    constexpr std::size_t kYear = 20;
    if (text.size() < kForm.size()) {
        return std::nullopt;
    }
    for (const std::size_t separator : {kHour - 1, kMinute - 1, kSecond - 1, kYear - 1}) {
        if (text[separator] != kForm[separator]) {
            return std::nullopt;
        }
    }
    const auto hour = TwoDigits(text, kHour, 24);
    const auto minute = TwoDigits(text, kMinute, 60);
    const auto second = TwoDigits(text, kSecond, 60);  // a leap second is the C library's business
    if (!hour || !minute || !second) {
        return std::nullopt;
    }
    return Parts{text.substr(0, kHour), text.substr(kYear, kForm.size() - kYear),
                 (*hour * 60 + *minute) * 60 + *second};
}

// Does a local day begin at that second, at the same distance from UTC?
bool IsMidnight(std::time_t seconds, long distance) {
    tm local{};
    return localtime_r(&seconds, &local) != nullptr && local.tm_hour == 0 && local.tm_min == 0 &&
           local.tm_sec == 0 && local.tm_gmtoff == distance;
}

// The beginning of the time's day when no clock is changed on it, nor on the days before and after it: only
// then its times are as many seconds apart as they look, and none of them comes twice, which the C library
// would decide by the time that it was asked for before.
std::optional<std::time_t> BeginOfEvenDay(const LocalTime& time, int secondOfDay) {
    const tm& written = time.written;
    const tm& corrected = time.corrected;
    if (time.seconds < 0 || corrected.tm_mday != written.tm_mday || corrected.tm_hour != written.tm_hour ||
        (corrected.tm_hour * 60 + corrected.tm_min) * 60 + corrected.tm_sec != secondOfDay) {
        return std::nullopt;
    }
    const std::time_t midnight = time.seconds - secondOfDay;
    const long distance = corrected.tm_gmtoff;
    return IsMidnight(midnight - kDay, distance) && IsMidnight(midnight + 2 * kDay, distance)
               ? std::optional(midnight)
               : std::nullopt;
}

}  // namespace

std::uint64_t datestr_to_num(const std::string& text) {
    const auto time = Convert(text);
    return time ? Counted(time->seconds) : kNoForm;
}

std::uint64_t EventTimes::Seconds(std::string_view text) {
    const auto parts = Split(text);
    if (parts && m_date.size() == parts->day.size() + parts->year.size() && m_date.starts_with(parts->day) &&
        m_date.ends_with(parts->year)) {
        return Counted(m_midnight + parts->secondOfDay);
    }
    const auto time = Convert(std::string(text));
    if (!time) {
        return kNoForm;
    }
    // Also when the new day is no even one: else the C library would next be asked after another time than
    // when it is asked for every single one.
    m_date.clear();
    if (parts) {
        if (const auto midnight = BeginOfEvenDay(*time, parts->secondOfDay)) {
            m_midnight = *midnight;
            m_date.assign(parts->day).append(parts->year);
        }
    }
    return Counted(time->seconds);
}
