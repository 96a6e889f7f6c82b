// The real program, on a file system where the configuration and the trace log are a test's own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "child-process.h"
#include "service-fixture.h"

namespace {

using testing::ElementsAre;

constexpr const char* kProgram = BAYWARD_BIN_DIR "/bayward";
constexpr int kNoNamespace = 121;  // exit status of a child that could not have its own mounts

// Puts the root's folders in the place of the system's, for this process alone.
bool EnterRoot(const ServiceRoot& root) {
    const int own = geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER;
    return unshare(own) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount((root / "etc/opt").c_str(), "/etc/opt", nullptr, MS_BIND, nullptr) == 0 &&
           mount((root / "var/log").c_str(), "/var/log", nullptr, MS_BIND, nullptr) == 0;
}

// Starts the program with one argument (null: none) on a system that detaches no daemon and starts no thread;
// what it prints goes to ROOT/printed. Returns its wait status.
int RunRefused(const ServiceRoot& root, const char* argument) {
    const std::string printed = root / "printed";
    return RunInChild([&] {
        if (!EnterRoot(root)) {
            _exit(kNoNamespace);
        }
        const int out = open(printed.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        dup2(out, STDOUT_FILENO);
        dup2(out, STDERR_FILENO);
        setenv("LD_PRELOAD", BAYWARD_REFUSING_SYSTEM, 1);
        // For sanitized builds: the preloaded library stands before their run time, and the search for leaks
        // needs a thread.
        setenv("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0", 1);
        execl(kProgram, kProgram, argument, static_cast<char*>(nullptr));
        _exit(122);
    });
}

// In CI nothing may be missing; a machine that forbids namespaces skips, and says so.
bool LacksNamespace(int status) {
    if (!WIFEXITED(status) || WEXITSTATUS(status) != kNoNamespace) {
        return false;
    }
    const char* const ci = std::getenv("CI");
    EXPECT_FALSE(ci != nullptr && std::strcmp(ci, "true") == 0) << "no mount namespace";
    return true;
}

TEST(ProcessEntry, DaemonThatCannotDetach_EndsWith255AndWritesNothing) {
    const ServiceRoot root;
    for (const char* const argument : {static_cast<const char*>(nullptr), "--other"}) {
        const int status = RunRefused(root, argument);
        if (LacksNamespace(status)) {
            GTEST_SKIP() << "this machine forbids mount namespaces";
        }
        ASSERT_TRUE(WIFEXITED(status)) << root.Read("printed");
        EXPECT_EQ(WEXITSTATUS(status), 255);
        EXPECT_EQ(root.Read("printed"), "");
        EXPECT_FALSE(std::filesystem::exists(root / "var/log/bayward/bayward.log"));
    }
}

// A foreground run need not detach; its signal thread's failure leaves the service body as an exception.
TEST(ProcessEntry, ExceptionOutOfTheServiceBody_EndsWithZero) {
    const ServiceRoot root;
    const int status = RunRefused(root, "--stand-alone");
    if (LacksNamespace(status)) {
        GTEST_SKIP() << "this machine forbids mount namespaces";
    }
    EXPECT_EQ(status, 0);
    EXPECT_EQ(root.Read("printed"), "");
    EXPECT_THAT(root.LogLines(), ElementsAre("<VK0900> [TR] Initialize succeeded."));
}

}  // namespace
