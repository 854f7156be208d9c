#include "host/outputs/window_events.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "tev/serializer.h"

namespace tev::host {
namespace {

constexpr std::size_t kMostInBlock = 255;  // the number of events in a block has 8 bits

void appendHeader(std::vector<std::uint8_t>& out, std::uint64_t timestamp_usec,
                  WindowSchema::Place place, std::size_t count) {
  std::uint8_t header[TEV_EVENT_BLOCK_HEADER_SIZE] = {};
  std::memcpy(header, TEV_MAGIC_PREFIX, TEV_MAGIC_SIZE - 1);
  header[TEV_MAGIC_SIZE - 1] = TEV_EVENT_BLOCK_KIND;
  std::memcpy(header + TEV_EVENT_BLOCK_TIMESTAMP_OFFSET, &timestamp_usec, sizeof timestamp_usec);
  header[TEV_EVENT_BLOCK_SCHEMA_INDEX_OFFSET] = place.schema;
  header[TEV_EVENT_BLOCK_TYPE_INDEX_OFFSET] = place.type;
  header[TEV_EVENT_BLOCK_COUNT_OFFSET] = static_cast<std::uint8_t>(count);
  out.insert(out.end(), std::begin(header), std::end(header));
}

}  // namespace

WindowEvents::WindowEvents(const Figures& figures, std::uint64_t length_usec)
    : figures_(figures),
      schema_(figures),
      windows_(figures, length_usec,
               {[this](const SeriesWindow& window) { add(window); }, [](const DeviceWindow&) {}}) {}

void WindowEvents::sample(const Event& event, const Series& series) {
  if (!schema_.has(*event.type)) return;
  if (series.number >= keys_.size()) keys_.resize(series.number + 1);
  if (keys_[series.number].empty()) keys_[series.number] = keyOf(event);
  windows_.sample(event, series);
}

void WindowEvents::add(const SeriesWindow& window) {
  const Series& series = *window.series->series;
  Records& records = complete_[{window.begin_usec, series.type->number}];
  appendRecord(records.bytes, keys_[series.number], window, windows_.isPartial(window));
  ++records.count;
}

Blocks WindowEvents::update(std::uint64_t now_usec) {
  windows_.update(now_usec);
  return takeBlocks();
}

Blocks WindowEvents::end() {
  windows_.end();
  return takeBlocks();
}

Blocks WindowEvents::takeBlocks() {
  blocks_.clear();
  for (const auto& [key, records] : complete_) {
    const auto& [begin_usec, type] = key;
    const std::size_t size = records.bytes.size() / records.count;
    for (std::size_t first = 0; first < records.count; first += kMostInBlock) {
      const std::size_t count = std::min(kMostInBlock, records.count - first);
      appendHeader(blocks_, begin_usec, schema_.placeOf(type), count);
      const auto bytes = Blocks(records.bytes).subspan(first * size, count * size);
      blocks_.insert(blocks_.end(), bytes.begin(), bytes.end());
    }
  }
  complete_.clear();
  return blocks_;
}

}  // namespace tev::host
