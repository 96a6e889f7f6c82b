#include "instance-lock.h"

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <thread>

#include "test-root.h"

namespace {

constexpr std::chrono::milliseconds kNone{0};

TEST(InstanceLock, SecondOne_FindsItTakenUntilTheFirstEnds) {
    const TestRoot root;
    auto first = std::make_unique<InstanceLock>(root.path(), kNone);
    EXPECT_FALSE(first->IsTaken());
    EXPECT_TRUE(InstanceLock(root.path(), kNone).IsTaken());
    EXPECT_TRUE(InstanceLock(root.path(), std::chrono::milliseconds(120)).IsTaken());
    first.reset();
    EXPECT_FALSE(InstanceLock(root.path(), kNone).IsTaken());
}

TEST(InstanceLock, OneThatEndsMeanwhile_IsWaitedFor) {
    const TestRoot root;
    auto first = std::make_unique<InstanceLock>(root.path(), kNone);
    std::thread end([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        first.reset();
    });
    EXPECT_FALSE(InstanceLock(root.path(), std::chrono::minutes(1)).IsTaken());
    end.join();
}

TEST(InstanceLock, OtherFolder_IsFree) {
    const TestRoot root;
    const TestRoot other;
    const InstanceLock lock(root.path(), kNone);
    EXPECT_FALSE(InstanceLock(other.path(), kNone).IsTaken());
}

TEST(InstanceLock, MissingFolder_KeepsNobodyAway) {
    const TestRoot root;
    const InstanceLock lock(root.path() + "/absent", kNone);
    EXPECT_FALSE(lock.IsTaken());
    EXPECT_FALSE(InstanceLock(root.path() + "/absent", kNone).IsTaken());
}

TEST(InstanceLock, ProgramThatOutlivesIt_DoesNotHoldIt) {
    const TestRoot root;
    pid_t child = -1;
    {
        const InstanceLock lock(root.path(), kNone);
        char name[] = "sleep";
        char time[] = "60";
        char* const arguments[] = {name, time, nullptr};
        ASSERT_EQ(posix_spawnp(&child, "sleep", nullptr, nullptr, arguments, environ), 0);
    }
    EXPECT_FALSE(InstanceLock(root.path(), kNone).IsTaken());
    EXPECT_EQ(waitpid(child, nullptr, WNOHANG), 0) << "it still runs";
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

}  // namespace
