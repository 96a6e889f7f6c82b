#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "sanitized.h"
#include "server-util.h"
#include "test-io.h"

namespace {

using testing::MatchesRegex;
using tovaserverutil::Event;
using tovaserverutil::Thread;

std::uint64_t Count(void* argument) {
    return static_cast<std::uint64_t>(++*static_cast<std::atomic<int>*>(argument));
}

std::uint64_t ThrowText(void*) {
    throw "a text";
}

std::uint64_t ThrowException(void*) {
    throw std::runtime_error("broken");
}

std::uint64_t WaitFor(void* argument) {
    std::vector<Event*> events{static_cast<Event*>(argument)};
    Event::WaitAny(events, 30000);
    return 7;
}

bool Completes(Thread& thread) {
    std::vector<Event*> events{thread.CompletionEvent()};
    return Event::WaitAny(events, 30000) == thread.CompletionEvent();
}

TEST(Thread, NotRun_HasNoCompletionEventAndJoinsAtOnce) {
    std::atomic<int> calls = 0;
    Thread thread(&Count, &calls);
    EXPECT_EQ(thread.CompletionEvent(), nullptr);
    thread.Join();
    EXPECT_EQ(calls, 0);
}

std::uint64_t ReadName(void* argument) {
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    *static_cast<std::string*>(argument) = name;
    return 7;
}

std::string NameInside(const char* name) {
    std::string seen;
    Thread thread(&ReadName, &seen, name);
    thread.Run();
    thread.Join();
    EXPECT_EQ(thread.ExitStatus(), 7u);
    return seen;
}

TEST(Thread, Named_CarriesTheName) {
    EXPECT_EQ(NameInside("Fifteen letters"), "Fifteen letters");
}

TEST(Thread, NotNamedOrNameTooLong_RunsUnderItsCreatorsName) {
    std::string own;
    ReadName(&own);
    EXPECT_EQ(NameInside(nullptr), own);
    EXPECT_EQ(NameInside("Sixteen letters!"), own);
}

TEST(Thread, RoutineReturns_SetsTheCompletionEventAndKeepsTheStatus) {
    std::atomic<int> calls = 41;
    Thread thread(&Count, &calls);
    thread.Run();
    EXPECT_TRUE(Completes(thread));
    thread.Join();
    EXPECT_TRUE(thread.CompletionEvent()->IsSet());
    EXPECT_EQ(thread.ExitStatus(), 42u);
}

TEST(Thread, Started_IsUnjoinedUntilTheJoin) {
    std::atomic<int> calls = 0;
    Thread thread(&Count, &calls);
    EXPECT_FALSE(thread.IsUnjoined());
    thread.Run();
    EXPECT_TRUE(Completes(thread));
    EXPECT_TRUE(thread.IsUnjoined());
    thread.Join();
    EXPECT_FALSE(thread.IsUnjoined());
}

TEST(Thread, RunTwice_StartsOneThread) {
    std::atomic<int> calls = 0;
    Thread thread(&Count, &calls);
    thread.Run();
    thread.Run();
    thread.Join();
    thread.Run();
    EXPECT_EQ(calls, 1);
}

TEST(Thread, RoutineThrows_EndsWithMinusOneAndSetsTheCompletionEvent) {
    for (const auto routine : {&ThrowText, &ThrowException}) {
        Thread thread(routine, nullptr);
        thread.Run();
        EXPECT_TRUE(Completes(thread));
        thread.Join();
        EXPECT_EQ(thread.ExitStatus(), static_cast<std::uint64_t>(-1));
        EXPECT_TRUE(thread.CompletionEvent()->IsSet());
    }
}

TEST(Thread, CompletionEventCannotBeSet_EndsWithMinusTwo) {
    const IgnoreSignal pipe(SIGPIPE);
    Event go;
    Thread thread(&WaitFor, &go);
    thread.Run();
    ReplaceDescriptor(thread.CompletionEvent()->ReadEnd(), "/dev/null", O_RDONLY);
    go.Set();
    thread.Join();
    EXPECT_EQ(thread.ExitStatus(), static_cast<std::uint64_t>(-2));
    EXPECT_FALSE(thread.CompletionEvent()->IsSet());
}

TEST(Thread, JoinedTwice_ReturnsAtOnce) {
    std::atomic<int> calls = 0;
    Thread thread(&Count, &calls);
    thread.Run();
    thread.Join();
    thread.Join();
    EXPECT_EQ(calls, 1);
}

// The service body destroys its signal thread's object while that thread may still be running.
TEST(Thread, DestroyedWithoutJoin_RunsOnSafely) {
    static Event go;
    static std::atomic<bool> ended;
    ended = false;
    {
        Thread thread(
            [](void*) -> std::uint64_t {
                WaitFor(&go);
                ended = true;
                return 0;
            },
            nullptr);
        thread.Run();
    }
    go.Set();
    for (int wait = 0; wait < 3000 && !ended; ++wait) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(ended);
}

TEST(Thread, NoDescriptorLeft_RunThrowsAndStartsNothing) {
    std::atomic<int> calls = 0;
    {
        // Once with descriptors: the sanitizer's first look at a class needs one of its own.
        Thread first(&Count, &calls);
        first.Run();
        first.Join();
    }
    ASSERT_EQ(calls, 1);
    Thread thread(&Count, &calls);
    std::string text;
    {
        const DescriptorLimit limit(0);
        text = FailureText([&] { thread.Run(); });
    }
    EXPECT_THAT(text, MatchesRegex("server-util [0-9]+ \\(Err: 24\\)"));
    EXPECT_EQ(thread.CompletionEvent(), nullptr);
    thread.Join();
    EXPECT_EQ(calls, 1);
}

TEST(Thread, NoMemoryForTheStack_RunThrowsAndJoinReturnsAtOnce) {
    pthread_attr_t usual;
    pthread_attr_t huge;
    pthread_getattr_default_np(&usual);
    pthread_getattr_default_np(&huge);
    ASSERT_EQ(pthread_attr_setstacksize(&huge, std::size_t{1} << 50), 0);
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    std::atomic<int> calls = 0;
    Thread thread(&Count, &calls);
    int code = 0;
    EXPECT_THAT(FailureText([&] { thread.Run(); }, &code), MatchesRegex("server-util [0-9]+ \\(Err: 11\\)"));
    EXPECT_EQ(code, 0x10001);
    pthread_setattr_default_np(&usual);
    pthread_attr_destroy(&usual);
    pthread_attr_destroy(&huge);
    EXPECT_FALSE(thread.IsUnjoined());
    thread.Join();
    EXPECT_EQ(calls, 0);
}

#ifndef BAYWARD_SANITIZED
// Leaves malloc nothing, down to its smallest blocks.
std::uint64_t TakeAllMemory(void*) {
    constexpr std::size_t kLargest = std::size_t{1} << 20;
    const rlimit nothing{0, 0};
    if (setrlimit(RLIMIT_DATA, &nothing) != 0) {
        return 0;
    }
    for (std::size_t size = kLargest; size > 0; size /= 2) {
        void* volatile block = nullptr;  // or the compiler leaves malloc out
        do {
            block = std::malloc(size);
        } while (block != nullptr);
    }
    return 7;
}

// In a process of its own, in which no thread has ended yet. The style runs this test alone there.
TEST(ThreadDeathTest, NoMemoryWhenTheFirstThreadEnds_EndsItAllTheSame) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Thread thread(&TakeAllMemory, nullptr);
            thread.Run();
            thread.Join();
            _exit(static_cast<int>(thread.ExitStatus()));
        },
        testing::ExitedWithCode(7), "");
}
#endif

// The place of a virtual operation among its class's: what the common C++ ABI puts first into a pointer to
// it.
template <typename Operation>
std::size_t Slot(Operation operation) {
    std::uintptr_t offset = 0;
    std::memcpy(&offset, &operation, sizeof offset);
    return (offset & ~std::uintptr_t{1}) / sizeof(void*);
}

TEST(ILock, Operations_TakeTheFirstTwoSlots) {
    EXPECT_EQ(Slot(&tovaserverutil::ILock::WaitOne), 0u);
    EXPECT_EQ(Slot(&tovaserverutil::ILock::Release), 1u);
}

TEST(Mutex, HeldByAnotherThread_IsWaitedForWhateverTheTimeout) {
    tovaserverutil::Mutex mutex;
    tovaserverutil::ILock& lock = mutex;
    EXPECT_TRUE(lock.WaitOne(0));
    std::atomic<bool> entered = false;
    std::thread other([&] {
        EXPECT_TRUE(lock.WaitOne(1));
        entered = true;
        EXPECT_TRUE(lock.Release());
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(entered);
    EXPECT_TRUE(lock.Release());
    other.join();
    EXPECT_TRUE(entered);
}

}  // namespace
