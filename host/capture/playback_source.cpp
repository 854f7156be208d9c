#include "host/capture/playback_source.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/support/log.h"

namespace tev::host {
namespace {

constexpr std::uint64_t kLongGapUsec = 10'000'000;

}  // namespace

PlaybackSource::PlaybackSource(CaptureSource& recording, Control control)
    : recording_(recording),
      control_(std::move(control)),
      clock_(recording.nextUsec().value_or(recording.head().start.real / 1000),
             control_.steady_usec(), control_.speed) {}

bool PlaybackSource::fetch(const BlockConsumer& take, const std::function<bool()>& interrupted) {
  const std::int64_t now = control_.steady_usec();
  clock_.setPaused(control_.is_paused(), now);
  while (!interrupted()) {
    const auto next = recording_.nextUsec();
    if (!next) {
      if (!std::exchange(has_ended_, true))
        Log::instance().say("tev-host: the recording ends here");
      return true;
    }
    const std::uint64_t reached = clock_.recordedAt(now);
    if (*next > reached + kLongGapUsec) {
      Log::instance().say(fmt::format("tev-host: {} s without a sample are passed over",
                                      (*next - reached) / 1'000'000));
      clock_.jumpTo(*next, now);
    } else if (*next > reached) {
      return true;
    }
    recording_.fetch(take, interrupted);
  }
  return true;
}

std::uint64_t PlaybackSource::nowUsec() const {
  if (has_ended_) return recording_.nowUsec();
  return std::max(recording_.nowUsec(), clock_.recordedAt(control_.steady_usec()));
}

}  // namespace tev::host
