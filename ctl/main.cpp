// baywardctl: the administrator's tool.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <string>

#include "account-command.h"
#include "ctl-error.h"
#include "ilorest-helper.h"

namespace {

enum ExitStatus : int { kDone = 0, kFailed = 1, kWrongUsage = 2 };

int Complain(const std::string& sentence, ExitStatus status) {
    std::cerr << "baywardctl: " << sentence << '\n';
    return status;
}

// The helper module lies beside the executable.
std::string ExecutableFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
}

}  // namespace

int main(int argc, char** argv) {
    // A controller that hangs up in the middle of a log-in must not end the process.
    if (std::signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
        return Complain("The signal SIGPIPE cannot be ignored here.", kFailed);
    }
    CLI::App app{"Manages bayward, the service that watches this server's RAID storage.", "baywardctl"};
    app.set_version_flag("--version", "baywardctl " BAYWARD_VERSION, "Show the version and exit");
    app.set_help_flag("-h,--help", "Show this help and exit");
    app.require_subcommand(1);
    app.footer(
        "Examples:\n  baywardctl account set monitor\n  baywardctl account check --login\n\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage.");

    CLI::App* const account = app.add_subcommand(
        "account", "Manage the account with which the service logs in to the management controller");
    account->require_subcommand(1);
    account->footer(
        "Examples:\n  baywardctl account set monitor\n  baywardctl account check\n"
        "  baywardctl account remove\n\nAll of them need root.");

    CLI::App* const set =
        account->add_subcommand("set", "Register the account, or replace the one registered");
    std::string name;
    CLI::Option* const nameOption = set->add_option(
        "ACCOUNT", name, "Name on the controller, 1 to 40 bytes of UTF-8; asked for when left out");
    set->footer(
        "The password, 1 to 40 bytes of UTF-8, is asked for without echo; when standard input is no "
        "terminal,\n"
        "it is the first line of standard input.\n\n"
        "Examples:\n  baywardctl account set monitor\n  baywardctl account set monitor < password-file");

    CLI::App* const check =
        account->add_subcommand("check", "Show the registered account; never shows the password");
    bool login = false;
    check->add_flag("--login", login, "Also log in to the configured controller with it, and out again");
    check->footer("Examples:\n  baywardctl account check\n  baywardctl account check --login");

    CLI::App* const remove = account->add_subcommand("remove", "Remove the registered account");
    remove->footer("Example:\n  baywardctl account remove");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ExtrasError&) {
        // The arguments are not repeated: one of them may be a password.
        return Complain(
            "Unknown command or option, or an argument too many (passwords are asked for, they are no "
            "arguments); see \"baywardctl --help\".",
            kWrongUsage);
    } catch (const CLI::ParseError& failure) {
        if (failure.get_exit_code() == 0) {
            return app.exit(failure);  // help or version
        }
        return Complain("The command is incomplete or wrong; see \"baywardctl --help\".", kWrongUsage);
    }

    try {
        tovaserverutil::ShellRunner commands;
        RealTerminal terminal;
        AccountCommand command(
            {.root = {},
             .user = geteuid(),
             .commands = commands,
             .terminal = terminal,
             .out = std::cout,
             .makeBridge = [] { return std::make_unique<iLoRestHelper>(ExecutableFolder()); }});
        if (set->parsed()) {
            command.Set(nameOption->count() > 0 ? std::optional(name) : std::nullopt);
        } else if (check->parsed()) {
            command.Check(login);
        } else if (remove->parsed()) {
            command.Remove();
        }
        return kDone;
    } catch (const UsageError& failure) {
        return Complain(failure.what(), kWrongUsage);
    } catch (const std::exception& failure) {
        return Complain(failure.what(), kFailed);
    }
}
