// Calls of the C library that this program watches or makes fail on order; all others are passed on. The
// linker leads them here (--wrap).
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "server-util.h"
#include "test-io.h"

namespace {

// Of the calling thread.
thread_local std::vector<int> closed;  // descriptors, in order
thread_local int detached = 0;
thread_local int lockResult = 0;  // other than 0: nothing is locked
thread_local int unlockResult = 0;
thread_local int unlocks = 0;  // asked for

}  // namespace

extern "C" {

int __real_close(int descriptor);
int __real_pthread_detach(pthread_t thread);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);

int __wrap_close(int descriptor) {
    closed.push_back(descriptor);
    return __real_close(descriptor);
}

int __wrap_pthread_detach(pthread_t thread) {
    ++detached;
    return __real_pthread_detach(thread);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    return lockResult != 0 ? lockResult : __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    ++unlocks;
    return unlockResult != 0 ? unlockResult : __real_pthread_mutex_unlock(mutex);
}

}  // extern "C"

namespace {

using testing::MatchesRegex;
using tovaserverutil::Event;
using tovaserverutil::LockGuard;
using tovaserverutil::Mutex;
using tovaserverutil::Thread;

std::uint64_t Nothing(void*) {
    return 0;
}

bool IsOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

TEST(EventDestruction, ReadEnd_IsClosedFirst) {
    auto event = std::make_unique<Event>();
    const int readEnd = event->ReadEnd();
    closed.clear();
    event.reset();
    ASSERT_EQ(closed.size(), 2u);
    EXPECT_EQ(closed[0], readEnd);
    EXPECT_NE(closed[1], readEnd);
    EXPECT_FALSE(IsOpen(closed[0]));
    EXPECT_FALSE(IsOpen(closed[1]));
}

TEST(ThreadDestruction, NotJoined_DetachesTheThread) {
    detached = 0;
    {
        Thread thread(&Nothing, nullptr);
        thread.Run();
    }
    EXPECT_EQ(detached, 1);
}

TEST(ThreadDestruction, JoinedOrNeverStarted_DetachesNothing) {
    detached = 0;
    {
        const Thread idle(&Nothing, nullptr);
        Thread thread(&Nothing, nullptr);
        thread.Run();
        thread.Join();
    }
    EXPECT_EQ(detached, 0);
}

TEST(MutexFailure, LockRefused_ThrowsTheResult) {
    Mutex mutex;
    int code = 0;
    lockResult = EAGAIN;
    const std::string text = FailureText([&] { mutex.WaitOne(0); }, &code);
    lockResult = 0;
    EXPECT_THAT(text, MatchesRegex("server-util [0-9]+ \\(Err: 11\\)"));
    EXPECT_EQ(code, 0x10001);
    EXPECT_TRUE(mutex.WaitOne(0));
    EXPECT_TRUE(mutex.Release());
}

TEST(MutexFailure, UnlockRefused_ThrowsTheResult) {
    Mutex mutex;
    mutex.WaitOne(0);
    int code = 0;
    unlockResult = EPERM;
    const std::string text = FailureText([&] { mutex.Release(); }, &code);
    unlockResult = 0;
    EXPECT_THAT(text, MatchesRegex("server-util [0-9]+ \\(Err: 1\\)"));
    EXPECT_EQ(code, 0x10001);
    EXPECT_TRUE(mutex.Release());
}

TEST(LockGuard, RefusedLock_ThrowsAndReleasesNothing) {
    Mutex mutex;
    lockResult = EINVAL;
    EXPECT_THROW(const LockGuard guard(mutex), tovabase::TOVAExcpt);
    lockResult = 0;
    mutex.WaitOne(0);  // would wait for ever if it were held
    EXPECT_TRUE(mutex.Release());
}

TEST(LockGuard, EndOfTheScope_ReleasesAndLetsNoFailureOut) {
    Mutex mutex;
    unlocks = 0;
    { const LockGuard guard(mutex); }
    EXPECT_EQ(unlocks, 1);
    EXPECT_NO_THROW({
        const LockGuard guard(mutex);
        unlockResult = EPERM;
    });
    unlockResult = 0;
    mutex.Release();
}

TEST(LockGuard, ReleaseByHand_TellsItsResultAndIsNotRepeated) {
    Mutex mutex;
    unlocks = 0;
    {
        LockGuard guard(mutex);
        EXPECT_TRUE(guard.Release());
    }
    EXPECT_EQ(unlocks, 1);
    {
        LockGuard guard(mutex);
        unlockResult = EPERM;
        EXPECT_THROW(guard.Release(), tovabase::TOVAExcpt);
        unlockResult = 0;
    }
    EXPECT_EQ(unlocks, 2);
    mutex.Release();
}

}  // namespace
