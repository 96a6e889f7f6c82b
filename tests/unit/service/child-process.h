// Runs part of a test in a process of its own, for what changes a process for good.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

// The child's wait status: 0 when the action returned. Call it while no other thread runs.
template <typename Action>
int RunInChild(Action action) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        action();
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}
