#include "stop-wait.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

using tovaserverutil::Event;
using tovaserverutil::StopWait;
using namespace std::chrono_literals;

std::chrono::steady_clock::duration Timed(StopWait& wait, unsigned int timeoutMs, bool expected) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(wait.Wait(timeoutMs), expected);
    return std::chrono::steady_clock::now() - start;
}

TEST(StopWait, NothingSet_WaitsAndReportsNoStop) {
    Event stop;
    StopWait wait(&stop);
    EXPECT_GE(Timed(wait, 60, false), 55ms);
    EXPECT_FALSE(wait.IsRequested());
}

TEST(StopWait, StopSeenOnce_IsRememberedByEveryLaterWait) {
    Event stop;
    StopWait wait(&stop);
    stop.Set();
    EXPECT_TRUE(wait.Wait(60000));
    EXPECT_LT(Timed(wait, 60000, true), 10s);
    EXPECT_TRUE(wait.IsRequested());
}

TEST(StopWait, StopDuringTheWait_EndsIt) {
    Event stop;
    StopWait wait(&stop);
    std::thread setter([&] {
        std::this_thread::sleep_for(20ms);
        stop.Set();
    });
    EXPECT_LT(Timed(wait, 60000, true), 10s);
    setter.join();
}

TEST(StopWait, OtherEvent_EndsTheWaitWithoutAStop) {
    Event stop;
    Event other;
    StopWait wait(&stop, {nullptr, &other});
    other.Set();
    EXPECT_LT(Timed(wait, 60000, false), 10s);
    EXPECT_GE(Timed(wait, 60, false), 55ms);
    stop.Set();
    EXPECT_TRUE(wait.IsRequested());
}

TEST(StopWait, StopAndOtherEventTogether_IsAStop) {
    Event stop;
    Event other;
    StopWait wait(&stop, {&other});
    other.Set();
    stop.Set();
    EXPECT_TRUE(wait.Wait(60000));
}

TEST(StopWait, NoStopEvent_WaitsTheTimeAndNeverStops) {
    StopWait wait(nullptr);
    EXPECT_GE(Timed(wait, 60, false), 55ms);
    EXPECT_FALSE(wait.IsRequested());
}

TEST(StopWait, NoStopEventButAnother_WaitsForThat) {
    Event other;
    StopWait wait(nullptr, {&other});
    other.Set();
    EXPECT_LT(Timed(wait, 60000, false), 10s);
}

}  // namespace
