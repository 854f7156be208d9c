// The counts of missing samples of several files together.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "host/capture/head.h"

namespace tev::host {

// Each ledger has the counts of its run so far. A run has one file or several parts.
class RunCounts {
 public:
  // The next ledger of the file with this id, which is this part of its run. `is_before`: what it
  // counts does not belong to the sum.
  void take(std::uint64_t file_id, std::uint32_t part, bool is_before,
            std::vector<DeviceCounts> counts);

  // By device; nothing without a ledger.
  const std::optional<std::vector<DeviceCounts>>& sum() const { return sum_; }

 private:
  struct Run {
    std::uint32_t part;
    std::vector<DeviceCounts> before;  // what does not belong to the sum
    std::vector<DeviceCounts> now;
  };

  Run& runOf(std::uint64_t file_id, std::uint32_t part, const std::vector<DeviceCounts>& counts);

  std::vector<Run> runs_;
  std::map<std::uint64_t, std::size_t> run_of_file_;
  std::optional<std::vector<DeviceCounts>> sum_;
};

}  // namespace tev::host
