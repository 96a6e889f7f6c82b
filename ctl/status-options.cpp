// The command line of "baywardctl status".
#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <string>

#include "commands.h"
#include "output-option.h"
#include "status-command.h"

namespace {

struct Options {
    StatusFormat format = StatusFormat::kTable;
    std::string file;
};

const std::map<std::string, StatusFormat> kFormats = {{"table", StatusFormat::kTable},
                                                      {"json", StatusFormat::kJson},
                                                      {"prometheus", StatusFormat::kPrometheus},
                                                      {"nagios", StatusFormat::kNagios},
                                                      {"html", StatusFormat::kHtml}};

}  // namespace

void AddStatusCommand(CLI::App& app, const CtlDoors& doors, Action& chosen) {
    CLI::App* const status = app.add_subcommand(
        "status", "Read the controller once and show every controller, logical drive and physical drive");
    const auto options = std::make_shared<Options>();
    status
        ->add_option_function<std::string>(
            "--format",
            [&chosen, options](const std::string& name) {
                options->format = kFormats.at(name);
                if (options->format == StatusFormat::kNagios) {
                    chosen.failed = kNagiosUnknown;
                    chosen.wrongUsage = kNagiosUnknown;
                    chosen.plugin = kNagiosName;
                }
            },
            "table (default), json, prometheus, nagios or html")
        ->check(CLI::IsMember(kFormats))
        ->type_name("FORMAT")
        ->trigger_on_parse();
    const CLI::Option& output = AddOutputOption(*status, options->file);
    status->footer(
        "Reads with the configuration and the registered account of the service, so it needs root. It opens "
        "a\n"
        "session of its own and closes it, also after Ctrl+C, which ends it within two seconds; a second "
        "one\n"
        "ends it at once. A state that began before the service was started,\n"
        "which the service does not report, is shown here.\n\n"
        "Examples:\n"
        "  baywardctl status\n"
        "  baywardctl status --format json | jq '.systems[].controllers[].drives[] | select(.level != "
        "\"ok\")'\n"
        "  baywardctl status --format prometheus --output /var/lib/prometheus/node-exporter/bayward.prom\n"
        "  baywardctl status --format html --output /var/www/html/storage.html\n\n"
        "Exit status: 0 done (whatever the state of the drives), 1 failed, 2 wrong usage, 128 and the number "
        "of\n"
        "the signal after a signal. With --format nagios: 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN, which is "
        "also\n"
        "any failure; the sentence that tells it goes to standard output, and what \"baywardctl health\" "
        "finds "
        "joins\n"
        "it: without the service, or one of its threads, the result is CRITICAL; a server without any\n"
        "storage controller is WARNING. With --format prometheus a failure still writes \"bayward_up 0\", "
        "and\n"
        "ends with status 1; the metrics of \"baywardctl health\" come first.");
    status->callback([&doors, &chosen, options, &output] {
        chosen = [&doors, options, &output] {
            RequireFileName(output, options->file, "status");
            return StatusCommand(doors, options->format, options->file).Run();
        };
    });
}
