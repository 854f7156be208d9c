#include "host/support/option_text.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <string_view>
#include <system_error>

#include "host/support/errors.h"
#include "host/support/text.h"
#include "tev/logger.h"

namespace tev::host {
namespace {

constexpr double kMinSeconds = 1e-9;
constexpr double kMaxSeconds = 1e9;
constexpr double kMaxGbits = 100'000;
constexpr std::uint64_t kMaxBytes = std::uint64_t{1} << 40;

template <class Number>
std::optional<Number> parseNumber(std::string_view text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

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
