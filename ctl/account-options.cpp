// The command line of "baywardctl account".
#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>

#include "account-command.h"
#include "commands.h"

void AddAccountCommand(CLI::App& app, const CtlDoors& doors, Action& chosen) {
    CLI::App* const account = app.add_subcommand(
        "account", "Manage the account with which the service logs in to the management controller");
    account->require_subcommand(1);
    account->footer(
        "Examples:\n  baywardctl account set monitor\n  baywardctl account check\n"
        "  baywardctl account remove\n\nAll of them need root.");

    CLI::App* const set =
        account->add_subcommand("set", "Register the account, or replace the one registered");
    const auto name = std::make_shared<std::optional<std::string>>();
    set->add_option("ACCOUNT", *name,
                    "Name on the controller, 1 to 40 bytes of UTF-8; asked for when left out");
    set->footer(
        "The password, 1 to 40 bytes of UTF-8, is asked for without echo; when standard input is no "
        "terminal,\n"
        "it is the first line of standard input.\n\n"
        "Examples:\n  baywardctl account set monitor\n  baywardctl account set monitor < password-file");
    set->callback([&doors, &chosen, name] {
        chosen = [&doors, name] {
            AccountCommand(doors).Set(*name);
            return kDone;
        };
    });

    CLI::App* const check =
        account->add_subcommand("check", "Show the registered account; never shows the password");
    const auto login = std::make_shared<bool>(false);
    check->add_flag("--login", *login, "Also log in to the configured controller with it, and out again");
    check->footer("Examples:\n  baywardctl account check\n  baywardctl account check --login");
    check->callback([&doors, &chosen, login] {
        chosen = [&doors, login] {
            AccountCommand(doors).Check(*login);
            return kDone;
        };
    });

    CLI::App* const remove = account->add_subcommand("remove", "Remove the registered account");
    remove->footer("Example:\n  baywardctl account remove");
    remove->callback([&doors, &chosen] {
        chosen = [&doors] {
            AccountCommand(doors).Remove();
            return kDone;
        };
    });
}
