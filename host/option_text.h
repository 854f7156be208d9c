// Values of options, out of their texts. What is no such value throws a UsageError, which names the
// option and what it needs.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "host/run_options.h"

namespace tev::host {

[[noreturn]] void refuse(const char* option, const std::string& text, const std::string& wanted);

// From 1 to `most`.
std::uint64_t wholeNumber(const char* option, const std::string& text, std::uint64_t most);

// A number of bytes, of which K, M and G behind it make more.
std::uint64_t byteSize(const char* option, const std::string& text);

// Above 0; fractions are fine.
std::chrono::nanoseconds seconds(const char* option, const std::string& text);

Format formatNamed(const char* option, const std::string& text);

// Nothing for a text that names no level.
std::optional<std::uint32_t> logLevelNamed(const std::string& text);

// KEY=VALUE.
std::pair<std::string, std::string> keyAndValue(const char* option, const std::string& text);

}  // namespace tev::host
