#include "output-option.h"

#include <CLI/CLI.hpp>

#include "ctl-error.h"

const CLI::Option& AddOutputOption(CLI::App& command, std::string& file) {
    return *command
                .add_option("--output", file,
                            "Write to this file instead of standard output: its old content stays until the "
                            "new one is complete")
                ->type_name("FILE");
}

void RequireFileName(const CLI::Option& output, const std::string& file, const char* command) {
    if (output.count() != 0 && file.empty()) {
        throw UsageError(std::string("\"--output\" needs the name of a file; see \"baywardctl ") + command +
                         " --help\".");
    }
}
