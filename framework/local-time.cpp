#include "local-time.h"

#include <ctime>
#include <mutex>

namespace tovaserverutil {

void FollowTimeZone() {
    // The C library guards tzset itself, out of the thread sanitizer's sight.
    static std::mutex zoneLock;
    const std::lock_guard<std::mutex> zone(zoneLock);
    tzset();
}

}  // namespace tovaserverutil
