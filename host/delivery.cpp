#include "host/delivery.h"

#include <algorithm>

namespace tev::host {
namespace {

constexpr std::uint64_t kPatience = 10;  // samples, on top

}  // namespace

Delivery::Delivery(const SchemaView& schema, const DeviceFilter& devices, Formatter& formatter,
                   std::optional<std::uint64_t> samples)
    : schema_(schema),
      devices_(devices),
      formatter_(formatter),
      samples_(samples),
      totals_(schema.types().size()) {}

void Delivery::consume(std::span<const std::uint8_t> blocks) {
  decodeBlocks(schema_, blocks, [this](const Event& event) { take(event); });
}

void Delivery::take(const Event& event) {
  if (!event.type->wanted) return;
  Series& series = series_.of(event);
  if (series.arrived++ == 0) {
    series.first_usec = event.timestamp_usec;
    series.wanted = devices_.passes(series.device);
  }
  series.last_usec = event.timestamp_usec;
  if (!series.wanted) return;
  if (samples_ && series.written >= *samples_) return;
  ++series.written;
  TypeTotals& totals = totals_[event.type->number];
  ++totals.events;
  totals.bytes += event.type->size;
  formatter_.event(event, series);
}

bool Delivery::isHopeless() const {
  const auto& all = series_.all();
  return std::ranges::none_of(all, &Series::wanted) &&
         std::ranges::any_of(all, [](const Series& one) { return one.arrived > kPatience; });
}

bool Delivery::isComplete() const {
  if (!samples_) return false;
  bool any_wanted = false;
  bool all_complete = true;
  for (const Series& one : series_.all()) {
    any_wanted |= one.wanted;
    all_complete &= !one.wanted || one.written >= *samples_;
  }
  if (any_wanted && all_complete) return true;
  return std::ranges::any_of(series_.all(), [this](const Series& one) {
    return one.arrived > *samples_ && one.arrived - *samples_ > *samples_ + kPatience;
  });
}

}  // namespace tev::host
