// Plays capture files in their own time, as a source that samples now.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/capture/capture_source.h"
#include "host/capture/play_clock.h"

namespace tev::host {

class PlaybackSource final : public EventSource {
 public:
  struct Control {
    double speed = 1;                           // recorded seconds per second
    std::function<bool()> is_paused;            // called before each fetch
    std::function<std::int64_t()> steady_usec;  // the clock
  };

  // `recording` must outlive this.
  PlaybackSource(CaptureSource& recording, Control control);

  std::string name() const override { return recording_.name(); }
  const SchemaView& schema() const override { return recording_.schema(); }

  // Passes what was recorded until the time that the playback has reached. A long time without
  // chunks is passed over. True also at the end, where the playback stays.
  bool fetch(const BlockConsumer& take, const std::function<bool()>& interrupted) override;

  std::optional<std::vector<DeviceCounts>> counts() const override { return recording_.counts(); }
  std::uint64_t nowUsec() const override;

 private:
  CaptureSource& recording_;
  Control control_;
  PlayClock clock_;
  bool has_ended_ = false;
};

}  // namespace tev::host
