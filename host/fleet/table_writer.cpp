#include "host/fleet/table_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <span>
#include <tuple>
#include <utility>

#include "host/events/decoder.h"
#include "host/outputs/parquet_fields.h"
#include "host/parquet/parquet_file.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::size_t kOpenFiles = 32;                      // at a time
constexpr std::size_t kFileMemory = std::size_t{16} << 20;  // bytes
constexpr std::size_t kNumber = sizeof(std::uint64_t);      // bytes

// One of the files. A row is the time stamp, the number of the event, the run, the source, the name
// of the type, and the event.
class Table {
 public:
  Table(const RangeTable& table, const std::string& path)
      : event_size_(table.layout->event_size),
        source_size_(std::max<std::size_t>(table.longest_source, 1)),
        type_size_(std::max<std::size_t>(table.longest_type, 1)),
        lead_(2 * kNumber + kRunDigits + source_size_ + type_size_),
        file_(path, fieldsOf(*table.layout), lead_.size() + event_size_, kFileMemory) {}

  // What the next events have in common.
  void begin(const KeptMessage& message, const TypeView& type) {
    std::ranges::fill(lead_, std::uint8_t{0});
    constexpr std::size_t kSource = 2 * kNumber + kRunDigits;
    put(2 * kNumber, runText(message.run.start));
    put(kSource, asPrintable(message.run.source));
    put(kSource + source_size_, asPrintable(type.name));
  }

  void add(std::uint64_t timestamp, std::uint64_t number, const std::uint8_t* event) {
    std::uint8_t* const row = file_.addRow();
    std::memcpy(row, lead_.data(), lead_.size());
    std::memcpy(row, &timestamp, kNumber);
    std::memcpy(row + kNumber, &number, kNumber);
    if (event_size_ > 0) std::memcpy(row + lead_.size(), event, event_size_);
  }

  void publish(bool is_forced_out) {
    file_.complete({});
    file_.publish(is_forced_out);
  }

 private:
  std::vector<RowField> fieldsOf(const EventLayout& layout) const {
    const std::size_t run = 2 * kNumber;
    const std::size_t source = run + kRunDigits;
    std::vector<RowField> fields{{"source", TEV_TYPE_CHAR, source, source_size_},
                                 {"run", TEV_TYPE_CHAR, run, kRunDigits},
                                 {"sequence", TEV_TYPE_UINT64, kNumber, kNumber},
                                 {"timestamp", TEV_TYPE_TIMESTAMP, 0, kNumber},
                                 {"event_type", TEV_TYPE_CHAR, source + source_size_, type_size_}};
    std::ranges::move(parquetFields(layout.columns, lead_.size(),
                                    {"source", "run", "sequence", "event_type", "hour"}),
                      std::back_inserter(fields));
    return fields;
  }

  void put(std::size_t at, const std::string& text) {
    std::memcpy(&lead_[at], text.data(), text.size());
  }

  std::size_t event_size_;
  std::size_t source_size_;
  std::size_t type_size_;
  std::vector<std::uint8_t> lead_;  // what is in front of the event
  ParquetFile file_;
};

using Key = std::tuple<std::uint64_t, const EventLayout*>;  // hour, layout

// The tables for the events of one message.
class Sorting {
 public:
  Sorting(const std::map<Key, Table*>& tables, const KeptMessage& message)
      : tables_(tables), message_(message) {}

  // Null when the events are not for any of the tables.
  Table* of(const Block& block) {
    const std::uint64_t hour = block.timestamp_usec / kHourUsec;
    if (block.type == type_ && hour == hour_) return last_;
    type_ = block.type;
    hour_ = hour;
    const auto found = tables_.find({hour, message_.schema->layouts[type_->number].get()});
    last_ = found != tables_.end() ? found->second : nullptr;
    if (last_) last_->begin(message_, *type_);
    return last_;
  }

 private:
  const std::map<Key, Table*>& tables_;
  const KeptMessage& message_;
  const TypeView* type_ = nullptr;
  std::uint64_t hour_ = 0;
  Table* last_ = nullptr;
};

void addRows(const KeptMessage& message, Blocks blocks, const std::map<Key, Table*>& tables) {
  Sorting sorting(tables, message);
  std::uint64_t number = message.first;
  const std::uint64_t begin = number + message.skipped;
  forEachBlock(message.schema->view, blocks, [&](const Block& block) {
    if (block.events == 0) return;
    Table* const table = number + block.events > begin ? sorting.of(block) : nullptr;
    const std::uint8_t* event =
        block.bytes.data() + (block.bytes.size() - block.events * block.type->size);
    for (std::size_t i = 0; i < block.events; ++i, ++number, event += block.type->size)
      if (table && number >= begin) table->add(block.timestamp_usec, number, event);
  });
}

}  // namespace

void writeTables(const Range& range, const std::vector<RangeTable>& tables,
                 const std::vector<std::string>& paths, bool is_forced_out) {
  BlockReader reader;
  std::vector<std::uint8_t> blocks;
  for (std::size_t first = 0; first < tables.size(); first += kOpenFiles) {
    std::vector<std::unique_ptr<Table>> open;
    std::map<Key, Table*> by_key;
    for (std::size_t i = first; i < std::min(first + kOpenFiles, tables.size()); ++i) {
      open.push_back(std::make_unique<Table>(tables[i], paths[i]));
      by_key.emplace(Key(tables[i].hour, tables[i].layout.get()), open.back().get());
    }
    for (const KeptMessage& message : range.messages()) {
      reader.read(message.value, message.codec, message.size, blocks);
      addRows(message, blocks, by_key);
    }
    for (const auto& table : open) table->publish(is_forced_out);
  }
}

}  // namespace tev::host
