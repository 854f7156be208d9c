#pragma once

#include <chrono>

namespace tev::host {

// Converts SIGINT, SIGTERM and SIGHUP to a request to stop, which also ends waitUntil(). The third
// signal ends the process. SIGPIPE is ignored, because a write reports the closed pipe. At most one
// instance may exist.
class StopSignal {
 public:
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  // The number of signals so far.
  static int requests();

  // Returns false at this time, or true as soon as there is a request to stop.
  static bool waitUntil(std::chrono::steady_clock::time_point time);
};

}  // namespace tev::host
