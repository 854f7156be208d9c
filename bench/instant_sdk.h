// A device SDK whose functions take almost no time. A read does not write values. It only reports
// that it has.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "collector/collector.h"

namespace tev::bench {

// The order of the counters in the SDK's list.
enum class Order { contiguous, interleaved, shuffled };

struct Shape {
  std::uint32_t devices = 1;
  std::uint32_t device_counters = 1;
  std::uint32_t planes = 0;
  std::uint32_t counters_per_plane = 0;
  Order order = Order::contiguous;

  std::uint32_t countersPerDevice() const { return device_counters + planes * counters_per_plane; }
};

// The description lines of one device of this shape, in the requested order. They are the same in
// every run.
std::vector<std::string> descriptions(const Shape& shape);

// The functions of an SDK whose devices have this shape. Only one shape can be used at a time.
const events::multipath::SdkFunctions& instantSdk(const Shape& shape);

// The size of one sample's events.
struct SampleSize {
  std::size_t device_event;
  std::size_t plane_event;
  std::size_t sample;  // one device event and all plane events
};
SampleSize sampleSize(const Shape& shape);

inline constexpr std::size_t kNameLength = 4;  // of every device: "d000"

}  // namespace tev::bench
