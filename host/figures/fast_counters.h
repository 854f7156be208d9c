// Counters that move too far from one sample to the next.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/events/byte_counters.h"
#include "host/figures/figures.h"

namespace tev::host {

// A counter may move by at most a quarter of its range per sample. At twice that distance it can no
// longer be followed.
struct FastCounter {
  std::string name;
  std::string series;  // the one in which it is fastest: "rdma0, plane 1"
  double share = 0;    // the largest step, as a share of the range
  double per_second = 0;
  std::optional<Seconds> safe_interval;  // nothing: the rate is not known
};

// One row per column.
std::vector<FastCounter> fastCounters(const Figures& figures);

// "tx_bytes of rdma0, plane 1 moves by 41 % of its range per sample (17.6G/s): ...".
std::string describe(const FastCounter& counter);

}  // namespace tev::host
