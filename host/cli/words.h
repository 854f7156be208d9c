// What the words of a command line must be before the parser reads them.
#pragma once

#include <CLI/CLI.hpp>
#include <span>

namespace tev::host {

// Refuses what the parser would accept or would not explain: an unknown command, an option without
// its value and a flag with a value. `words` are without the program's name. Throws UsageError.
void refuseOddWords(std::span<const char* const> words, const CLI::App& app);

}  // namespace tev::host
