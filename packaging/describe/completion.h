// Completion scripts for shells.
#pragma once

#include <string>
#include <vector>

#include "packaging/describe/program_text.h"

namespace tev::describe {

// `keys` are the keys of the plug-in's options.
std::string bashCompletion(const ProgramText& text, const std::vector<std::string>& keys);
std::string zshCompletion(const ProgramText& text, const std::vector<std::string>& keys);

}  // namespace tev::describe
