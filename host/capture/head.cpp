#include "host/capture/head.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

using nlohmann::json;

// The numbers of DeviceCounts and their names.
constexpr std::pair<std::uint64_t DeviceCounts::*, const char*> kCounts[] = {
    {&DeviceCounts::lost, "lost"},
    {&DeviceCounts::failed, "failed"},
    {&DeviceCounts::refused, "refused"},
    {&DeviceCounts::nothing_filled, "nothing_filled"},
    {&DeviceCounts::failed_otherwise, "failed_otherwise"},
    {&DeviceCounts::missed_by_overrun, "missed_by_overrun"},
    {&DeviceCounts::missed_by_late_wakeup, "missed_by_late_wakeup"},
    {&DeviceCounts::discarded, "discarded"},
    {&DeviceCounts::left_out, "left_out"},
    {&DeviceCounts::undelivered, "undelivered"},
    {&DeviceCounts::last_good_usec, "last_good_usec"},
};

// Calls `read` with the parsed text. Throws RunError for any error in the text.
template <class Read>
auto parsed(std::string_view text, const char* what, Read read) {
  try {
    return read(json::parse(text));
  } catch (const json::exception& error) {
    // The text begins with the name of the exception in brackets.
    std::string_view reason = error.what();
    if (const auto end = reason.find("] "); end != std::string_view::npos)
      reason.remove_prefix(end + 2);
    throw RunError(fmt::format("its {} is broken: {}", what, asPrintable(reason)));
  }
}

}  // namespace

std::string toJson(const CaptureHead& head) {
  json options = json::array();
  for (const auto& [key, value] : head.options) options.push_back({asUtf8(key), asUtf8(value)});
  json schemas = json::array();
  for (const std::string& text : head.schemas) schemas.push_back(text);
  json all = {{"version", head.version},
              {"schemas", schemas},
              {"schema_ids", head.schema_ids},
              {"source", asUtf8(head.source)},
              {"writer", asUtf8(head.writer)},
              {"plugin", asUtf8(head.plugin)},
              {"plugin_version", asUtf8(head.plugin_version)},
              {"options", options},
              {"host", asUtf8(head.host)},
              {"start_real_nsec", head.start.real},
              {"start_monotonic_nsec", head.start.monotonic},
              {"interval_usec", head.interval_usec},
              {"clear_on_read", head.clear_on_read},
              {"part", head.part}};
  if (!head.bus_source.empty()) {
    all["bus_source"] = asUtf8(head.bus_source);
    all["bus_run"] = head.bus_run;
  }
  return all.dump();
}

CaptureHead headFromJson(std::string_view text) {
  return parsed(text, "head", [](const json& all) {
    CaptureHead head;
    const json& number = all.at("version");
    if (!number.is_number_unsigned() || number == 0)
      throw RunError("its version is not a number from 1 on");
    const auto version = number.get<std::uint64_t>();
    if (version > kCaptureVersion)
      throw RunError(fmt::format("it has version {} of the format, and this program knows {}",
                                 version, kCaptureVersion));
    head.version = static_cast<std::uint32_t>(version);
    head.schemas = all.at("schemas").get<std::vector<std::string>>();
    head.schema_ids = all.value("schema_ids", CaptureHead().schema_ids);
    head.source = all.value("source", "");
    head.writer = all.value("writer", "");
    head.plugin = all.value("plugin", "");
    head.plugin_version = all.value("plugin_version", "");
    head.options = all.value("options", CaptureHead().options);
    head.host = all.value("host", "");
    head.start.real = all.value("start_real_nsec", std::uint64_t{0});
    head.start.monotonic = all.value("start_monotonic_nsec", std::uint64_t{0});
    head.interval_usec = all.value("interval_usec", std::uint64_t{0});
    head.clear_on_read = all.value("clear_on_read", false);
    head.part = all.value("part", std::uint32_t{0});
    head.bus_source = all.value("bus_source", "");
    head.bus_run = all.value("bus_run", "");
    return head;
  });
}

std::string toJson(const std::vector<DeviceCounts>& counts) {
  json devices = json::array();
  for (const DeviceCounts& one : counts) {
    json& device = devices.emplace_back(json{{"device", asUtf8(one.device)}});
    for (const auto& [count, name] : kCounts) device[name] = one.*count;
    device["last_failure"] = asUtf8(one.last_failure);
  }
  return devices.dump();
}

std::vector<DeviceCounts> countsFromJson(std::string_view text) {
  return parsed(text, "ledger", [](const json& devices) {
    std::vector<DeviceCounts> counts;
    for (const json& device : devices) {
      DeviceCounts& one = counts.emplace_back();
      one.device = device.at("device").get<std::string>();
      for (const auto& [count, name] : kCounts) one.*count = device.value(name, std::uint64_t{0});
      one.last_failure = device.value("last_failure", "");
    }
    return counts;
  });
}

DeviceCounts since(const DeviceCounts& before, DeviceCounts counts) {
  for (const auto& [count, name] : kCounts) {
    const bool is_number = count != &DeviceCounts::last_good_usec;
    if (is_number && counts.*count >= before.*count) counts.*count -= before.*count;
  }
  return counts;
}

void add(DeviceCounts& sum, const DeviceCounts& counts) {
  const std::uint64_t last_good = std::max(sum.last_good_usec, counts.last_good_usec);
  for (const auto& [count, name] : kCounts) sum.*count += counts.*count;
  sum.last_good_usec = last_good;
  if (!counts.last_failure.empty()) sum.last_failure = counts.last_failure;
}

}  // namespace tev::host
