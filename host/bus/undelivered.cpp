#include "host/bus/undelivered.h"

#include "host/events/decoder.h"
#include "host/events/values.h"
#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {

void Undelivered::add(const Batch& batch) {
  const std::lock_guard lock(mutex_);
  events_ += batch.events;
  try {
    auto found = schemas_.find(batch.schemas->ids);
    if (found == schemas_.end())
      found =
          schemas_.emplace(batch.schemas->ids, SchemaView::fromJson(batch.schemas->texts)).first;
    // The device's own event has no other key. Planes have.
    decodeBlocks(found->second, batch.blocks, [this](const Event& event) {
      if (event.type->keys.size() != 1 || !isText(event.type->keys[0])) return;
      ++samples_[asPrintable(textOf(event.type->keys[0], event.data))];
    });
  } catch (const RunError&) {  // the events are counted
  }
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
