#include "collector/counter_parser.h"

#include <algorithm>
#include <boost/algorithm/string/trim.hpp>
#include <optional>
#include <set>
#include <string_view>

#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

using boost::algorithm::trim_copy;

constexpr std::string_view kPlaneWord = "plane ";
constexpr std::string_view kPlaneSuffix = ", plane ";

// The plane number at the end of a description; nothing when "plane " is missing or ambiguous.
std::optional<std::uint8_t> planeOf(const std::string& name, const std::string& description) {
  const auto word = description.rfind(kPlaneWord);
  if (word == std::string::npos) return std::nullopt;

  const std::string number = trim_copy(description.substr(word + kPlaneWord.size()));
  if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) {
    TEV_LOG_WARNING(
        "[multipath] Counter '%s' has ambiguous description: '%s'. expected to get plane number at "
        "the end",
        name.c_str(), description.c_str());
    return std::nullopt;
  }
  // Planes are 8-bit numbers: a larger one wraps.
  const auto plane = static_cast<std::uint8_t>(std::stoul(number));
  TEV_LOG_DEBUG("[multipath] Counter '%s' is per-plane counter for plane %u", name.c_str(), plane);
  return plane;
}

CounterMeta parseLine(const std::string& line, std::uint64_t index) {
  const auto comma = line.find(',');
  if (comma == std::string::npos) return {.name = line, .description = line, .index = index};

  CounterMeta counter{.name = trim_copy(line.substr(0, comma)),
                      .description = trim_copy(line.substr(comma + 1)),
                      .index = index};
  if (const auto plane = planeOf(counter.name, counter.description)) {
    counter.is_per_plane = true;
    counter.plane = *plane;
  }
  return counter;
}

std::string withoutPlaneSuffix(const std::string& description) {
  if (const auto suffix = description.rfind(kPlaneSuffix); suffix != std::string::npos)
    return description.substr(0, suffix);
  if (const auto word = description.rfind(kPlaneWord); word != std::string::npos)
    return trim_copy(description.substr(0, word));
  return description;
}

void count(SlotInfo& slot) {
  slot.num_device_counters = 0;
  slot.num_plane_counters = 0;
  slot.num_planes = 0;
  for (const auto& counter : slot.counters) {
    if (!counter.is_per_plane) {
      ++slot.num_device_counters;
      continue;
    }
    slot.num_planes = std::max(slot.num_planes, std::uint32_t{counter.plane} + 1);
    // Plane 0 defines the set of per-plane counters; those of other planes are not counted.
    if (counter.plane == 0) ++slot.num_plane_counters;
  }
}

void listNames(SlotInfo& slot) {
  slot.device_counter_names.reserve(slot.num_device_counters);
  slot.device_counter_descriptions.reserve(slot.num_device_counters);
  slot.plane_counter_names.reserve(slot.num_plane_counters);
  slot.plane_counter_descriptions.reserve(slot.num_plane_counters);

  std::set<std::string_view> taken;
  for (const auto& counter : slot.counters) {
    if (!counter.is_per_plane) {
      slot.device_counter_names.push_back(counter.name);
      slot.device_counter_descriptions.push_back(counter.description);
    } else if (taken.insert(counter.name).second) {
      slot.plane_counter_names.push_back(counter.name);
      slot.plane_counter_descriptions.push_back(withoutPlaneSuffix(counter.description));
    }
  }
}

}  // namespace

void parseCounters(SlotInfo& slot) {
  slot.counters.reserve(slot.counter_infos.size());
  for (std::uint64_t index = 0; index < slot.counter_infos.size(); ++index)
    slot.counters.push_back(parseLine(slot.counter_infos[index], index));
  count(slot);
  listNames(slot);
  TEV_LOG_INFO(
      "[multipath] Parsed %u counters: %u device counters, %u per-plane counters, %u planes",
      slot.num_counters, slot.num_device_counters, slot.num_plane_counters, slot.num_planes);
}

}  // namespace tev::events::multipath
