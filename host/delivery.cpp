#include "host/delivery.h"

#include <algorithm>

namespace tev::host {
namespace {

constexpr std::uint64_t kPatience = 10;  // samples, on top

}  // namespace

Delivery::Delivery(const SchemaView& schema, Formatter& formatter,
                   std::optional<std::uint64_t> samples)
    : schema_(schema), formatter_(formatter), samples_(samples), totals_(schema.types().size()) {}

void Delivery::consume(std::span<const std::uint8_t> blocks) {
  decodeBlocks(schema_, blocks, [this](const Event& event) { take(event); });
}

void Delivery::take(const Event& event) {
  Series& series = series_.of(event);
  if (series.arrived++ == 0) series.first_usec = event.timestamp_usec;
  series.last_usec = event.timestamp_usec;
  if (samples_ && series.written >= *samples_) return;
  ++series.written;
  TypeTotals& totals = totals_[event.type->number];
  ++totals.events;
  totals.bytes += event.type->size;
  formatter_.event(event, series);
}

bool Delivery::isComplete() const {
  if (!samples_ || series_.all().empty()) return false;
  const auto all_at_least = [this](std::uint64_t count) {
    return std::ranges::all_of(series_.all(),
                               [&](const Series& one) { return one.written >= count; });
  };
  if (all_at_least(*samples_)) return true;
  return std::ranges::any_of(series_.all(), [this](const Series& one) {
    return one.arrived > *samples_ && one.arrived - *samples_ > *samples_ + kPatience;
  });
}

}  // namespace tev::host
