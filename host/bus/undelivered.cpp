#include "host/bus/undelivered.h"

#include <utility>

#include "host/events/values.h"
#include "host/outputs/window_schema.h"
#include "host/support/errors.h"

namespace tev::host {

Undelivered::Schema::Schema(SchemaView schema) : view(std::move(schema)) {
  for (const TypeView& type : view.types()) {
    samples.push_back(samplesColumn(type));
    has_devices = has_devices || type.keys.size() == 1;
  }
}

void Undelivered::add(const Batch& batch) {
  const std::lock_guard lock(mutex_);
  events_ += batch.events;
  try {
    auto found = schemas_.find(batch.schemas->ids);
    if (found == schemas_.end())
      found =
          schemas_.emplace(batch.schemas->ids, SchemaView::fromJson(batch.schemas->texts)).first;
    Schema& schema = found->second;
    decodeBlocks(schema.view, batch.blocks, [&](const Event& event) { count(schema, event); });
  } catch (const RunError&) {  // the events are counted
  }
}

// The device's own series has no other key. Without it, one of its planes counts.
void Undelivered::count(Schema& schema, const Event& event) {
  const TypeView& type = *event.type;
  if (type.keys.empty() || !isText(type.keys[0])) return;
  if (schema.has_devices && type.keys.size() > 1) return;
  const Series& series = schema.series.of(event);
  if (schema.counted.try_emplace(series.device, &series).first->second != &series) return;
  const Column* const samples = schema.samples[type.number];
  samples_[series.device] += samples ? unsignedOf(*samples, event.data) : 1;
}

void Undelivered::addTo(std::vector<DeviceCounts>& counts) const {
  const std::lock_guard lock(mutex_);
  for (DeviceCounts& one : counts)
    if (const auto found = samples_.find(one.device); found != samples_.end())
      one.undelivered = found->second;
}

std::uint64_t Undelivered::events() const {
  const std::lock_guard lock(mutex_);
  return events_;
}

}  // namespace tev::host
