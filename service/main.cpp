// Process entry: a foreground run with --stand-alone as the first argument, a daemon otherwise.
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "service.h"

namespace {
constexpr const char* kStandAloneOption = "--stand-alone";

// Whatever the launcher allowed: nobody but root writes what the service and its tools leave behind, some of
// which the service reads again.
void KeepOthersFromWriting() {
    umask(umask(S_IWGRP | S_IWOTH) | S_IWGRP | S_IWOTH);
}
// A core holds the controller's password. A limit of the core's size is none for a program that the kernel
// hands cores to.
void LeaveNoCore() {
    prctl(PR_SET_DUMPABLE, 0);
}
// An answer with hundreds of drives is needed for moments and the next one minutes later. Left to itself the
// allocator learns from the first one to keep such blocks. The threads work little and seldom at the same
// time: one heap does for all of them.
void KeepMemorySmall() {
    constexpr int kKibibyte = 1024;
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, 72 * kKibibyte);  // more than what parsing each resource takes
    mallopt(M_TRIM_THRESHOLD, 128 * kKibibyte);
    mallopt(M_TOP_PAD, 32 * kKibibyte);
}
}  // namespace

int main(int argc, char** argv) {
    KeepMemorySmall();
    KeepOthersFromWriting();
    LeaveNoCore();
    const bool standAlone = argc > 1 && std::strcmp(argv[1], kStandAloneOption) == 0;
    if (!standAlone && daemon(0, 0) != 0) {
        return -1;
    }
    try {
        ServiceMain(standAlone ? kStandAlone : kDaemon, nullptr);
    } catch (...) {
        // Whatever could be written has been written; the exit status is 0 in any case.
    }
    return 0;
}
