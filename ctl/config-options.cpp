// The command line of "baywardctl config".
#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>

#include "commands.h"
#include "config-command.h"

namespace {

using FileName = std::shared_ptr<std::optional<std::string>>;

FileName AddFile(CLI::App* command) {
    auto file = std::make_shared<std::optional<std::string>>();
    command->add_option("FILE", *file, "Configuration file; the service's own when left out");
    return file;
}

void AddCheck(CLI::App& config, const CtlDoors& doors, Action& chosen) {
    CLI::App* const check = config.add_subcommand(
        "check", "Say where the service reads the configuration in another way than it looks");
    const FileName file = AddFile(check);
    check->footer(
        "One finding a line: FILE:LINE: warning: or error: and a sentence. The account files, the CA file, "
        "the\n"
        "locale file and the log folder, which the service needs around its configuration, are looked at, "
        "too,\n"
        "and so is who besides root could change what the service reads and runs, or read the account "
        "files;\n"
        "what only root may look at is named on standard error. Nothing is changed, and no password is "
        "shown.\n\n"
        "Exit status: 0 nothing found, 1 warnings (the service runs, but not as the file seems to say),\n"
        "2 errors (the service does not run, or lacks something it needs), 3 not checked, also for wrong\n"
        "usage.\n\n"
        "Examples:\n  baywardctl config check\n  baywardctl config check new.conf && cp new.conf "
        "/etc/opt/tarn/bayward/bayward.conf");
    check->preparse_callback([&chosen](std::size_t) { chosen.failed = chosen.wrongUsage = kNotChecked; });
    check->callback(
        [&doors, &chosen, file] { chosen = [&doors, file] { return ConfigCommand(doors, *file).Check(); }; });
}

void AddShow(CLI::App& config, const CtlDoors& doors, Action& chosen) {
    CLI::App* const show =
        config.add_subcommand("show", "Show every setting: value, default, and where the value came from");
    const FileName file = AddFile(show);
    const auto format = std::make_shared<std::string>("table");
    show->add_option("--format", *format, "table (default) or json")->check(CLI::IsMember({"table", "json"}));
    show->footer(
        "Numbers are shown as the service takes them, after its limits; a password is shown as ***.\n\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage.\n\n"
        "Examples:\n  baywardctl config show\n  baywardctl config show --format json");
    show->callback([&doors, &chosen, file, format] {
        chosen = [&doors, file, format] {
            ConfigCommand(doors, *file)
                .Show(*format == "json" ? ConfigCommand::Format::kJson : ConfigCommand::Format::kTable);
            return kDone;
        };
    });
}

}  // namespace

void AddConfigCommand(CLI::App& app, const CtlDoors& doors, Action& chosen) {
    CLI::App* const config = app.add_subcommand("config", "Check and show the service's configuration");
    config->require_subcommand(1);
    config->footer("Examples:\n  baywardctl config check\n  baywardctl config show");
    AddCheck(*config, doors, chosen);
    AddShow(*config, doors, chosen);
}
