#include "shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>

#include "test-io.h"
#include "test-root.h"

namespace {

using tovaserverutil::CommandResult;
using tovaserverutil::CommandRunner;
using tovaserverutil::ShellRunner;
using namespace std::chrono_literals;

constexpr auto kLong = 60s;
using Steady = std::chrono::steady_clock;

// Gone, or a zombie that waits for whoever adopted it.
bool HasEnded(int pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string number;
    std::string name;
    std::string state;
    in >> number >> name >> state;
    return !in || state == "Z" || state == "X";
}

bool EndsSoon(int pid) {
    for (int wait = 0; wait < 500 && !HasEnded(pid); ++wait) {
        std::this_thread::sleep_for(20ms);
    }
    return HasEnded(pid);
}

TEST(ShellRunner, Capture_ReturnsOutputAndStatus) {
    ShellRunner runner;
    const CommandResult result = runner.Capture("echo one; echo two", kLong);
    EXPECT_TRUE(result.started);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_TRUE(result.Succeeded());
    EXPECT_EQ(result.output, "one\ntwo\n");
}

TEST(ShellRunner, CommandThatFails_KeepsOutputAndStatus) {
    const CommandResult result = ShellRunner().Capture("echo partial; exit 3", kLong);
    EXPECT_TRUE(result.started);
    EXPECT_EQ(result.exitStatus, 3);
    EXPECT_FALSE(result.Succeeded());
    EXPECT_EQ(result.output, "partial\n");
}

TEST(ShellRunner, MissingProgram_Gives127) {
    const CommandResult result = ShellRunner().Capture("/no/such/program 2>/dev/null", kLong);
    EXPECT_TRUE(result.started);
    EXPECT_EQ(result.exitStatus, 127);
}

TEST(ShellRunner, EndedBySignal_GivesMinusOne) {
    const CommandResult result = ShellRunner().Capture("kill -9 $$", kLong);
    EXPECT_TRUE(result.started);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitStatus, -1);
    EXPECT_FALSE(result.Succeeded());
}

TEST(ShellRunner, Execute_RunsAndReturnsTheStatus) {
    const TestRoot root;
    const CommandResult result = ShellRunner().Execute("echo done > " + root.path() + "/out; exit 4", kLong);
    EXPECT_EQ(result.exitStatus, 4);
    EXPECT_EQ(root.Read("out"), "done\n");
    EXPECT_TRUE(result.output.empty());
}

TEST(ShellRunner, Execute_PastTheDeadlineIsEnded) {
    const auto start = Steady::now();
    const CommandResult result = ShellRunner().Execute("sleep 60", 100ms);
    EXPECT_TRUE(result.started);
    EXPECT_TRUE(result.timedOut);
    EXPECT_FALSE(result.Succeeded());
    EXPECT_LT(Steady::now() - start, 20s);
}

// The files are sparse.
TEST(ShellRunner, FileBeyondTheLimit_CannotBeWritten) {
    const TestRoot root;
    const std::string file = root.path() + "/file";
    const std::string limit = std::to_string(CommandRunner::kMaxFile);
    const std::string write = "head -c 1 /dev/zero | dd bs=1 status=none of=" + file + " seek=";
    EXPECT_EQ(ShellRunner().Execute(write + std::to_string(CommandRunner::kMaxFile - 1), kLong).exitStatus,
              0);
    EXPECT_EQ(std::filesystem::file_size(file), CommandRunner::kMaxFile);
    EXPECT_NE(ShellRunner().Execute(write + limit, kLong).exitStatus, 0);
    EXPECT_EQ(std::filesystem::file_size(file), CommandRunner::kMaxFile);
    const CommandResult result =
        ShellRunner().Capture("truncate -s 1T " + file + " 2>/dev/null; echo $?", kLong);
    EXPECT_EQ(result.output, "1\n") << "it was told, not killed";
    EXPECT_EQ(std::filesystem::file_size(file), CommandRunner::kMaxFile);
}

TEST(ShellRunner, OutputOfExactlyTheLimit_IsWhole) {
    const CommandResult result = ShellRunner().Capture("head -c 1048576 /dev/zero", kLong);
    EXPECT_TRUE(result.Succeeded());
    EXPECT_EQ(result.output.size(), CommandRunner::kMaxOutput);
}

TEST(ShellRunner, OutputBeyondTheLimit_IsReadAndDropped) {
    const CommandResult result =
        ShellRunner().Capture("echo first; head -c 50000000 /dev/zero; exit 5", kLong);
    EXPECT_EQ(result.exitStatus, 5);  // the command got rid of all of it
    EXPECT_EQ(result.output.size(), CommandRunner::kMaxOutput);
    EXPECT_THAT(result.output, testing::StartsWith("first\n"));
}

