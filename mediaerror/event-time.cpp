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

// The text's time as the C library converts it: another one when there is no such time, or no such day.
// Nothing when the text has another form.
std::optional<std::time_t> Convert(const std::string& text) {
    // The "C" locale is part of the C library: asking for it takes no memory and cannot fail.
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    tm local{};
    if (strptime_l(text.c_str(), "%a %b %d %H:%M:%S %Y", &local, plain) == nullptr) {
        return std::nullopt;
    }
    local.tm_isdst = -1;
    return tovaserverutil::SecondsOfLocalTime(local);
}

int SecondOfDay(int hour, int minute, int second) {
    return (hour * 60 + minute) * 60 + second;
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
    const std::string_view year = text.substr(kYear, kForm.size() - kYear);
    // One with blanks in front may go on behind these four characters.
    const bool isYear = year.find_first_not_of("0123456789") == std::string_view::npos;
    if (!hour || !minute || !second || !isYear) {
        return std::nullopt;
    }
    return Parts{text.substr(0, kHour), year, SecondOfDay(*hour, *minute, *second)};
}

// Does a local day begin at that second?
bool IsMidnight(std::time_t seconds) {
    tm local{};
    localtime_r(&seconds, &local);  // fails for years that no int holds; the texts' have four digits
    return SecondOfDay(local.tm_hour, local.tm_min, local.tm_sec) == 0;
}

// The beginning of the time's day when no clock is changed on it, nor on the days before and after it: only
// then its times are as many seconds apart as they look, and none of them comes twice, which the C library
// would decide by the time that it was asked for before. For the same reason a time that a change leaves out
// has no such day, nor has one beside a leap second, in zones that count those. A change by whole days, which
// leaves dates out, does not matter: it moves no time of a day.
std::optional<std::time_t> BeginOfEvenDay(std::time_t seconds, int secondOfDay) {
    const std::time_t midnight = seconds - secondOfDay;
    return IsMidnight(midnight - kDay) && IsMidnight(midnight + 2 * kDay) ? std::optional(midnight)
                                                                          : std::nullopt;
}

}  // namespace

std::uint64_t datestr_to_num(const std::string& text) {
    const auto seconds = Convert(text);
    return seconds ? Counted(*seconds) : kNoForm;
}

std::uint64_t EventTimes::Seconds(std::string_view text) {
    const auto parts = Split(text);
    if (parts && m_date.starts_with(parts->day) && m_date.ends_with(parts->year)) {
        return Counted(m_midnight + parts->secondOfDay);
    }
    const auto seconds = Convert(std::string(text));
    if (!seconds) {
        return kNoForm;
    }
    // Also when the new day is no even one: else the C library would next be asked after another time than
    // when it is asked for every single one.
    m_date.clear();
    if (parts) {
        if (const auto midnight = BeginOfEvenDay(*seconds, parts->secondOfDay)) {
            m_midnight = *midnight;
            m_date.assign(parts->day).append(parts->year);
        }
    }
    return Counted(*seconds);
}
