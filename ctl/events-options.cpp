// The command line of "baywardctl events".
#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>

#include "commands.h"
#include "events-command.h"

void AddEventsCommand(CLI::App& app, const CtlDoors& doors, Action& chosen) {
    CLI::App* const events =
        app.add_subcommand("events", "Show every event that the service reports, or write a test event");
    struct Given {
        std::optional<std::string> test;
        std::optional<std::string> language;
        std::string format = "text";
    };
    const auto given = std::make_shared<Given>();
    CLI::Option* const test =
        events
            ->add_option("--test", given->test,
                         "Write this event to the system log as a test: identifier or number")
            ->option_text("ID");
    events
        ->add_option("--language", given->language,
                     "This language of the catalogue; otherwise all are shown, and a test uses the system's")
        ->option_text("NAME");
    events->add_option("--format", given->format, "text (default) or json")
        ->check(CLI::IsMember({"text", "json"}))
        ->excludes(test);
    events->footer(
        "A test event is formatted and written as the service does it: same identity, facility, priority "
        "and\n"
        "text, with TEST in the places of its parameters and \"[TEST]\" behind every line. It is written to "
        "the\n"
        "system log only, never to the service's trace log, and needs no root.\n\n"
        "Exit status: 0 done, 1 failed (no catalogue, or no log daemon for a test), 2 wrong usage.\n\n"
        "Examples:\n  baywardctl events\n  baywardctl events --format json\n  baywardctl events --test "
        "0xC0008151\n"
        "  baywardctl events --test VK0465 --language ja_JP");
    events->callback([&doors, &chosen, given] {
        chosen = [&doors, given] {
            EventsCommand command(doors);
            if (given->test) {
                command.Test(*given->test, given->language);
            } else {
                command.List(
                    given->format == "json" ? EventsCommand::Format::kJson : EventsCommand::Format::kText,
                    given->language);
            }
            return kDone;
        };
    });
}
