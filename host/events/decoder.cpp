#include "host/events/decoder.h"

#include <fmt/format.h>

#include <cstring>

#include "host/support/errors.h"
#include "tev/serializer.h"

namespace tev::host {
namespace {

struct BlockHeader {
  std::uint64_t timestamp_usec;
  std::uint8_t schema_index;
  std::uint16_t type_index;
  std::uint8_t count;
};

std::uint64_t littleEndian(const std::uint8_t* bytes, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = size; i-- > 0;) value = value << 8 | bytes[i];
  return value;
}

template <class... Arguments>
[[noreturn]] void refuse(std::size_t position, fmt::format_string<Arguments...> problem,
                         Arguments&&... arguments) {
  throw RunError(fmt::format("event block at byte {}: {}", position,
                             fmt::format(problem, std::forward<Arguments>(arguments)...)));
}

BlockHeader readHeader(Blocks bytes, std::size_t position) {
  if (bytes.size() < TEV_EVENT_BLOCK_HEADER_SIZE)
    refuse(position, "{} bytes are left, less than a header", bytes.size());
  char magic[TEV_MAGIC_SIZE];
  std::memcpy(magic, bytes.data(), sizeof magic);
  if (!tev_magic_value_match_type(magic, TEV_EVENT_BLOCK_KIND))
    refuse(position, "it begins with {:02x} {:02x} {:02x} {:02x}", bytes[0], bytes[1], bytes[2],
           bytes[3]);
  const auto number = [&](std::size_t offset, std::size_t size) {
    return littleEndian(&bytes[offset], size);
  };
  return {number(TEV_EVENT_BLOCK_TIMESTAMP_OFFSET, 8), bytes[TEV_EVENT_BLOCK_SCHEMA_INDEX_OFFSET],
          static_cast<std::uint16_t>(number(TEV_EVENT_BLOCK_TYPE_INDEX_OFFSET, 2)),
          bytes[TEV_EVENT_BLOCK_COUNT_OFFSET]};
}

template <class Visit>
void walk(const SchemaView& schema, Blocks bytes, const Visit& visit) {
  std::size_t position = 0;
  while (position < bytes.size()) {
    const auto rest = bytes.subspan(position);
    const BlockHeader header = readHeader(rest, position);
    const TypeView* const type = schema.find(header.schema_index, header.type_index);
    if (!type)
      refuse(position, "there is no type {} in schema {}", header.type_index, header.schema_index);

    const auto events = rest.subspan(TEV_EVENT_BLOCK_HEADER_SIZE);
    if (header.count != 0 && type->size > events.size() / header.count)
      refuse(position, "{} events of {} bytes do not fit into the {} bytes that are left",
             header.count, type->size, events.size());
    const std::size_t size = TEV_EVENT_BLOCK_HEADER_SIZE + header.count * type->size;
    visit(Block{header.timestamp_usec, type, header.count, rest.first(size)});
    position += size;
  }
}

}  // namespace

void forEachBlock(const SchemaView& schema, Blocks blocks,
                  const std::function<void(const Block&)>& visit) {
  walk(schema, blocks, visit);
}

void decodeBlocks(const SchemaView& schema, Blocks blocks,
                  const std::function<void(const Event&)>& visit) {
  walk(schema, blocks, [&visit](const Block& block) {
    const std::uint8_t* const first = block.bytes.data() + TEV_EVENT_BLOCK_HEADER_SIZE;
    for (std::size_t i = 0; i < block.events; ++i)
      visit({block.timestamp_usec, block.type, first + i * block.type->size});
  });
}

}  // namespace tev::host
