#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "collector/slot_info.h"

namespace tev::events::multipath {

// Defines which counters of a sample are copied to which places in its events. The plan is computed
// once during set-up, so that copying only follows it.
class CopyPlan {
 public:
  // Adds an event. Its counters are contiguous and begin `to` bytes after the start of the
  // sample's first event. `indexes` are their positions among the values of a read, in order.
  void addEvent(const std::vector<std::uint8_t>& indexes, std::uint32_t to);

  void copy(const std::uint32_t* values, std::byte* events) const {
    for (const auto& [to, count, from] : runs_)
      std::memcpy(events + to, values + from, count * sizeof *values);
    for (const auto& [to, from] : fours_) {
      const std::uint32_t four[] = {values[from[0]], values[from[1]], values[from[2]],
                                    values[from[3]]};
      std::memcpy(events + to, four, sizeof four);
    }
    for (const auto& [to, from] : singles_) std::memcpy(events + to, values + from, sizeof *values);
  }

  bool operator==(const CopyPlan&) const = default;

 private:
  // `from` is an index into the values; `to` is in bytes from the start of the first event.
  struct Run {  // of counters that are contiguous in the values and in the event
    std::uint32_t to;
    std::uint16_t count;
    std::uint8_t from;
    bool operator==(const Run&) const = default;
  };
  struct Four {  // counters that are contiguous in the event only
    std::uint32_t to;
    std::array<std::uint8_t, 4> from;
    bool operator==(const Four&) const = default;
  };
  struct Single {
    std::uint32_t to;
    std::uint8_t from;
    bool operator==(const Single&) const = default;
  };
  static_assert(kMaxCounters - 1 <= UINT8_MAX);

  std::vector<Run> runs_;
  std::vector<Four> fours_;
  std::vector<Single> singles_;
};

}  // namespace tev::events::multipath
