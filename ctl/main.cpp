// baywardctl: the administrator's tool.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include "commands.h"
#include "controller-access.h"
#include "ctl-error.h"
#include "ilorest-helper.h"
#include "nagios-text.h"
#include "usage-fault.h"

namespace {

int Complain(const std::string& sentence, int status) {
    std::cerr << "baywardctl: " << sentence << '\n';
    return status;
}

// Whoever runs a plugin for Nagios reads standard output alone.
int Complain(const std::string& sentence, int status, const Action& action) {
    if (!action.plugin.empty()) {
        std::cout << PluginLine(action.plugin, status, PluginText(sentence), {});
    }
    return Complain(sentence, status);
}

// The helper module lies beside the executable. Throws CtlError.
std::string ExecutableFolder() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        throw CtlError("Where this program lies cannot be found out (/proc/self/exe: " + error.message() +
                       "); mount /proc.");
    }
    return program.parent_path().string();
}

std::unique_ptr<RestBridge> MakeBridge() {
    ConnectionSettings settings = ReadConnectionSettings({});
    settings.quiet = true;  // the sentence of a failure has its reason
    return std::make_unique<iLoRestHelper>(ExecutableFolder(), settings);
}

}  // namespace

int main(int argc, char** argv) {
    // A controller that hangs up in the middle of a log-in must not end the process.
    if (std::signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
        return Complain("The signal SIGPIPE cannot be ignored here.", kFailed);
    }
    CLI::App app{"Manages bayward, the service that watches this server's RAID storage.", "baywardctl"};
    tovaserverutil::ShellRunner commands;
    RealTerminal terminal;
    CtlDoors doors{.root = {},
                   .user = geteuid(),
                   .commands = commands,
                   .terminal = terminal,
                   .out = std::cout,
                   .messages = std::cerr,
                   .makeBridge = &MakeBridge,
                   .paint = Paint(WantsColour(STDOUT_FILENO)),
                   .progress = isatty(STDERR_FILENO) == 1 ? STDERR_FILENO : -1};
    Action chosen;
    app.set_version_flag("--version", "baywardctl " BAYWARD_VERSION, "Show the version and exit");
    app.set_help_flag("-h,--help", "Show this help and exit");
    app.require_subcommand(1);
    app.footer(
        "Examples:\n  baywardctl account set monitor\n  baywardctl account check --login\n  baywardctl "
        "config check\n"
        "  baywardctl events --test 0xC0008151\n\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage; commands that have others say so in their help.");

    AddAccountCommand(app, doors, chosen);
    AddConfigCommand(app, doors, chosen);
    AddEventsCommand(app, doors, chosen);
    AddHealthCommand(app, doors, chosen);
    AddStatusCommand(app, doors, chosen);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& failure) {
        if (failure.get_exit_code() == 0) {
            return app.exit(failure);  // help or version
        }
        return Complain(FaultOfUsage(app, failure), chosen.wrongUsage, chosen);
    }

    try {
        doors.programFolder = ExecutableFolder();  // only now: help needs none
        const int status = chosen.run();
        if (!std::cout.flush()) {
            return Complain("The results cannot be written to standard output.", chosen.failed);
        }
        return status;
    } catch (const UsageError& failure) {
        return Complain(failure.what(), chosen.wrongUsage, chosen);
    } catch (const std::exception& failure) {
        return Complain(failure.what(), chosen.failed, chosen);
    }
}
