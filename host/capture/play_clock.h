// The time that a playback has reached.
#pragma once

#include <cstdint>

namespace tev::host {

// Converts between the time of a recording and a steady clock, both in microseconds. The caller
// reads the clock.
class PlayClock {
 public:
  // `speed` is above 0: recorded seconds per second.
  PlayClock(std::uint64_t recorded, std::int64_t steady, double speed)
      : recorded_(recorded), steady_(steady), speed_(speed) {}

  std::uint64_t recordedAt(std::int64_t steady) const {
    if (is_paused_ || steady <= steady_) return recorded_;
    return recorded_ + static_cast<std::uint64_t>(static_cast<double>(steady - steady_) * speed_);
  }

  void setPaused(bool is_paused, std::int64_t steady) {
    recorded_ = recordedAt(steady);
    steady_ = steady;
    is_paused_ = is_paused;
  }

  void jumpTo(std::uint64_t recorded, std::int64_t steady) {
    recorded_ = recorded;
    steady_ = steady;
  }

 private:
  std::uint64_t recorded_;  // at `steady_`
  std::int64_t steady_;
  double speed_;
  bool is_paused_ = false;
};

}  // namespace tev::host
