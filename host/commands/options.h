#pragma once

#include <string>

namespace tev::host {

// tev-host options: prints the options that the plug-in describes, for people or as the rows of a
// Markdown table. Returns the exit code; throws RunError.
int showOptions(const std::string& plugin_path, bool markdown);

}  // namespace tev::host
