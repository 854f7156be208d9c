#include "host/outputs/delivery.h"

#include <algorithm>
#include <utility>

namespace tev::host {
namespace {

constexpr std::uint64_t kPatience = 10;  // extra samples of one device before others are given up

bool takes(const Output& output, const TypeView& type) {
  return output.projection() && output.projection()->takes(type);
}

}  // namespace

Delivery::Delivery(const SchemaView& schema, std::vector<Output*> outputs, Figures& figures,
                   std::optional<std::uint64_t> samples, std::uint64_t patience_usec)
    : schema_(schema),
      outputs_(std::move(outputs)),
      figures_(figures),
      health_(patience_usec),
      samples_(samples),
      totals_(schema.types().size()) {
  for (const TypeView& type : schema.types())
    type_is_taken_.push_back(
        std::ranges::any_of(outputs_, [&](const Output* one) { return takes(*one, type); }));
}

void Delivery::begin() {
  for (Output* const output : outputs_) output->begin();
}

void Delivery::take(Blocks blocks) {
  for (Output* const output : outputs_) output->blocks(blocks);
  if (std::ranges::any_of(outputs_, &Output::projection))
    decodeBlocks(schema_, blocks, [this](const Event& event) { takeEvent(event); });
}

void Delivery::update(RunStatus status) {
  watchHealth(status);
  for (Output* const output : outputs_) output->update(status);
}

void Delivery::redraw(RunStatus status) {
  status.health = &health_;
  for (Output* const output : outputs_) output->redraw(status);
}

void Delivery::end(RunStatus status) {
  for (Output* const output : outputs_) output->sendRest();
  watchHealth(status);
  health_.end();
  for (Output* const output : outputs_) output->end(status);
}

void Delivery::leave() {
  for (Output* const output : outputs_) output->leave();
}

void Delivery::watchHealth(RunStatus& status) {
  for (const Output* const output : outputs_) output->addCounts(status.devices);
  const DeviceFilter& filter = figures_.projection().devices();
  std::vector<DeviceCounts> chosen = status.devices;
  std::erase_if(chosen, [&](const DeviceCounts& one) { return !filter.passes(one.device); });
  for (const SeriesCount& one : counts_)
    if (one.is_followed) health_.sample(one.series->device, one.last_usec);
  health_.update(chosen, status.now_usec);
  status.health = &health_;
}

void Delivery::takeEvent(const Event& event) {
  if (!type_is_taken_[event.type->number]) return;
  SeriesCount& count = countOf(event);
  if (count.arrived++ == 0) count.first_usec = event.timestamp_usec;
  count.last_usec = event.timestamp_usec;
  if (!count.isTaken()) return;
  if (samples_ && count.written >= *samples_) return;
  ++count.written;
  TypeTotals& totals = totals_[event.type->number];
  ++totals.events;
  totals.bytes += event.type->size;
  if (count.is_followed) figures_.sample(event, *count.series);
  for (Output* const taker : count.takers) taker->event(event, *count.series);
}

void Delivery::takeBack(std::size_t series) {
  SeriesCount& count = counts_[series];
  TypeTotals& totals = totals_[count.series->type->number];
  --count.written;
  --totals.events;
  totals.bytes -= count.series->type->size;
}

Delivery::SeriesCount& Delivery::countOf(const Event& event) {
  const Series& series = series_.of(event);
  if (series.number < counts_.size()) return counts_[series.number];
  SeriesCount count{&series, {}};
  for (Output* const output : outputs_)
    if (takes(*output, *series.type) && output->projection()->devices().passes(series.device))
      count.takers.push_back(output);
  const Projection& followed = figures_.projection();
  count.is_followed = followed.takes(*series.type) && followed.devices().passes(series.device);
  return counts_.emplace_back(std::move(count));
}

bool Delivery::isHopeless() const {
  return std::ranges::none_of(counts_, &SeriesCount::isTaken) &&
         std::ranges::any_of(counts_,
                             [](const SeriesCount& one) { return one.arrived > kPatience; });
}

bool Delivery::isComplete(const std::string& device) const {
  bool any = false;
  for (const SeriesCount& one : counts_) {
    if (!one.isTaken() || one.series->device != device) continue;
    if (one.written < *samples_) return false;
    any = true;
  }
  return any;
}

bool Delivery::isGivenUp(const DeviceHealth& device) const {
  if (device.state == DeviceState::sampling) return false;
  return device.state == DeviceState::silent ||
         missingSamples(device.counts) > *samples_ + kPatience;
}

bool Delivery::isComplete() const {
  if (!samples_) return false;
  bool any_taken = false;
  bool all_complete = true;
  for (const SeriesCount& one : counts_) {
    any_taken |= one.isTaken();
    all_complete &= !one.isTaken() || one.written >= *samples_;
  }
  if (any_taken && all_complete) return true;
  if (!health_.devices().empty() &&
      std::ranges::all_of(health_.devices(), [this](const DeviceHealth& device) {
        return isComplete(device.counts.device) || isGivenUp(device);
      }))
    return true;
  return std::ranges::any_of(counts_, [this](const SeriesCount& one) {
    return one.arrived > *samples_ && one.arrived - *samples_ > *samples_ + kPatience;
  });
}

}  // namespace tev::host
