#include "host/fleet/fleet_counts.h"

#include <fmt/format.h>

#include <numeric>
#include <vector>

#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr const char* kNames[kCauses] = {"format",        "unknown schema", "broken schema",
                                         "broken events", "spread",         "clock"};

}  // namespace

const char* nameOf(Cause cause) {
  return kNames[static_cast<std::size_t>(cause)];
}

std::uint64_t FleetCounts::allRejected() const {
  return std::accumulate(rejected.begin(), rejected.end(), std::uint64_t{0});
}

FleetCounts& FleetCounts::operator+=(const FleetCounts& other) {
  messages += other.messages;
  events += other.events;
  bytes += other.bytes;
  gaps += other.gaps;
  lost += other.lost;
  unseen += other.unseen;
  repeats += other.repeats;
  repeated += other.repeated;
  missing_offsets += other.missing_offsets;
  for (std::size_t i = 0; i < kCauses; ++i) rejected[i] += other.rejected[i];
  return *this;
}

std::string faultsText(const FleetCounts& counts) {
  std::vector<std::string> parts;
  if (counts.gaps > 0)
    parts.push_back(fmt::format("{} with {}", counted(counts.gaps, "gap"),
                                counted(counts.lost, "missing event")));
  if (counts.unseen > 0)
    parts.push_back(counted(counts.unseen, "event") + " before the first message of a run");
  if (counts.repeats > 0) parts.push_back(counted(counts.repeats, "repeat"));
  if (counts.missing_offsets > 0)
    parts.push_back(counted(counts.missing_offsets, "missing offset"));
  for (std::size_t i = 0; i < kCauses; ++i)
    if (counts.rejected[i] > 0)
      parts.push_back(
          fmt::format("{} skipped ({})", counted(counts.rejected[i], "message"), kNames[i]));
  return fmt::format("{}", fmt::join(parts, ", "));
}

}  // namespace tev::host
