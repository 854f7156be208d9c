#include "host/cli/option_values.h"

#include <fmt/format.h>

#include <string_view>
#include <utility>

#include "host/metrics/exporter.h"
#include "host/support/errors.h"
#include "host/support/option_text.h"

namespace tev::host {
namespace {

constexpr std::uint64_t kLeastPage = std::uint64_t{256} << 10;  // bytes
constexpr std::uint64_t kMostPage = std::uint64_t{512} << 20;   // bytes
constexpr std::uint64_t kMaxRotation = 365 * 86'400;            // seconds

constexpr std::chrono::milliseconds kLeastMeasuring{100};
constexpr std::chrono::hours kMostMeasuring{1};

}  // namespace

const OutputFormat* formatNamed(const char* option, const std::string& text) {
  const OutputFormat* const format = findOutputFormat(text);
  if (!format) refuse(option, text, outputFormatNames() + " is needed");
  return format;
}

bool isJson(const char* option, const std::string& text) {
  if (text != "text" && text != "json") refuse(option, text, "text or json is needed");
  return text == "json";
}

std::chrono::nanoseconds measuringTime(const char* option, const std::string& text) {
  try {
    const auto time = seconds(option, text);
    if (time >= kLeastMeasuring && time <= kMostMeasuring) return time;
  } catch (const UsageError&) {  // it names another range
  }
  refuse(option, text, "a number of seconds is needed, from 0.1 to 3600");
}

SymbolSet symbolSet(const char* option, const std::string& text) {
  const auto set = symbolSetNamed(text);
  if (!set) refuse(option, text, symbolSetNames() + " is needed");
  return *set;
}

double playSpeed(const char* option, const std::string& text) {
  const double speed = std::chrono::duration<double>(seconds(option, text)).count();
  if (speed < 0.01 || speed > 10'000)
    refuse(option, text, "a number is needed, from 0.01 to 10000");
  return speed;
}

std::uint64_t pageSize(const char* option, const std::string& text) {
  const std::uint64_t bytes = byteSize(option, text);
  if (bytes < kLeastPage || bytes > kMostPage)
    refuse(option, text, "from 256K to 512M is possible");
  return bytes;
}

ListenAddress metricsAddress(const char* option, const std::string& text) {
  if (!Exporter::isBuilt()) throw UsageError("tev-host was built without Prometheus");
  const auto address = listenAddressFrom(text);
  if (!address)
    refuse(option, text,
           "a port, or ADDRESS:PORT with an IP address, is needed: 9464, 192.0.2.1:9464 or "
           "[::1]:9464");
  return *address;
}

CaptureSync captureSync(const char* option, const std::string& text) {
  if (text == "none") return CaptureSync::none;
  if (text == "file") return CaptureSync::file;
  if (text == "update") return CaptureSync::update;
  refuse(option, text, "none, file or update is needed");
}

// A size ("100M"), or a time ("1h").
void readRotation(const char* option, const std::string& text, CaptureOptions& capture) {
  constexpr std::pair<char, int> kUnits[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86'400}};
  constexpr char kWanted[] = "a size like 100M or 2G, or a time like 30m or 12h, is needed";
  try {
    for (const auto& [unit, length] : kUnits) {
      if (!text.ends_with(unit)) continue;
      const auto most = kMaxRotation / static_cast<std::uint64_t>(length);
      const auto count = wholeNumber(option, text.substr(0, text.size() - 1), most);
      capture.rotate_time = std::chrono::seconds(count * static_cast<std::uint64_t>(length));
      return;
    }
    capture.rotate_bytes = byteSize(option, text);
  } catch (const UsageError&) {  // it names the wrong text, or only sizes
    refuse(option, text, fmt::format("{}; a time is at most 365 days", kWanted));
  }
}

}  // namespace tev::host
