// Which events of each source were taken.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>

#include "host/bus/message.h"

namespace tev::host {

// How the events of a message follow those that were taken.
struct Arrival {
  enum class Kind : std::uint8_t { next, gap, repeat, overlap };
  Kind kind = Kind::next;
  bool is_first = false;    // of its run; the events before it were never sent, or were removed
  std::uint64_t lost = 0;   // events of the gap
  std::uint64_t taken = 0;  // events at the message's beginning that were taken already
};

// Remembers the number of the next event of each run. It forgets only because of messages: a source
// has its last kRuns runs, and the source without a message for the longest time makes room for a
// new one. A source needs about 250 bytes.
class Sequences {
 public:
  static constexpr std::size_t kRuns = 4;
  static constexpr std::size_t kMostSources = std::size_t{1} << 17;

  Sequences() = default;
  explicit Sequences(std::size_t most_sources) : most_sources_(most_sources) {}

  Arrival judge(const MessageHead& head) const;

  // The message's events are taken.
  void take(const MessageHead& head);

  // The state, in the order in which restore() needs it.
  void forEach(const std::function<void(const RunId&, std::uint64_t next)>& visit) const;
  void restore(const RunId& run, std::uint64_t next);

  std::size_t sources() const { return sources_.size(); }

 private:
  struct Run {
    std::uint64_t start;
    std::uint64_t next;
  };
  struct Source {
    std::string name;
    std::array<Run, kRuns> runs{};  // the last one first
    std::size_t count = 0;
  };

  const Run* find(const RunId& run) const;

  std::size_t most_sources_ = kMostSources;
  std::list<Source> sources_;  // the last one first
  std::unordered_map<std::string_view, std::list<Source>::iterator> by_name_;
};

}  // namespace tev::host
