// How the monitoring thread ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <new>

#include "monitor-rig.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr const char* kStart = "<VK0900> [TR] Start to monitor.";
constexpr const char* kBreak = "<VK0900> [TR] Break MonitorLogRoutine by StopEvent.";
constexpr const char* kNotLoggedIn = "<VK0956> [ER] Failed to initialize RaidManager.";

// The waits of a rig whose controller answers: 1 and 2 are start-up, 3 begins the cycle that takes the
// baseline, 4 and those after it begin cycles that compare.
constexpr std::size_t kBaseline = 3;
constexpr std::size_t kFirstCheck = 4;

TEST(Cycle, StopInAnyWait_EndsWithOneBreakLineAndTheSessionEnded) {
    for (std::size_t wait = 1; wait <= 6; ++wait) {
        MonitorRig rig;
        rig.RunMonitorUntilStop(wait);
        const auto trace = rig.Trace();
        ASSERT_FALSE(trace.empty());
        EXPECT_EQ(trace.back(), kBreak);
        EXPECT_EQ(trace.size(), wait < kBaseline ? 1U : 2U) << wait;
        EXPECT_EQ(rig.CountCalls("init "), wait == 1 ? 0U : 1U) << wait;
        EXPECT_EQ(rig.CountCalls("reset"), wait < kBaseline ? 0U : 1U)
            << wait << ": in start-up it would start an interpreter just to stop";
        EXPECT_EQ(rig.bridge->sessionHost, "") << wait;
        EXPECT_THAT(rig.wait.waits, SizeIs(wait));
    }
}

TEST(Cycle, StopInsideAnyFetch_EndsWithOneBreakLineAndNoFailureLine) {
    // Start-up's log-in and snapshot, the baseline, one comparison: each makes a few fetches.
    constexpr int kFetches = 30;
    int ended = 0;
    for (int nth = 1; nth <= kFetches; ++nth) {
        MonitorRig rig;
        int fetches = 0;
        rig.bridge->onFetch = [&](const std::string&) {
            if (++fetches == nth) {
                rig.RequestStop();
            }
        };
        rig.RunMonitorUntilStop(6);
        const auto trace = rig.Trace();
        EXPECT_EQ(std::count(trace.begin(), trace.end(), kBreak), 1) << nth;
        EXPECT_EQ(trace.back(), kBreak) << nth;
        for (const std::string& line : trace) {
            EXPECT_EQ(line.find("[ER]"), std::string::npos) << nth << ": " << line;
        }
        EXPECT_THAT(rig.sink.entries, IsEmpty());
        EXPECT_EQ(rig.bridge->sessionHost, "") << nth;
        ended += rig.wait.waits.size() < 6 ? 1 : 0;
    }
    EXPECT_GT(ended, 20) << "most of these stops must come before the last wait";
}

// The module has a session with the virtual NIC by then, although the log-in is not complete.
TEST(Cycle, StopInsideTheVnicStageOfALogIn_LeavesNoSessionBehind) {
    constexpr const char* kNotReady = R"({"error":"ResourceNotReadyRetry"})";
    constexpr unsigned int kNotReadyWait = 10000;
    for (const std::size_t wait : {std::size_t{2}, kFirstCheck + 2}) {  // start-up's log-in, a cycle's
        MonitorRig rig;
        rig.At(kFirstCheck, [&] { rig.FailWalks("gone"); });
        rig.At(wait == 2 ? 1 : kFirstCheck + 1, [&] { rig.HaveVnic(kNotReady); });
        std::string host;
        rig.At(wait, [&] { host = rig.bridge->sessionHost; });
        rig.RunMonitorUntilStop(wait);
        EXPECT_EQ(rig.wait.waits.back(), kNotReadyWait);
        EXPECT_EQ(host, "https://16.1.15.1") << "the stop came while that session was open";
        EXPECT_EQ(rig.bridge->sessionHost, "") << wait;
        EXPECT_THAT(rig.Trace(), Contains(kBreak).Times(1));
    }
}

TEST(Cycle, StopInsideALogIn_EndsWithoutAFailureLine) {
    MonitorRig rig;
    rig.At(4, [&] { rig.FailWalks("gone"); });
    rig.At(5, [&] { rig.RequestStop(); });
    rig.RunMonitorUntilStop(7);
    EXPECT_THAT(rig.Trace(), ElementsAre(kStart, kNotLoggedIn, kBreak));
}

// ---- What escapes a cycle ----

TEST(Cycle, EscapingFailure_IsTracedTwiceAndEndsTheThread) {
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[] { throw tovabase::TOVAExcpt(0x10001, "unit 7 (Err: 9)"); }, "unit 7 (Err: 9)"},
        {[] { throw std::bad_alloc(); }, "Bad Alloc"},
        {[] { throw std::runtime_error("what it says"); }, "what it says"},
        {[] { throw 5; }, "Unknown"},
    };
    for (const auto& [fail, text] : cases) {
        MonitorRig rig;
        rig.At(kFirstCheck, fail);
        rig.RunMonitorUntilStop(9);
        const std::string inner = std::string("<VK0902> [ER] service 1450 (Err: ") + text + ")";
        const std::string outer = std::string("<VK0902> [ER] service 1454 (Err: ") + text + ")";
        EXPECT_THAT(rig.Trace(), ElementsAre(kStart, inner, outer));
    }
}

TEST(Cycle, EscapingFailure_DestroysTheManagerBetweenItsTwoLines) {
    MonitorRig rig;
    rig.At(kFirstCheck, [] { throw 5; });
    std::vector<std::string> traceAtEnd;
    rig.onManagerEnd = [&] {
        traceAtEnd = rig.Trace();
        EXPECT_EQ(rig.bridge->sessionHost, "") << "logged out first";
    };
    rig.RunMonitorUntilStop(9);
    EXPECT_THAT(traceAtEnd, ElementsAre(kStart, "<VK0902> [ER] service 1450 (Err: Unknown)"));
    EXPECT_EQ(rig.Trace().back(), "<VK0902> [ER] service 1454 (Err: Unknown)");
}

TEST(Cycle, EscapingFailureInStartUp_IsTracedTwiceToo) {
    MonitorRig rig;
    rig.At(1, [] { throw std::runtime_error("early"); });
    rig.RunMonitorUntilStop(9);
    EXPECT_THAT(rig.Trace(), ElementsAre("<VK0902> [ER] service 1450 (Err: early)",
                                         "<VK0902> [ER] service 1454 (Err: early)"));
}

}  // namespace
