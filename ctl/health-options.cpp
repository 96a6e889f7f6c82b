// The command line of "baywardctl health".
#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <string>

#include "commands.h"
#include "health-command.h"
#include "output-option.h"

namespace {

struct Options {
    HealthFormat format = HealthFormat::kTable;
    std::string file;
};

const std::map<std::string, HealthFormat> kFormats = {{"table", HealthFormat::kTable},
                                                      {"json", HealthFormat::kJson},
                                                      {"prometheus", HealthFormat::kPrometheus},
                                                      {"nagios", HealthFormat::kNagios}};

}  // namespace

void AddHealthCommand(CLI::App& app, const CtlDoors& doors, Action& chosen) {
    CLI::App* const health = app.add_subcommand(
        "health", "Tell whether the service runs, which of its threads live, and what they last told");
    const auto options = std::make_shared<Options>();
    health
        ->add_option_function<std::string>(
            "--format",
            [&chosen, options](const std::string& name) {
                options->format = kFormats.at(name);
                if (options->format == HealthFormat::kNagios) {
                    chosen.plugin = kHealthPluginName;
                }
            },
            "table (default), json, prometheus or nagios")
        ->check(CLI::IsMember(kFormats))
        ->type_name("FORMAT")
        ->trigger_on_parse();
    const CLI::Option& output = AddOutputOption(*health, options->file);
    health->footer(
        "Looks at the system and the trace log alone: it asks neither the service nor the controller, and "
        "needs "
        "root.\n"
        "A thread's outcome is the last line that tells whether its work succeeds: for the thread \"OS log\" "
        "its "
        "log-ins,\n"
        "for the others that they began, failed or broke off. A healthy thread may be silent for long; one "
        "that\n"
        "writes at every look at the controller may not, and three hours of silence are told.\n\n"
        "Examples:\n"
        "  baywardctl health\n"
        "  baywardctl health --format nagios\n"
        "  baywardctl health --format prometheus --output "
        "/var/lib/prometheus/node-exporter/bayward-service.prom\n\n"
        "Exit status, with every format: 0 all well, 1 something is off, 2 the service is not running, is "
        "stopped,\n"
        "or lacks a thread, 3 not to be found out (also wrong usage); for Nagios these are OK, WARNING, "
        "CRITICAL\n"
        "and UNKNOWN.");
    health->preparse_callback([&chosen](std::size_t) {
        chosen.failed = chosen.wrongUsage = static_cast<int>(HealthLevel::kUnknown);
    });
    health->callback([&doors, &chosen, options, &output] {
        chosen = [&doors, options, &output] {
            RequireFileName(output, options->file, "health");
            return HealthCommand(doors, options->format, options->file).Run();
        };
    });
}
