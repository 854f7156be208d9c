#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "src/support/cache_line.h"
#include "src/support/malloc_ptr.h"
#include "tev/export.h"

namespace tev::events::multipath {

// A fixed-capacity store of contiguous events of one size, each with a time stamp.
//
// While it is being filled, every byte from `write_offset` on is zero, so that an appended event is
// initially zero. It does not allocate after construction. What a pass writes shares no cache line
// with another buffer.
class alignas(support::kCacheLine) EventBuffer {
 public:
  // Bytes after the last event that may also be written, but only with zeros.
  static constexpr std::size_t kSlack = 16;

  // Throws std::length_error when the sizes exceed the address space, and std::bad_alloc when
  // memory is short.
  TEV_API EventBuffer(unsigned long event_size, unsigned long max_events);
  TEV_API ~EventBuffer();
  EventBuffer(const EventBuffer&) = delete;
  EventBuffer& operator=(const EventBuffer&) = delete;

  bool hasRoomFor(std::uint64_t events) const noexcept { return events <= max_events - num_events; }

  // The place for this number of further events, for which there must be room. Null when events
  // have a size of 0.
  std::byte* append(std::uint64_t events, std::uint64_t timestamp_usec) noexcept {
    assert(hasRoomFor(events));
    std::byte* const first = data.get() + write_offset;
    timestamps.insert(timestamps.end(), events, timestamp_usec);
    num_events += events;
    write_offset += events * event_size;
    return first;
  }

  // The event at `index`, below `num_events`.
  const std::byte* at(std::uint64_t index) const noexcept {
    return data.get() + index * event_size;
  }

  // Bytes that it allocates. Does not change.
  std::uint64_t memoryBytes() const noexcept {
    return capacity_bytes + max_events * sizeof(std::uint64_t) + kSlack;
  }

  // Ends the filling. Reading then begins with the first event.
  void rewind() noexcept { write_offset = 0; }

  // Empties the buffer and sets the bytes that were written to zero.
  void clear() noexcept;

  std::uint64_t event_size;  // bytes
  std::uint64_t max_events;
  std::uint64_t num_events = 0;    // written by the sampling thread
  std::uint64_t write_offset = 0;  // bytes
  std::uint64_t read_index = 0;    // events that the host has been given
  std::uint64_t capacity_bytes;
  support::MallocPtr<std::byte> data;     // null when capacity_bytes is 0
  std::vector<std::uint64_t> timestamps;  // microseconds since the Unix epoch, one per event
};

}  // namespace tev::events::multipath
