#include "instance-lock.h"

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>

#include "test-root.h"

namespace {

TEST(InstanceLock, SecondOne_FindsItTakenUntilTheFirstEnds) {
    const TestRoot root;
    auto first = std::make_unique<InstanceLock>(root.path());
    EXPECT_FALSE(first->IsTaken());
    EXPECT_TRUE(InstanceLock(root.path()).IsTaken());
    first.reset();
    EXPECT_FALSE(InstanceLock(root.path()).IsTaken());
}

TEST(InstanceLock, SecondOneThatWaits_HasItWhenTheFirstEnds) {
    const TestRoot root;
    auto first = std::make_unique<InstanceLock>(root.path());
    InstanceLock second(root.path());
    ASSERT_TRUE(second.IsTaken());
    std::thread end([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        first.reset();
    });
    second.Wait();
    EXPECT_FALSE(second.IsTaken());
    EXPECT_TRUE(InstanceLock(root.path()).IsTaken());
    end.join();
}

TEST(InstanceLock, FolderThatEverybodyMayOpen_IsNotLocked) {
    const TestRoot root;
    ASSERT_EQ(chmod(root.path().c_str(), 0755), 0);
    const InstanceLock first(root.path());
    EXPECT_FALSE(InstanceLock(root.path()).IsTaken());
}

TEST(InstanceLock, OtherFolder_IsFree) {
    const TestRoot root;
    const TestRoot other;
    const InstanceLock lock(root.path());
    EXPECT_FALSE(InstanceLock(other.path()).IsTaken());
}

TEST(InstanceLock, MissingFolder_KeepsNobodyAway) {
    const TestRoot root;
    InstanceLock lock(root.path() + "/absent");
    EXPECT_FALSE(lock.IsTaken());
    lock.Wait();
    EXPECT_FALSE(InstanceLock(root.path() + "/absent").IsTaken());
}

TEST(InstanceLock, ProgramThatOutlivesIt_DoesNotHoldIt) {
    const TestRoot root;
    pid_t child = -1;
    {
        const InstanceLock lock(root.path());
        char name[] = "sleep";
        char time[] = "60";
        char* const arguments[] = {name, time, nullptr};
        ASSERT_EQ(posix_spawnp(&child, "sleep", nullptr, nullptr, arguments, environ), 0);
    }
    EXPECT_FALSE(InstanceLock(root.path()).IsTaken());
    EXPECT_EQ(waitpid(child, nullptr, WNOHANG), 0) << "it still runs";
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

}  // namespace
