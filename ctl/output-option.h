// The option that puts a command's result into a file.
#pragma once

#include <string>

namespace CLI {
class App;
class Option;
}  // namespace CLI

// Adds "--output FILE", which sets `file`.
const CLI::Option& AddOutputOption(CLI::App& command, std::string& file);

// Throws UsageError when the option was given without a name; `command` is its help's.
void RequireFileName(const CLI::Option& output, const std::string& file, const char* command);
