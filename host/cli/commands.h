// The table of commands.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "host/cli/command_line.h"
#include "host/cli/given.h"

namespace tev::host {

// Describes the program and all commands with their options. The app keeps references to `line` and
// `given`.
void describeProgram(CLI::App& app, CommandLine& line, Given& given);

// Nothing when the name is not that of a command.
std::optional<Command> commandNamed(std::string_view name);

// "run, top or check".
std::string commandNames();

}  // namespace tev::host
