// Series: the events of one type that have the same key, that is, the samples of one thing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/decoder.h"

namespace tev::host {

struct Series {
  const TypeView* type = nullptr;
  std::size_t number = 0;         // among all series, in order of appearance, from 0
  std::string device;             // first value of the key; empty when the type has no key
  std::vector<std::string> keys;  // the others
  bool wanted = true;             // may be written out
  std::uint64_t arrived = 0;      // events
  std::uint64_t written = 0;      // of these, those that were passed on to the output
  std::uint64_t first_usec = 0;   // time stamps of the first and the last event that arrived
  std::uint64_t last_usec = 0;
};

class SeriesTable {
 public:
  // The event's series, which is added when it is new. It stays where it is.
  Series& of(const Event& event);

  const std::deque<Series>& all() const { return series_; }

 private:
  Series& add(const Event& event);

  std::deque<Series> series_;
  std::unordered_map<std::string, Series*> by_key_;
  std::string key_;  // of the event at hand; a member so that its memory is reused
};

}  // namespace tev::host
