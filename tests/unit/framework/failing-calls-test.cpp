// Failures and clock jumps that no ordinary means can bring about: this program replaces the calls that make
// them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <vector>

#include "server-util.h"
#include "shell.h"
#include "test-io.h"
#include "test-root.h"

namespace {

// The scripted clock: seconds added to the real time at each call, one after the other, the last for ever.
std::vector<long> clockOffsets;
std::size_t clockCalls = 0;
constexpr std::size_t kNever = static_cast<std::size_t>(-1);
std::size_t clockFailsAt = kNever;  // number of the failing call, from 0
bool localTimeFails = false;

void UseClock(std::vector<long> offsets, std::size_t failsAt = kNever) {
    clockOffsets = std::move(offsets);
    clockFailsAt = failsAt;
    clockCalls = 0;
}

}  // namespace

extern "C" int gettimeofday(struct timeval* __restrict now, void* __restrict) noexcept {
    const std::size_t call = clockCalls++;
    if (call == clockFailsAt) {
        errno = EPERM;
        return -1;
    }
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    const long offset = clockOffsets.empty() ? 0 : clockOffsets[std::min(call, clockOffsets.size() - 1)];
    now->tv_sec = real.tv_sec + offset;
    now->tv_usec = real.tv_nsec / 1000;
    return 0;
}

extern "C" struct tm* localtime_r(const time_t* __restrict, struct tm* __restrict result) noexcept {
    if (localTimeFails) {
        return nullptr;
    }
    *result = {};
    result->tm_year = 100;
    return result;
}

extern "C" int posix_spawn(pid_t* __restrict, const char* __restrict,
                           const posix_spawn_file_actions_t* __restrict, const posix_spawnattr_t* __restrict,
                           char* const[], char* const[]) {
    return EAGAIN;
}

namespace {

using testing::MatchesRegex;
using tovaserverutil::Event;
using namespace std::chrono_literals;

// Sets the first event at once and the second never: a wait for both takes the time twice.
std::uint32_t WaitForBoth(unsigned int timeoutMs) {
    Event first;
    Event second;
    first.Set();
    std::vector<Event*> events{&first, &second};
    return Event::WaitMultiple(events, true, timeoutMs);
}

TEST(WaitMultipleClock, SetAheadMeanwhile_TimesOutInsteadOfFailing) {
    UseClock({0, 3600});
    EXPECT_EQ(WaitForBoth(5000), Event::kTimeout);
    EXPECT_EQ(clockCalls, 2u);
}

TEST(WaitMultipleClock, SetBackMeanwhile_NeverWaitsLongerThanAsked) {
    UseClock({0, -3600});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitForBoth(100), Event::kTimeout);
    const auto spent = std::chrono::steady_clock::now() - start;
    EXPECT_GE(spent, 95ms);
    EXPECT_LT(spent, 20s);
}

TEST(WaitMultipleClock, TimeSpentMeanwhile_IsTakenOffTheRest) {
    UseClock({0, 10});  // ten seconds have gone by when the second wait begins
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitForBoth(10100), Event::kTimeout);
    const auto spent = std::chrono::steady_clock::now() - start;
    EXPECT_GE(spent, 50ms);
    EXPECT_LT(spent, 8s);
}

TEST(WaitMultipleClock, FailsAtTheStart_Throws) {
    UseClock({}, 0);
    EXPECT_THAT(FailureText([] { WaitForBoth(10); }), MatchesRegex("server-util [0-9]+ \\(Err: 1\\)"));
}

TEST(WaitMultipleClock, FailsMeanwhile_Throws) {
    UseClock({}, 1);
    EXPECT_THAT(FailureText([] { WaitForBoth(10); }), MatchesRegex("server-util [0-9]+ \\(Err: 1\\)"));
}

TEST(TraceLogClock, CannotBeRead_DropsTheLineAndReturnsFalse) {
    const TestRoot root;
    tovaserverutil::TraceLog log(root / "log", 10000, true);
    UseClock({}, 0);
    EXPECT_FALSE(log.Write("lost"));
    EXPECT_FALSE(std::filesystem::exists(root / "log"));
}

TEST(TraceLogClock, CannotBeConverted_DropsTheLineAndReturnsFalse) {
    const TestRoot root;
    tovaserverutil::TraceLog log(root / "log", 10000, true);
    UseClock({});
    localTimeFails = true;
    EXPECT_FALSE(log.Write("lost"));
    localTimeFails = false;
    EXPECT_TRUE(log.Write("kept"));
    EXPECT_THAT(root.Read("log"), MatchesRegex("2000/01/00 00:00:00\\.[0-9][0-9][0-9] kept\n"));
}

TEST(ShellRunnerFailure, ShellCannotBeStarted_IsReported) {
    tovaserverutil::ShellRunner runner;
    EXPECT_FALSE(runner.Capture("true", 1000ms).started);
    EXPECT_FALSE(runner.Execute("true", 1000ms).started);
}

}  // namespace
