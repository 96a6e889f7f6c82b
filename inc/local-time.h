// Local time as it is reckoned now.
#pragma once

#include <ctime>

namespace tovaserverutil {

// Makes localtime_r reckon in the machine's present time zone; alone it would keep the one that the service
// was started in. Any thread may call it.
void FollowTimeZone();

// mktime, which follows the time zone by itself: seconds since 1970, or -1 for a time that it cannot tell.
// Corrects the fields of `local`. Any thread may call it.
std::time_t SecondsOfLocalTime(std::tm& local);

}  // namespace tovaserverutil
