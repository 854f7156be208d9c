// The part of a run from the first fetch to the last.
#pragma once

#include <chrono>

#include "host/commands/announcements.h"
#include "host/commands/run_options.h"
#include "host/events/event_source.h"
#include "host/outputs/delivery.h"

namespace tev::host {

class Sampling {
 public:
  // The arguments must outlive this.
  Sampling(const RunOptions& options, EventSource& source, Delivery& delivery,
           const Figures& figures);

  // Throws RunError and ClosedPipe.
  void run();

  double elapsedSeconds() const;

 private:
  using Clock = std::chrono::steady_clock;

  void fetchUntilTheEnd();
  void waitUntil(Clock::time_point time);
  bool isOver() const;
  Clock::time_point nextDue(Clock::time_point due) const;
  RunStatus status();
  void warnOfLoss();

  const RunOptions& options_;
  EventSource& source_;
  Delivery& delivery_;
  const BlockConsumer take_ = [this](Blocks blocks) { delivery_.take(blocks); };
  Announcements announcements_;
  bool warned_of_loss_ = false;
  Clock::time_point start_;
  Clock::time_point end_;
};

}  // namespace tev::host
