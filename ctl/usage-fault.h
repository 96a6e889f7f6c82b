// What is wrong with a command line, in one sentence.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

// Names the fault and the help that answers it. Of what was typed only option names and short words in the
// place of a known value are repeated: an argument may be a password.
std::string FaultOfUsage(const CLI::App& app, const CLI::ParseError& failure);
