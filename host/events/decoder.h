// Decodes event blocks (docs/formats.md). Only the schema is needed.
#pragma once

#include <cstdint>
#include <functional>

#include "host/events/event_source.h"
#include "host/events/schema_view.h"

namespace tev::host {

// One event at its place in the blocks.
struct Event {
  std::uint64_t timestamp_usec = 0;  // since the Unix epoch
  const TypeView* type = nullptr;
  const std::uint8_t* data = nullptr;  // type->size bytes, unaligned
};

// One block at its place in the blocks.
struct Block {
  std::uint64_t timestamp_usec = 0;  // since the Unix epoch
  const TypeView* type = nullptr;
  std::size_t events = 0;
  Blocks bytes;  // all of the block
};

// Calls `visit` for every block, in order. Throws RunError at the first one that is malformed or of
// an unknown type. Nothing outside `blocks` is read.
void forEachBlock(const SchemaView& schema, Blocks blocks,
                  const std::function<void(const Block&)>& visit);

// Calls `visit` for every event, in order, and throws in the same way.
void decodeBlocks(const SchemaView& schema, Blocks blocks,
                  const std::function<void(const Event&)>& visit);

}  // namespace tev::host
