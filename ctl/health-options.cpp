// The command line of "baywardctl health".
#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <string>

#include "commands.h"
#include "health-command.h"

namespace {

struct Options {
    std::string format = "table";
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
    health->add_option("--format", options->format, "table (default), json, prometheus or nagios")
        ->check(CLI::IsMember(kFormats))
        ->type_name("FORMAT");
    health
        ->add_option("--output", options->file,
                     "Write to this file instead of standard output: its old content stays until the new "
                     "one is complete")
        ->type_name("FILE");
    health->footer(
        "Looks at the system and the trace log alone: it asks neither the service nor the controller, and "
        "needs "
        "root.\n"
        "A thread's outcome is the last line that tells whether its work succeeds: for the thread \"OS log\" "
        "its "
        "log-ins,\n"
        "for the others that they began or broke off. A healthy thread may be silent for long.\n\n"
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
    health->callback([&doors, &chosen, options] {
        chosen = [&doors, options] {
            return HealthCommand(doors, kFormats.at(options->format), options->file).Run();
        };
    });
}
