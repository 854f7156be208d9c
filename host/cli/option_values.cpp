#include "host/cli/option_values.h"

#include <fmt/format.h>

#include <cstddef>
#include <optional>
#include <utility>

#include "host/bus/message.h"
#include "host/kafka/settings.h"
#include "host/metrics/exporter.h"
#include "host/support/errors.h"
#include "host/support/option_text.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::uint64_t kLeastPage = std::uint64_t{256} << 10;  // bytes
constexpr std::uint64_t kMostPage = std::uint64_t{512} << 20;   // bytes
constexpr std::uint64_t kMostQueue = std::uint64_t{16} << 30;   // bytes
constexpr std::uint64_t kLeastSpool = std::uint64_t{16} << 20;  // bytes
constexpr std::size_t kLongestGroup = 249;                      // bytes
constexpr std::uint64_t kLeastRange = std::uint64_t{1} << 20;   // bytes
constexpr std::uint64_t kMostRange = std::uint64_t{4} << 30;    // bytes
constexpr std::uint64_t kMostRangeMessages = 10'000'000;
constexpr std::uint64_t kMostRangeSeconds = 86'400;
constexpr std::uint64_t kMaxRotation = 365 * 86'400;  // seconds

constexpr std::chrono::milliseconds kLeastMeasuring{100};
constexpr std::chrono::hours kMostMeasuring{1};

constexpr std::uint64_t kMostPartitions = 100'000;
constexpr std::uint64_t kMostReplicas = 100;
constexpr std::uint64_t kMaxRetention = std::uint64_t{3650} * 86'400;  // seconds

// A whole number of seconds, minutes, hours or days; nothing without a unit.
std::optional<std::chrono::seconds> timeWithUnit(const char* option, const std::string& text,
                                                 std::uint64_t most) {
  constexpr std::pair<char, int> kUnits[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86'400}};
  for (const auto& [unit, length] : kUnits) {
    if (!text.ends_with(unit)) continue;
    const auto seconds = static_cast<std::uint64_t>(length);
    const auto count = wholeNumber(option, text.substr(0, text.size() - 1), most / seconds);
    return std::chrono::seconds(count * seconds);
  }
  return std::nullopt;
}

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

std::string sourceName(const char* option, const std::string& text) {
  if (text.empty() || text.size() > kLongestSource || asPrintable(text) != text)
    refuse(option, text,
           fmt::format("a name of 1 to {} printable characters is needed", kLongestSource));
  return text;
}

std::uint64_t queueSize(const char* option, const std::string& text) {
  const std::uint64_t bytes = byteSize(option, text);
  if (bytes > kMostQueue) refuse(option, text, "at most 16G is possible");
  return bytes;
}

std::uint64_t spoolSize(const char* option, const std::string& text) {
  const std::uint64_t bytes = byteSize(option, text);
  if (bytes < kLeastSpool) refuse(option, text, "at least 16M is needed");
  return bytes;
}

std::string folderPath(const char* option, const std::string& text) {
  if (text.empty()) refuse(option, text, "a path is needed");
  return text;
}

CaptureSync captureSync(const char* option, const std::string& text) {
  if (text == "none") return CaptureSync::none;
  if (text == "file") return CaptureSync::file;
  if (text == "update") return CaptureSync::update;
  refuse(option, text, "none, file or update is needed");
}

std::string brokerList(const char* option, const std::string& text) {
  if (!kHasKafka) throw UsageError("tev-host was built without Kafka");
  if (!isBrokerList(text))
    refuse(option, text, "brokers are needed, like kafka1:9092,kafka2:9092 or [2001:db8::1]:9092");
  return text;
}

std::string topicName(const char* option, const std::string& text) {
  if (!isTopicName(text))
    refuse(option, text, "up to 241 letters, digits, dots, underscores and hyphens are needed");
  return text;
}

std::pair<std::string, std::string> kafkaSetting(const char* option, const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0)
    throw UsageError(fmt::format("{}: KEY=VALUE is needed, like linger.ms=50", option));
  return {text.substr(0, equals), text.substr(equals + 1)};
}

std::string groupName(const char* option, const std::string& text) {
  if (text.empty() || text.size() > kLongestGroup || asPrintable(text) != text)
    refuse(option, text,
           fmt::format("a name of 1 to {} printable characters is needed", kLongestGroup));
  return text;
}

ConsumeFormat consumeFormat(const char* option, const std::string& text) {
  if (text == "parquet") return ConsumeFormat::parquet;
  if (text == "jsonl") return ConsumeFormat::jsonl;
  if (text == "csv") return ConsumeFormat::csv;
  if (text == "capture") return ConsumeFormat::capture;
  refuse(option, text, "parquet, jsonl, csv or capture is needed");
}

std::uint64_t rangeSize(const char* option, const std::string& text) {
  const std::uint64_t bytes = byteSize(option, text);
  if (bytes < kLeastRange || bytes > kMostRange) refuse(option, text, "from 1M to 4G is possible");
  return bytes;
}

std::uint64_t rangeMessages(const char* option, const std::string& text) {
  return wholeNumber(option, text, kMostRangeMessages);
}

std::uint64_t rangeTime(const char* option, const std::string& text) {
  return wholeNumber(option, text, kMostRangeSeconds);
}

bool isForcedOut(const char* option, const std::string& text) {
  if (text == "range") return true;
  if (text == "none") return false;
  refuse(option, text, "none or range is needed");
}

std::uint64_t partitionCount(const char* option, const std::string& text) {
  return wholeNumber(option, text, kMostPartitions);
}

std::uint64_t replicaCount(const char* option, const std::string& text) {
  return wholeNumber(option, text, kMostReplicas);
}

std::chrono::milliseconds retentionTime(const char* option, const std::string& text) {
  try {
    if (const auto time = timeWithUnit(option, text, kMaxRetention)) return *time;
  } catch (const UsageError&) {  // it names the wrong text
  }
  refuse(option, text, "a time like 30m, 24h or 7d, of at most 3650 days, is needed");
}

void readRotation(const char* option, const std::string& text, CaptureOptions& capture) {
  constexpr char kWanted[] = "a size like 100M or 2G, or a time like 30m or 12h, is needed";
  try {
    if (const auto time = timeWithUnit(option, text, kMaxRotation))
      capture.rotate_time = *time;
    else
      capture.rotate_bytes = byteSize(option, text);
  } catch (const UsageError&) {  // it names the wrong text, or only sizes
    refuse(option, text, fmt::format("{}; a time is at most 365 days", kWanted));
  }
}

}  // namespace tev::host
