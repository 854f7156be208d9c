#include "host/events/series.h"

#include <algorithm>
#include <cstring>

#include "host/events/values.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

std::size_t sizeOf(const Column& column) {
  return column.count * column.element_size;
}

// Whether this is the event's key: the number of its type, then the values of its key columns.
bool isKey(std::string_view key, const Event& event) {
  const std::size_t& type = event.type->number;
  if (std::memcmp(key.data(), &type, sizeof type) != 0) return false;
  const char* at = key.data() + sizeof type;
  return std::ranges::all_of(event.type->keys, [&](const Column& column) {
    const bool same = std::memcmp(at, event.data + column.offset, sizeOf(column)) == 0;
    at += sizeOf(column);
    return same;
  });
}

}  // namespace

std::string kindOf(const TypeView& type) {
  return type.keys.size() < 2 ? "device" : type.keys.back().name;
}

std::string headingOf(const Series& series) {
  std::string heading;
  for (std::size_t i = 0; i < series.keys.size(); ++i)
    heading += (i ? ", " : "") + asPrintable(series.type->keys[i + 1].name) + " " + series.keys[i];
  if (!heading.empty()) return heading;

  heading = asPrintable(series.type->name);
  const std::size_t last = heading.find_last_not_of("0123456789");
  if (last != std::string::npos && heading[last] == '_') heading.resize(last);
  return heading.substr(heading.rfind('_') + 1);
}

// Series follow each other in the same order again and again, so the next one is compared first.
const Series* SeriesTable::of(const Event& event, std::size_t most) {
  Entry* const expected = last_ ? last_->next : nullptr;
  if (expected && isKey(expected->key, event)) {
    last_ = expected;
    return &expected->series;
  }
  Entry* const found = find(event, most);
  if (!found) return nullptr;
  if (last_) last_->next = found;
  last_ = found;
  return &found->series;
}

const Series& SeriesTable::of(const Event& event) {
  return *of(event, SIZE_MAX);
}

SeriesTable::Entry* SeriesTable::find(const Event& event, std::size_t most) {
  key_.assign(reinterpret_cast<const char*>(&event.type->number), sizeof event.type->number);
  for (const Column& column : event.type->keys)
    key_.append(reinterpret_cast<const char*>(event.data + column.offset), sizeOf(column));
  const auto known = by_key_.find(key_);
  if (known != by_key_.end()) return known->second;
  return entries_.size() < most ? &add(event) : nullptr;
}

SeriesTable::Entry& SeriesTable::add(const Event& event) {
  Entry& entry = entries_.emplace_back();
  entry.key = key_;
  Series& series = entry.series;
  series.type = event.type;
  series.number = entries_.size() - 1;
  for (std::size_t i = 0; i < event.type->keys.size(); ++i) {
    std::string value;
    appendPlain(value, event.type->keys[i], event.data);
    if (i == 0)
      series.device = asPrintable(value);
    else
      series.keys.push_back(asPrintable(value));
  }
  by_key_.emplace(entry.key, &entry);
  return entry;
}

}  // namespace tev::host
