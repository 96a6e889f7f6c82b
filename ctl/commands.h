// The commands of baywardctl and what they share.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

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
    // With the configured connection settings; throws CtlError when they cannot be read.
    std::function<std::unique_ptr<RestBridge>()> makeBridge;
    Paint paint{false};              // of results
    std::string programFolder = {};  // where this program lies, beside the service and its catalogue
    int progress = -1;               // descriptor of a terminal for what goes on meanwhile; -1 for none
};

// What the command line asks for. A command whose statuses 1 and 2 are findings names others for its failures
// when its parsing begins (CLI::App::preparse_callback), so that wrong usage of it ends with them, too.
struct Action {
    // Returns the exit status. Throws UsageError or CtlError with the one sentence to show.
    std::function<int()> run;
    int failed = kFailed;          // status when it throws anything but UsageError
    int wrongUsage = kWrongUsage;  // status of UsageError and of a command line that cannot be parsed
    // Of a plugin for Nagios: the name under which standard output gets the sentence, too. Else empty.
    std::string plugin = {};

    Action& operator=(std::function<int()> work) {
        run = std::move(work);
        return *this;
    }
};

// Each adds its command, with options, help and examples. When the command line chooses it, parsing leaves
// what is to be done in `chosen`. The doors live until that is done.
void AddAccountCommand(CLI::App& app, const CtlDoors& doors, Action& chosen);
void AddConfigCommand(CLI::App& app, const CtlDoors& doors, Action& chosen);
void AddEventsCommand(CLI::App& app, const CtlDoors& doors, Action& chosen);
void AddHealthCommand(CLI::App& app, const CtlDoors& doors, Action& chosen);
void AddStatusCommand(CLI::App& app, const CtlDoors& doors, Action& chosen);
