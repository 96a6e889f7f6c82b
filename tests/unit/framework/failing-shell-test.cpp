// Memory that runs out while a command's output is read: this program leads read here (--wrap).
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <new>

#include "shell.h"

namespace {

thread_local bool memoryRunsOut = false;

}  // namespace

extern "C" {

ssize_t __real_read(int descriptor, void* buffer, size_t size);

// Throws in the place of the growing text, which follows right behind.
ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
    if (memoryRunsOut) {
        throw std::bad_alloc();
    }
    return __real_read(descriptor, buffer, size);
}

}  // extern "C"

namespace {

TEST(ShellRunner, MemoryRunsOut_EndsAndReapsTheCommand) {
    using namespace std::chrono_literals;
    const auto start = std::chrono::steady_clock::now();
    memoryRunsOut = true;
    EXPECT_THROW(tovaserverutil::ShellRunner().Capture("echo; exec sleep 60", 60s), std::bad_alloc);
    memoryRunsOut = false;
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

}  // namespace
