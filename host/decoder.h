// Event blocks, read by the schema alone (docs/formats.md).
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "host/schema_view.h"

namespace tev::host {

// One event where it lies in the serializer's buffer.
struct Event {
  std::uint64_t timestamp_usec = 0;  // since the Unix epoch
  const TypeView* type = nullptr;
  const std::uint8_t* data = nullptr;  // type->size bytes, unaligned
};

// Hands every event of a run of blocks to `visit`, in order. Throws RunError at the first block
// that is not whole or of no known type; nothing outside `bytes` is read.
void decodeBlocks(const SchemaView& schema, std::span<const std::uint8_t> bytes,
                  const std::function<void(const Event&)>& visit);

}  // namespace tev::host
