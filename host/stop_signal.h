#pragma once

#include <chrono>

namespace tev::host {

// Turns SIGINT, SIGTERM and SIGHUP into a request to stop, which also ends waiting. Whoever asks a
// third time ends the process the hard way. SIGPIPE is ignored: writing reports it. One at a time.
class StopSignal {
 public:
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  // How often it was asked.
  static int requests();

  // Returns when the time has come, or at once when asked to stop: true then.
  static bool waitUntil(std::chrono::steady_clock::time_point time);
};

}  // namespace tev::host