TEST(ShellRunner, NulBytesInTheOutput_AreKept) {
    EXPECT_EQ(ShellRunner().Capture("printf 'a\\000b'", kLong).output, std::string("a\0b", 3));
}

TEST(ShellRunner, PastTheDeadline_TheWholeGroupIsEnded) {
    const auto start = Steady::now();
    const CommandResult result = ShellRunner().Capture("sleep 600 & echo $!; wait", 300ms);
    EXPECT_TRUE(result.timedOut);
    EXPECT_FALSE(result.Succeeded());
    EXPECT_LT(Steady::now() - start, 20s);
    ASSERT_FALSE(result.output.empty());
    EXPECT_TRUE(EndsSoon(std::stoi(result.output)));
}

TEST(ShellRunner, ProgramThatTheShellWraps_HasTimeToCleanUpPastTheDeadline) {
    const TestRoot folder;
    const std::string file = folder.path() + "/cleaned";
    const CommandResult result =
        ShellRunner().Execute("sh -c 'trap \"sleep 0.3; echo yes > " + file +
                                  "; exit 0\" TERM; while :; do sleep 0.05; done'; true",
                              300ms);
    EXPECT_TRUE(result.timedOut);
    EXPECT_TRUE(std::ifstream(file).good());
}

TEST(ShellRunner, CommandThatIgnoresSigterm_IsKilled) {
    const auto start = Steady::now();
    const CommandResult result =
        ShellRunner().Capture("trap '' TERM; echo $$; while :; do sleep 1; done", 200ms);
    EXPECT_TRUE(result.timedOut);
    EXPECT_EQ(result.exitStatus, -1);
    EXPECT_LT(Steady::now() - start, 20s);
    EXPECT_TRUE(EndsSoon(std::stoi(result.output)));
}

TEST(ShellRunner, EndlessOutput_StopsAtTheDeadline) {
    const auto start = Steady::now();
    const CommandResult result = ShellRunner().Capture("yes", 300ms);
    EXPECT_TRUE(result.timedOut);
    EXPECT_LE(result.output.size(), CommandRunner::kMaxOutput);
    EXPECT_LT(Steady::now() - start, 20s);
}

TEST(ShellRunner, DescendantThatKeepsTheOutputOpen_DoesNotHoldTheCallerUp) {
    const auto start = Steady::now();
    const CommandResult result = ShellRunner().Capture("sleep 60 & echo $!", kLong);
    EXPECT_TRUE(result.Succeeded());
    EXPECT_LT(Steady::now() - start, 20s);
    const int descendant = std::stoi(result.output);
    EXPECT_FALSE(HasEnded(descendant));
    kill(descendant, SIGKILL);
}

TEST(ShellRunner, DescendantThatWritesOnForEver_DoesNotHoldTheCallerUp) {
    const auto start = Steady::now();
    const CommandResult result = ShellRunner().Capture("yes & exit 0", kLong);
    EXPECT_TRUE(result.Succeeded());
    EXPECT_LE(result.output.size(), CommandRunner::kMaxOutput);
    EXPECT_LT(Steady::now() - start, 20s);
}

TEST(ShellRunner, OutputWrittenJustBeforeTheEnd_IsNotLost) {
    for (int round = 0; round < 20; ++round) {
        const CommandResult result = ShellRunner().Capture("head -c 60000 /dev/zero", kLong);
        ASSERT_EQ(result.output.size(), 60000u);
    }
}

TEST(ShellRunner, Child_HasAnEmptySignalMaskAndIgnoresOnlyTooLargeFiles) {
    const IgnoreSignal pipe(SIGPIPE);
    sigset_t blocked;
    sigset_t previous;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigaddset(&blocked, SIGCHLD);
    pthread_sigmask(SIG_BLOCK, &blocked, &previous);
    const std::string masks =
        ShellRunner().Capture("sed -nE 's/^Sig(Blk|Ign):\\t//p' /proc/self/status", kLong).output;
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    ASSERT_EQ(masks.size(), 34u) << masks;
    constexpr std::uint64_t kReservedByTheLibrary =
        0x180000000;  // signals 32 and 33, which no program can set
    EXPECT_EQ(std::stoull(masks.substr(0, 16), nullptr, 16), 0u);
    EXPECT_EQ(std::stoull(masks.substr(17, 16), nullptr, 16) & ~kReservedByTheLibrary, 1u << (SIGXFSZ - 1));
}

