// Series. A series consists of the events of one type that have the same key: the samples of one
// device or plane.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/events/decoder.h"

namespace tev::host {

struct Series {
  const TypeView* type = nullptr;
  std::size_t number = 0;         // among all series, in order of appearance, from 0
  std::string device;             // first value of the key; empty when the type has no key
  std::vector<std::string> keys;  // the other values of the key
};

// What the events of a type describe. This does not depend on which other devices are sampled, as
// the type's name does: "device", or the name of the last field of the key, for example "plane".
std::string kindOf(const TypeView& type);

// Distinguishes the series from the other series of its device. It is the rest of the key:
// "plane 1". Without such a rest, it is the last word of the type's name without the number at its
// end.
std::string headingOf(const Series& series);

class SeriesTable {
 public:
  // The event's series, which is added when it is new. Its address does not change.
  const Series& of(const Event& event);

  // Null instead of a new series when there are so many already.
  const Series* of(const Event& event, std::size_t most);

 private:
  struct Entry {
    Series series;
    std::string key;
    Entry* next = nullptr;  // the series that last followed this one
  };

  Entry* find(const Event& event, std::size_t most);
  Entry& add(const Event& event);

  std::deque<Entry> entries_;
  std::unordered_map<std::string_view, Entry*> by_key_;
  Entry* last_ = nullptr;
  std::string key_;  // of the current event; a member so that its memory is reused
};

}  // namespace tev::host
