#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>

#include "server-util.h"
#include "test-io.h"

namespace {

using testing::MatchesRegex;
using tovaserverutil::Event;
using namespace std::chrono_literals;

int BytesIn(const Event& event) {
    int count = -1;
    ioctl(event.ReadEnd(), FIONREAD, &count);
    return count;
}

TEST(Event, New_IsNotSet) {
    const Event event;
    EXPECT_FALSE(event.IsSet());
    EXPECT_EQ(BytesIn(event), 0);
}

TEST(Event, Set_WritesSevenBytesWithTheNul) {
    Event event;
    event.Set();
    EXPECT_TRUE(event.IsSet());
    char bytes[16] = {};
    ASSERT_EQ(read(event.ReadEnd(), bytes, sizeof bytes), 7);
    EXPECT_EQ(std::string(bytes, 7), std::string("SetEvt\0", 7));
}

TEST(Event, Descriptors_AreCloseOnExec) {
    const Event event;
    EXPECT_TRUE(fcntl(event.ReadEnd(), F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(fcntl(event.ReadEnd() + 1, F_GETFD) & FD_CLOEXEC);
}

TEST(Event, Destruction_ClosesBothEnds) {
    const std::ptrdiff_t before = CountDescriptors();
    auto event = std::make_unique<Event>();
    const int readEnd = event->ReadEnd();
    EXPECT_EQ(CountDescriptors(), before + 2);
    event.reset();
    EXPECT_EQ(CountDescriptors(), before);
    EXPECT_EQ(fcntl(readEnd, F_GETFD), -1);
    const Event next;  // the lowest free numbers are given out again
    EXPECT_EQ(next.ReadEnd(), readEnd);
}

TEST(Event, NoDescriptorLeft_ThrowsTheErrorNumber) {
    int code = 0;
    std::string text;
    {
        const DescriptorLimit limit(0);
        text = FailureText([] { Event event; }, &code);
    }
    EXPECT_THAT(text, MatchesRegex("server-util [0-9]+ \\(Err: 24\\)"));
    EXPECT_EQ(code, 0x10001);
}

TEST(Event, SetWithoutReader_ThrowsAndLeavesTheFlagDown) {
    const IgnoreSignal pipe(SIGPIPE);
    Event event;
    ReplaceDescriptor(event.ReadEnd(), "/dev/null", O_RDONLY);
    EXPECT_THAT(FailureText([&] { event.Set(); }), MatchesRegex("server-util [0-9]+ \\(Err: 32\\)"));
    EXPECT_FALSE(event.IsSet());
}

TEST(EventPoll, Set_ReturnsTrueAndConsumesTheSignal) {
    Event event;
    event.Set();
    EXPECT_TRUE(event.Poll(60000));
    EXPECT_EQ(BytesIn(event), 0);
    EXPECT_FALSE(event.Poll(0));
    EXPECT_TRUE(event.IsSet());
}

TEST(EventPoll, SetTwice_StaysReadable) {
    Event event;
    event.Set();
    event.Set();
    EXPECT_TRUE(event.Poll(60000));
    EXPECT_EQ(BytesIn(event), 14 - 8);
    EXPECT_TRUE(event.Poll(60000));
}

TEST(EventPoll, NotSet_WaitsTheWholeTime) {
    Event event;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(event.Poll(60));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 55ms);
}

TEST(EventPoll, SetMeanwhile_EndsTheWait) {
    Event event;
    std::thread setter([&] {
        std::this_thread::sleep_for(20ms);
        event.Set();
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(event.Poll(60000));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
    setter.join();
}

TEST(EventPoll, PollFails_ThrowsTheErrorNumber) {
    Event event;
    std::string text;
    int code = 0;
    {
        const DescriptorLimit limit(0);  // not even one descriptor may be polled
        text = FailureText([&] { event.Poll(0); }, &code);
    }
    EXPECT_EQ(text, "server-util 151 (Err: 22)");
    EXPECT_EQ(code, 0x10001);
}

TEST(EventPoll, ReadFails_ThrowsTheErrorNumber) {
    Event event;
    ReplaceDescriptor(event.ReadEnd(), "/dev/null", O_WRONLY);
    int code = 0;
    EXPECT_EQ(FailureText([&] { event.Poll(60000); }, &code), "server-util 151 (Err: 9)");
    EXPECT_EQ(code, 0x10001);
}

TEST(WaitMultiple, EmptyList_ReturnsZeroAtOnce) {
    std::vector<Event*> none;
    EXPECT_EQ(Event::WaitMultiple(none, false, 60000), 0u);
    EXPECT_EQ(Event::WaitMultiple(none, true, 60000), 0u);
}

TEST(WaitMultiple, ZeroTimeoutAndNothingSet_PollsOnce) {
    Event event;
    std::vector<Event*> events{&event};
    EXPECT_EQ(Event::WaitMultiple(events, false, 0), 0xFFFFFFFFu);
    EXPECT_EQ(Event::WaitMultiple(events, true, 0), 0xFFFFFFFFu);
    event.Set();
    EXPECT_EQ(Event::WaitMultiple(events, false, 0), 0u);
}

TEST(WaitMultiple, NothingSet_WaitsTheWholeTime) {
    Event event;
    std::vector<Event*> events{&event};
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Event::WaitMultiple(events, false, 120), Event::kTimeout);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 115ms);
}

TEST(WaitMultiple, AnyOfSeveralSet_ReturnsTheFirstIndexAndConsumesOnlyThat) {
    Event first;
    Event second;
    Event third;
    second.Set();
    third.Set();
    std::vector<Event*> events{&first, &second, &third};
    EXPECT_EQ(Event::WaitMultiple(events, false, 1000), 1u);
    EXPECT_EQ(BytesIn(second), 0);
    EXPECT_EQ(BytesIn(third), 7);
    EXPECT_EQ(Event::WaitMultiple(events, false, 1000), 2u);
    EXPECT_EQ(Event::WaitMultiple(events, false, 0), Event::kTimeout);
    EXPECT_EQ(events.size(), 3u);
}

TEST(WaitMultiple, EventSetTwice_StaysReadableAfterOneWait) {
    Event event;
    event.Set();
    event.Set();
    std::vector<Event*> events{&event};
    EXPECT_EQ(Event::WaitMultiple(events, false, 1000), 0u);
    EXPECT_EQ(BytesIn(event), 6);
    EXPECT_EQ(Event::WaitMultiple(events, false, 1000), 0u);
    EXPECT_EQ(Event::WaitMultiple(events, false, 0), Event::kTimeout);
}

TEST(WaitMultiple, ConsumedSignal_LeavesTheFlagUp) {
    Event event;
    event.Set();
    std::vector<Event*> events{&event};
    Event::WaitMultiple(events, false, 1000);
    EXPECT_TRUE(event.IsSet());
}

TEST(WaitMultiple, AllSet_ReturnsZeroAndConsumesEach) {
    Event first;
    Event second;
    first.Set();
    second.Set();
    std::vector<Event*> events{&first, &second};
    EXPECT_EQ(Event::WaitMultiple(events, true, 1000), 0u);
    EXPECT_EQ(BytesIn(first), 0);
    EXPECT_EQ(BytesIn(second), 0);
    EXPECT_EQ(events.size(), 2u);
}

TEST(WaitMultiple, AllButOneSet_TimesOut) {
    Event first;
    Event second;
    first.Set();
    std::vector<Event*> events{&first, &second};
    EXPECT_EQ(Event::WaitMultiple(events, true, 50), Event::kTimeout);
    EXPECT_EQ(BytesIn(first), 0);
}

TEST(WaitMultiple, AllSetOneAfterTheOther_WaitsForTheLast) {
    Event first;
    Event second;
    std::atomic<bool> lastIsDue = false;
    std::thread setter([&] {
        std::this_thread::sleep_for(30ms);
        second.Set();
        std::this_thread::sleep_for(30ms);
        lastIsDue = true;
        first.Set();
    });
    std::vector<Event*> events{&first, &second};
    EXPECT_EQ(Event::WaitMultiple(events, true, 30000), 0u);
    EXPECT_TRUE(lastIsDue);  // the flag of the event itself rises only after its signal
    setter.join();
}

TEST(WaitMultiple, AllWithOneEventListedTwice_NeedsASecondSignalButNeverHangs) {
    Event event;
    event.Set();
    std::vector<Event*> events{&event, &event};
    EXPECT_EQ(Event::WaitMultiple(events, true, 20), Event::kTimeout);
    event.Set();
    event.Set();
    EXPECT_EQ(Event::WaitMultiple(events, true, 1000), 0u);
}

TEST(WaitMultiple, AllOnesTimeout_IsAnOrdinaryLongWait) {
    Event event;
    std::thread setter([&] {
        std::this_thread::sleep_for(20ms);
        event.Set();
    });
    std::vector<Event*> events{&event};
    EXPECT_EQ(Event::WaitMultiple(events, false, 0xFFFFFFFF), 0u);
    setter.join();
}

TEST(WaitMultiple, ReadFails_ThrowsTheErrorNumber) {
    Event event;
    ReplaceDescriptor(event.ReadEnd(), "/", O_RDONLY | O_DIRECTORY);  // readable for select, not for read
    std::vector<Event*> events{&event};
    EXPECT_THAT(FailureText([&] { Event::WaitMultiple(events, false, 1000); }),
                MatchesRegex("server-util [0-9]+ \\(Err: 21\\)"));
}

TEST(WaitMultiple, SelectFails_ThrowsTheErrorNumber) {
    Event event;
    const int readEnd = event.ReadEnd();
    const int kept = fcntl(readEnd, F_DUPFD_CLOEXEC, 0);
    close(readEnd);
    std::vector<Event*> events{&event};
    EXPECT_THAT(FailureText([&] { Event::WaitMultiple(events, false, 1000); }),
                MatchesRegex("server-util [0-9]+ \\(Err: 9\\)"));
    dup3(kept, readEnd, O_CLOEXEC);
    close(kept);
}

TEST(WaitMultiple, DescriptorTooLargeForSelect_Throws) {
    const DescriptorLimit limit(FD_SETSIZE + 64);
    ASSERT_TRUE(limit.IsSet());
    std::vector<tovaserverutil::FileDescriptor> fillers;
    do {
        fillers.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
        ASSERT_TRUE(fillers.back().valid());
    } while (fillers.back().get() < FD_SETSIZE);
    Event event;
    event.Set();
    std::vector<Event*> events{&event};
    int code = 0;
    EXPECT_THAT(FailureText([&] { Event::WaitMultiple(events, false, 0); }, &code),
                MatchesRegex("server-util [0-9]+ \\(Err: 22\\)"));
    EXPECT_EQ(code, 0x10001);
}

TEST(WaitAny, OnlyNullPointers_ReturnsNullAtOnce) {
    std::vector<Event*> events{nullptr, nullptr};
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Event::WaitAny(events, 60000), nullptr);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}

TEST(WaitAny, NullPointersAmongEvents_AreSkipped) {
    Event first;
    Event second;
    second.Set();
    std::vector<Event*> events{nullptr, &first, nullptr, &second};
    EXPECT_EQ(Event::WaitAny(events, 1000), &second);
}

TEST(WaitAny, NothingSet_ReturnsNull) {
    Event event;
    std::vector<Event*> events{&event};
    EXPECT_EQ(Event::WaitAny(events, 10), nullptr);
}

}  // namespace
