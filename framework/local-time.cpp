#include "local-time.h"

#include <mutex>

namespace tovaserverutil {
namespace {

// The C library guards its time zone itself, out of the thread sanitizer's sight.
std::mutex zoneLock;

}  // namespace

void FollowTimeZone() {
    const std::lock_guard<std::mutex> zone(zoneLock);
    tzset();
}

std::time_t SecondsOfLocalTime(std::tm& local) {
    const std::lock_guard<std::mutex> zone(zoneLock);
    return std::mktime(&local);
}

}  // namespace tovaserverutil
