// Commands that are not run.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "shell.h"

// Answers every command with one result and records the commands. The result to begin with is that of a
// command that failed.
class FakeCommands : public tovaserverutil::CommandRunner {
public:
    tovaserverutil::CommandResult result{.started = true, .timedOut = false, .exitStatus = 1, .output = {}};
    std::vector<std::string> commands;
    std::chrono::milliseconds deadline{};  // of the last one

    tovaserverutil::CommandResult Capture(const std::string& command,
                                          std::chrono::milliseconds limit) override {
        commands.push_back(command);
        deadline = limit;
        return result;
    }
    tovaserverutil::CommandResult Execute(const std::string& command,
                                          std::chrono::milliseconds limit) override {
        return Capture(command, limit);
    }
};
