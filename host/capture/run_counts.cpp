#include "host/capture/run_counts.h"

#include <algorithm>
#include <utility>

namespace tev::host {
namespace {

DeviceCounts* find(std::vector<DeviceCounts>& all, const std::string& device) {
  const auto found = std::ranges::find(all, device, &DeviceCounts::device);
  return found == all.end() ? nullptr : &*found;
}

}  // namespace

void RunCounts::take(std::uint64_t file_id, std::uint32_t part, bool is_before,
                     std::vector<DeviceCounts> counts) {
  Run& run = runOf(file_id, part, counts);
  run.now = std::move(counts);
  if (is_before) run.before = run.now;
  sum_.emplace();
  for (Run& each : runs_) {
    for (const DeviceCounts& now : each.now) {
      const DeviceCounts* const before = find(each.before, now.device);
      const DeviceCounts added = before ? since(*before, now) : now;
      if (DeviceCounts* const sum = find(*sum_, now.device))
        add(*sum, added);
      else
        sum_->push_back(added);
    }
  }
}

RunCounts::Run& RunCounts::runOf(std::uint64_t file_id, std::uint32_t part,
                                 const std::vector<DeviceCounts>& counts) {
  if (const auto known = run_of_file_.find(file_id); known != run_of_file_.end())
    return runs_[known->second];
  // A file begins with the counts of the parts before it.
  if (runs_.empty() || part <= runs_.back().part)
    runs_.push_back({part, part > 0 ? counts : std::vector<DeviceCounts>{}, {}});
  runs_.back().part = part;
  run_of_file_.emplace(file_id, runs_.size() - 1);
  return runs_.back();
}

}  // namespace tev::host