TEST(ShellRunner, Child_ReadsFromNullAndLeadsAGroupOfItsOwn) {
    EXPECT_EQ(ShellRunner().Capture("readlink /proc/self/fd/0", kLong).output, "/dev/null\n");
    EXPECT_EQ(ShellRunner().Capture("cat", kLong).output, "");
    const CommandResult group = ShellRunner().Capture("echo $$; cut -d' ' -f5 /proc/$$/stat", kLong);
    const std::size_t half = group.output.size() / 2;
    EXPECT_EQ(group.output.substr(0, half), group.output.substr(half));
    EXPECT_NE(std::stoi(group.output), getpgrp());
}

TEST(ShellRunner, Child_InheritsNoDescriptorOfTheService) {
    const tovaserverutil::Event event;
    const std::string number = std::to_string(event.ReadEnd());
    EXPECT_EQ(ShellRunner().Capture("test -e /proc/self/fd/" + number, kLong).exitStatus, 1);
}

TEST(ShellRunner, EndedCommands_LeaveNoZombies) {
    ShellRunner runner;
    runner.Capture("true", kLong);
    runner.Execute("true", kLong);
    runner.Capture("sleep 60", 50ms);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(ShellRunner, CallerWithoutStandardStreams_StillCaptures) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        const CommandResult result = ShellRunner().Capture("cat; echo text", kLong);
        _exit(result.Succeeded() && result.output == "text\n" ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

class Variable {
public:
    Variable(const char* name, const std::string& value) : m_name(name) {
        if (const char* const before = std::getenv(name)) {
            m_before = before;
        }
        setenv(name, value.c_str(), 1);
    }
    ~Variable() { m_before ? setenv(m_name, m_before->c_str(), 1) : unsetenv(m_name); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* m_name;
    std::optional<std::string> m_before;
};

TEST(ShellRunner, RelativeFoldersOnThePath_AreNoPlacesForTools) {
    const TestRoot folder;
    folder.Write("dmidecode", "#!/bin/sh\necho planted\n");
    folder.Write("bin/dmidecode", "#!/bin/sh\necho installed\n");
    for (const char* const program : {"/dmidecode", "/bin/dmidecode"}) {
        std::filesystem::permissions(folder.path() + program, std::filesystem::perms::owner_all);
    }
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    const Variable path("PATH", ".::bin:" + folder.path() + "/bin");
    const std::string output = ShellRunner().Capture("dmidecode", kLong).output;
    std::filesystem::current_path(before);
    EXPECT_EQ(output, "installed\n");
}

TEST(ShellRunner, EmptyPath_IsTheSystems) {
    const Variable path("PATH", "");
    EXPECT_EQ(ShellRunner().Capture("echo $PATH", kLong).output,
              "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\n");
}

TEST(ShellRunner, VariablesThatChangeWhatAShellDoes_DoNotReachIt) {
    const Variable function("BASH_FUNC_unzip%%", "() { echo planted; }");
    const Variable options("UNZIPOPT", "-:");
    const Variable start("ENV", "/tmp/planted");
    const Variable other("BAYWARD_TEST_VARIABLE", "kept");
    const std::string variables = ShellRunner().Capture("env", kLong).output;
    EXPECT_THAT(variables, testing::Not(testing::HasSubstr("planted")));
    EXPECT_THAT(variables, testing::Not(testing::HasSubstr("UNZIPOPT")));
    EXPECT_THAT(variables, testing::HasSubstr("BAYWARD_TEST_VARIABLE=kept\n"));
}

// With SIGCHLD ignored the kernel keeps no exit status; the call must return all the same.
TEST(ShellRunner, ChildrenReapedByTheKernel_CountAsFailed) {
    const IgnoreSignal child(SIGCHLD);
    const CommandResult result = ShellRunner().Capture("echo text", kLong);
    EXPECT_TRUE(result.started);
    EXPECT_EQ(result.exitStatus, -1);
}

TEST(ShellRunner, NoDescriptorLeft_IsNotStarted) {
    // Once with descriptors: the sanitizer's first look at a class needs one of its own.
    ASSERT_TRUE(ShellRunner().Capture("echo text", kLong).started);
    const DescriptorLimit limit(0);
    const CommandResult result = ShellRunner().Capture("echo text", kLong);
    EXPECT_FALSE(result.started);
    EXPECT_FALSE(result.Succeeded());
}

}  // namespace
