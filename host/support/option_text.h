// Converts the texts of options to values. If a text is not a valid value, throws a UsageError,
// which names the option and the values that are possible.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace tev::host {

[[noreturn]] void refuse(const char* option, const std::string& text, const std::string& wanted);

// From 1 to `most`.
std::uint64_t wholeNumber(const char* option, const std::string& text, std::uint64_t most);

// A number of bytes. K, M and G after the number stand for powers of 1024.
std::uint64_t byteSize(const char* option, const std::string& text);

// Greater than 0; may be a fraction.
std::chrono::nanoseconds seconds(const char* option, const std::string& text);

// A moment in microseconds since the Unix epoch: a UTC time "2026-01-31T12:00:00Z" or seconds, both
// with or without a fraction.
std::uint64_t momentUsec(const char* option, const std::string& text);

// The speed of a link in Gbit/s; may be a fraction.
double gbits(const char* option, const std::string& text);

// Nothing when the text does not name a level.
std::optional<std::uint32_t> logLevelNamed(const std::string& text);

// KEY=VALUE.
std::pair<std::string, std::string> keyAndValue(const char* option, const std::string& text);

}  // namespace tev::host
