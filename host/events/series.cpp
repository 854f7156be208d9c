#include "host/events/series.h"

#include "host/events/values.h"
#include "host/support/text.h"

namespace tev::host {

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

const Series& SeriesTable::of(const Event& event) {
  key_.assign(reinterpret_cast<const char*>(&event.type->number), sizeof event.type->number);
  for (const Column& column : event.type->keys)
    key_.append(reinterpret_cast<const char*>(event.data + column.offset),
                column.count * column.element_size);
  const auto known = by_key_.find(key_);
  return known != by_key_.end() ? *known->second : add(event);
}

const Series& SeriesTable::add(const Event& event) {
  Series series;
  series.type = event.type;
  series.number = series_.size();
  for (std::size_t i = 0; i < event.type->keys.size(); ++i) {
    std::string value;
    appendPlain(value, event.type->keys[i], event.data);
    if (i == 0)
      series.device = asPrintable(value);
    else
      series.keys.push_back(asPrintable(value));
  }
  series_.push_back(std::move(series));
  by_key_.emplace(key_, &series_.back());
  return series_.back();
}

}  // namespace tev::host
