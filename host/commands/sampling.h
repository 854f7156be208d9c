// The part of a run from the first fetch to the last.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "host/commands/announcements.h"
#include "host/commands/run_options.h"
#include "host/events/event_source.h"
#include "host/outputs/delivery.h"
#include "host/outputs/interaction.h"

namespace tev::host {

class Sampling {
 public:
  // `interaction` may be null. The arguments must outlive this.
  Sampling(const RunOptions& options, EventSource& source, Delivery& delivery,
           const Figures& figures, const Interaction* interaction);

  // Throws RunError and ClosedPipe.
  void run();

  double elapsedSeconds() const;

  // Stops the source. While it does not answer, says so. False when the user did not wait for it.
  bool stopSource();

  // Whether to go on waiting for a reader of the output that has taken nothing for this time.
  // Reports lost samples and the wait itself.
  bool isWorthWaiting(std::chrono::steady_clock::duration stalled, const std::string& reader);

 private:
  using Clock = std::chrono::steady_clock;

  void fetchUntilTheEnd();
  bool ask(const std::function<bool()>& call);
  void noteAnswer();
  void take(Blocks blocks);
  void drain();
  std::optional<double> silentSeconds() const;
  void showSilence();
  std::string silenceText(double seconds) const;
  void waitUntil(Clock::time_point time);
  bool isOver() const;
  int descriptor() const;
  std::chrono::milliseconds updateInterval() const;
  Clock::time_point nextDue(Clock::time_point due) const;
  RunStatus status();
  void warnOfLoss();

  const RunOptions& options_;
  EventSource& source_;
  Delivery& delivery_;
  const Interaction* interaction_;
  const BlockConsumer take_ = [this](Blocks blocks) { take(blocks); };
  Announcements announcements_;
  bool warned_of_loss_ = false;
  Clock::time_point start_;
  Clock::time_point end_;
  std::optional<Clock::time_point> reader_is_last_since_;  // the run is over, apart from the reader
  bool said_stalled_ = false;
  std::optional<Clock::time_point> asked_;  // the source, which has not answered since then
  Clock::duration answering_{};             // how long the source has taken for its answers
  std::uint64_t fetches_ = 0;
  bool said_silent_ = false;
  Clock::time_point last_redraw_;
};

}  // namespace tev::host
