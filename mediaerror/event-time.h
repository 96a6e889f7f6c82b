// The times of the events in a MegaRAID controller's log.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

// "Fri Oct  2 05:41:23 2026", local time with English names whatever the locale is, as seconds since the
// epoch. 1 when the text is not of that form (what follows the year is not looked at), 0 when there is no
// such time or it lies before the epoch. Any thread may use it.
std::uint64_t datestr_to_num(const std::string& text);

// Gives what datestr_to_num gives for one text after the other, much faster where many of them share a day:
// the C library, which looks at the time zone's file each time, is asked once for a day. A change of the
// machine's time zone is seen from the next day in the texts on, so an object is meant for one log. Used by
// one thread at a time.
class EventTimes {
public:
    std::uint64_t Seconds(std::string_view text);

private:
    std::string m_date;  // the last even day as the texts write it, without the time of day; empty for none
    std::time_t m_midnight = 0;  // its beginning
};
