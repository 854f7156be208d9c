#include "collector/event_buffer.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "src/support/checked.h"

namespace tev::events::multipath {

EventBuffer::EventBuffer(unsigned long event_size_, unsigned long max_events_)
    : event_size(event_size_), max_events(max_events_), capacity_bytes(0) {
  // A rest that is never used separates each array from the block behind it.
  timestamps.reserve(support::checkedAdd(max_events, support::kCacheLine / sizeof(std::uint64_t)));
  capacity_bytes = support::checkedMultiply(event_size, max_events);
  if (capacity_bytes == 0) return;
  // calloc uses the kernel's zero pages for large blocks: pages that are never written do not use
  // memory.
  data.reset(static_cast<std::byte*>(
      std::calloc(support::checkedAdd(capacity_bytes, kSlack + support::kCacheLine), 1)));
  if (!data) throw std::bad_alloc();
}

EventBuffer::~EventBuffer() = default;

void EventBuffer::clear() noexcept {
  const std::uint64_t used = num_events * event_size;
  if (used > 0) std::memset(data.get(), 0, used);
  num_events = 0;
  write_offset = 0;
  read_index = 0;
  timestamps.clear();
}

}  // namespace tev::events::multipath
