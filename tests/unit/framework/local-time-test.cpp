#include "local-time.h"

#include <gtest/gtest.h>

#include <ctime>
#include <thread>

namespace {

std::tm Noon() {
    std::tm local{};
    local.tm_year = 2026 - 1900;
    local.tm_mon = 5;
    local.tm_mday = 15;
    local.tm_hour = 12;
    local.tm_isdst = -1;
    return local;
}

TEST(LocalTime, SecondsAndFields_AreEachOthersInverse) {
    std::tm local = Noon();
    const std::time_t seconds = tovaserverutil::SecondsOfLocalTime(local);
    std::tm back{};
    ASSERT_NE(localtime_r(&seconds, &back), nullptr);
    EXPECT_EQ(back.tm_mon, 5);
    EXPECT_EQ(back.tm_mday, 15);
    EXPECT_EQ(back.tm_hour, 12);
}

// The thread sanitizer is the judge of what happens between the two.
TEST(LocalTime, ThreadsThatReckonAndThreadsThatFollowTheZone_DoNotDisturbEachOther) {
    std::tm first = Noon();
    const std::time_t expected = tovaserverutil::SecondsOfLocalTime(first);
    std::thread following([] {
        for (int i = 0; i < 200; ++i) {
            tovaserverutil::FollowTimeZone();
        }
    });
    int wrong = 0;
    for (int i = 0; i < 200; ++i) {
        std::tm local = Noon();
        wrong += tovaserverutil::SecondsOfLocalTime(local) == expected ? 0 : 1;
    }
    following.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
