// Runs of the tool at the same time, and runs that are killed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "account-file.h"
#include "account-root.h"

namespace {

class AccountRaceTest : public AccountRoot {
protected:
    // A process that registers these accounts one after the other, name and password the same; its exit
    // status is 0 unless one of them fails.
    pid_t Writer(const std::vector<std::string>& accounts, int times) {
        const pid_t child = fork();
        if (child == 0) {
            setpgid(0, 0);  // as a job of its own it can be stopped
            try {
                for (int i = 0; i < times; ++i) {
                    const std::string& account = accounts[static_cast<std::size_t>(i) % accounts.size()];
                    WriteAccountFiles(root.path(), kUuid, account, account);
                }
            } catch (const std::exception&) {
                _exit(1);
            }
            _exit(0);
        }
        setpgid(child, child);
        return child;
    }
    static int StatusOf(pid_t child) {
        int status = 0;
        waitpid(child, &status, 0);
        return status;
    }
};

TEST_F(AccountRaceTest, WritersAtTheSameTime_AllSucceedAndLeaveOnePair) {
    for (int round = 0; round < 10; ++round) {
        const pid_t one = Writer({"one"}, 10);
        const pid_t two = Writer({"two"}, 10);
        EXPECT_EQ(StatusOf(one), 0);
        EXPECT_EQ(StatusOf(two), 0);
        EXPECT_NE(Record(0), "");
        EXPECT_EQ(Record(0), Record(1));
        EXPECT_EQ(FilesInEtc(), 2U);
    }
}

TEST_F(AccountRaceTest, WriterAndRemover_WaitForTheLock) {
    const int held = open((root / "run/baywardctl.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    std::atomic<int> done{0};
    std::thread waiting([&] {
        WriteAccountFiles(root.path(), kUuid, "user", "secret");
        ++done;
        RemoveAccountFiles(root.path());
        ++done;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(done, 0);
    EXPECT_EQ(FilesInEtc(), 0U);
    close(held);
    waiting.join();
    EXPECT_EQ(done, 2);
    EXPECT_EQ(FilesInEtc(), 0U);
}

TEST_F(AccountRaceTest, SignalInTheMiddle_LeavesOnePairAndNothingElse) {
    for (const int ending : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
        for (int round = 0; round < 15; ++round) {
            WriteAccountFiles(root.path(), kUuid, "first", "first");
            const pid_t child = Writer({"one", "two"}, 1000000);
            std::this_thread::sleep_for(std::chrono::microseconds(2000 + 137 * round));
            kill(child, ending);
            const int status = StatusOf(child);
            ASSERT_TRUE(WIFSIGNALED(status)) << status;
            EXPECT_EQ(WTERMSIG(status), ending);
            EXPECT_NE(Record(0), "");
            EXPECT_EQ(Record(0), Record(1)) << ending;
            EXPECT_EQ(FilesInEtc(), 2U) << ending;
        }
    }
}

TEST_F(AccountRaceTest, StopSignalInTheMiddle_LeavesOnePairAndTheLockFree) {
    WriteAccountFiles(root.path(), kUuid, "user", "user");
    for (int round = 0; round < 15; ++round) {
        const pid_t child = Writer({"one", "two"}, 1000000);
        std::this_thread::sleep_for(std::chrono::microseconds(3000 + 137 * round));
        kill(child, SIGTSTP);  // Ctrl+Z
        int status = 0;
        waitpid(child, &status, WUNTRACED);
        ASSERT_TRUE(WIFSTOPPED(status));
        EXPECT_EQ(Record(0), Record(1));
        EXPECT_EQ(FilesInEtc(), 2U);
        WriteAccountFiles(root.path(), kUuid, "user", "user");
        kill(child, SIGKILL);
        StatusOf(child);
    }
}

}  // namespace
