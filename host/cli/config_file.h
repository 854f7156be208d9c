// Configuration files: lines KEY = VALUE, where a key is the name of an option.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tev::host {

struct ConfigEntry {
  std::size_t line;
  std::string key;
  std::vector<std::string> values;  // at least one
};

// Throws UsageError with the file, the line and the reason.
std::vector<ConfigEntry> readConfigFile(const std::string& path);

// The error of a line of the file.
[[noreturn]] void refuseLine(const std::string& path, std::size_t line, const std::string& reason);

}  // namespace tev::host
