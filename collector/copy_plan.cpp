#include "collector/copy_plan.h"

#include <algorithm>

namespace tev::events::multipath {

void CopyPlan::addEvent(const std::vector<std::uint8_t>& indexes, std::uint32_t to) {
  const auto place = [to](std::size_t counter) {
    return static_cast<std::uint32_t>(to + counter * sizeof(std::uint32_t));
  };
  std::vector<Run> runs;
  for (std::size_t i = 0; i < indexes.size(); ++i) {
    if (!runs.empty() && runs.back().from + runs.back().count == indexes[i])
      ++runs.back().count;
    else
      runs.push_back({.to = place(i), .count = 1, .from = indexes[i]});
  }
  // If the runs have this many counters on average, one call per run is faster than the copies
  // below (measured).
  constexpr std::size_t kWorthACall = 16;
  if (runs.size() * kWorthACall <= indexes.size()) {
    runs_.insert(runs_.end(), runs.begin(), runs.end());
    return;
  }
  constexpr std::size_t kFour = 4;
  if (indexes.size() < kFour) {
    for (std::size_t i = 0; i < indexes.size(); ++i)
      singles_.push_back({.to = place(i), .from = indexes[i]});
    return;
  }
  for (std::size_t i = 0; i < indexes.size(); i += kFour) {
    // The last four may overlap the four before them, and then write the same values again.
    const std::size_t first = std::min(i, indexes.size() - kFour);
    Four four{.to = place(first), .from = {}};
    std::copy_n(&indexes[first], kFour, four.from.begin());
    fours_.push_back(four);
  }
}

}  // namespace tev::events::multipath
