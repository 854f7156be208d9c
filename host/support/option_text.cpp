#include "host/support/option_text.h"

#include <fmt/format.h>

#include <cmath>
#include <ctime>
#include <optional>
#include <string_view>
#include <system_error>

#include "host/support/errors.h"
#include "host/support/number_text.h"
#include "host/support/text.h"
#include "tev/logger.h"

namespace tev::host {
namespace {

constexpr double kMinSeconds = 1e-9;
constexpr double kMaxSeconds = 1e9;
constexpr double kMaxGbits = 100'000;
constexpr std::uint64_t kMaxBytes = std::uint64_t{1} << 40;

}  // namespace

void refuse(const char* option, const std::string& text, const std::string& wanted) {
  throw UsageError(
      fmt::format("{} {}: {}", option, text.empty() ? "''" : asPrintable(text), wanted));
}

std::uint64_t wholeNumber(const char* option, const std::string& text, std::uint64_t most) {
  const auto number = parseNumber<std::uint64_t>(text);
  if (!number || *number == 0 || *number > most)
    refuse(option, text, fmt::format("a whole number from 1 to {} is needed", most));
  return *number;
}

std::uint64_t byteSize(const char* option, const std::string& text) {
  std::string_view digits = text;
  int shift = 0;
  if (!digits.empty()) {
    constexpr std::string_view kSuffixes = "kKmMgG";
    const std::size_t suffix = kSuffixes.find(digits.back());
    if (suffix != std::string_view::npos) {
      shift = 10 * (1 + static_cast<int>(suffix) / 2);
      digits.remove_suffix(1);
    }
  }
  const auto number = parseNumber<std::uint64_t>(digits);
  if (!number || *number == 0 || *number > kMaxBytes >> shift)
    refuse(option, text, "a number of bytes is needed, like 65536, 64K, 1M or 2G, up to 1024G");
  return *number << shift;
}

std::chrono::nanoseconds seconds(const char* option, const std::string& text) {
  const auto number = parseNumber<double>(text);
  if (!number || !(*number >= kMinSeconds && *number <= kMaxSeconds))
    refuse(option, text, "a number of seconds is needed, from 1e-9 to 1e9");
  return std::chrono::nanoseconds(std::llround(*number * 1e9));
}

std::uint64_t momentUsec(const char* option, const std::string& text) {
  constexpr double kMaxMoment = 1e11;  // seconds, about the year 5138
  std::string_view seconds = text;     // or the fraction of one
  std::tm time{};
  double whole = 0;
  std::string fraction;
  if (const char* const rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &time)) {
    whole = static_cast<double>(timegm(&time));
    fraction = rest;
    const bool is_utc = fraction.ends_with('Z');
    if (is_utc) fraction.pop_back();
    const bool has_digits = fraction.size() > 1 && fraction.front() == '.' &&
                            fraction.find_first_not_of("0123456789", 1) == std::string::npos;
    fraction = is_utc && fraction.empty() ? "0" : is_utc && has_digits ? "0" + fraction : "";
    seconds = fraction;
  }
  const auto rest = parseNumber<double>(seconds);
  if (!rest || !(whole + *rest >= 0 && whole + *rest <= kMaxMoment))
    refuse(option, text, "a time is needed, like 2026-01-31T12:00:00Z or 1769860800 (seconds)");
  return static_cast<std::uint64_t>(std::llround((whole + *rest) * 1e6));
}

double gbits(const char* option, const std::string& text) {
  const auto number = parseNumber<double>(text);
  if (!number || !(*number > 0 && *number <= kMaxGbits))
    refuse(option, text,
           fmt::format("a number of Gbit/s is needed, above 0 and up to {:g}", kMaxGbits));
  return *number;
}

std::optional<std::uint32_t> logLevelNamed(const std::string& text) {
  if (text == "error") return TEV_LEVEL_ERROR;
  if (text == "warning") return TEV_LEVEL_WARNING;
  if (text == "info") return TEV_LEVEL_INFO;
  if (text == "debug") return TEV_LEVEL_DEBUG;
  const auto number = parseNumber<std::uint32_t>(text);
  return number && *number < TEV_LEVEL_UNSET ? number : std::nullopt;
}

std::pair<std::string, std::string> keyAndValue(const char* option, const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0)
    refuse(option, text, "KEY=VALUE is needed, like multipath-devices=rdma0,rdma1");
  return {text.substr(0, equals), text.substr(equals + 1)};
}

}  // namespace tev::host
