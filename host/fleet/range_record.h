// What is written down about a complete range: the `done` file (docs/fleet.md).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/fleet/fleet_counts.h"
#include "host/fleet/range.h"
#include "host/fleet/sequences.h"

namespace tev::host {

struct RangeRecord {
  struct File {
    std::string name;  // in the folder
    std::uint64_t rows = 0;
  };

  std::string topic;
  std::int32_t partition = 0;
  std::int64_t start = 0;  // of the offsets
  std::int64_t end = 0;
  FleetCounts counts;
  std::vector<LostEvents> losses;
  std::vector<File> files;
};

// With the state of the sequences at the range's end. Follows from the arguments alone.
std::string textOf(const RangeRecord& record, const Sequences& sequences);

// Throws RunError, with the reason, when the text is damaged or of a newer version.
RangeRecord recordOf(std::string_view text, Sequences& sequences);

}  // namespace tev::host
