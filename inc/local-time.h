// Local time as it is reckoned now.
#pragma once

namespace tovaserverutil {

// Makes localtime_r reckon in the machine's present time zone; alone it would keep the one that the service
// was started in. Any thread may call it.
void FollowTimeZone();

}  // namespace tovaserverutil
