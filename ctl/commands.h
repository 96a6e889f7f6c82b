// The commands of baywardctl and what they share.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include "colour.h"
#include "rest-bridge.h"
#include "shell.h"
#include "terminal.h"

namespace CLI {
class App;
}

// What a command came to. The first three are those of every command; commands for monitoring systems have
// their own and say so in their help.
enum ExitStatus : int { kDone = 0, kFailed = 1, kWrongUsage = 2 };

// The commands' doors to the outside, all borrowed.
struct CtlDoors {
    std::string root;  // goes before every absolute path; empty in production
    uid_t user;        // who runs the command
    tovaserverutil::CommandRunner& commands;
    Terminal& terminal;
    std::ostream& out;       // results
    std::ostream& messages;  // everything else
    std::function<std::unique_ptr<RestBridge>()> makeBridge;
    Paint paint{false};  // of results
};

// What the command line asks for; returns the exit status. Throws UsageError or CtlError with the one
// sentence to show.
using Action = std::function<int()>;

// Each adds its command, with options, help and examples. When the command line chooses it, parsing leaves
// what is to be done in `chosen`. The doors live until that is done.
void AddAccountCommand(CLI::App& app, const CtlDoors& doors, Action& chosen);
