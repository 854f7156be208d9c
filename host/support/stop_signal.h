#pragma once

#include <chrono>
#include <exception>

namespace tev::host {

// A wait ended without its result, because of a request to stop.
class Interrupted : public std::exception {
 public:
  const char* what() const noexcept override { return "interrupted"; }
};

enum class HangUp {
  stops,
  counts,  // unless the terminal of the process is lost
};

// Converts SIGINT, SIGTERM and SIGHUP to a request to stop, which also ends waitUntil(). The third
// signal puts the terminal back and ends the process. If it is to be so, SIGHUP is only counted, as
// long as the terminal that the process had at the beginning exists. SIGPIPE and SIGXFSZ are
// ignored, because a write reports the closed pipe and the limit of the file's size. At most one
// instance may exist.
class StopSignal {
 public:
  explicit StopSignal(HangUp hang_up = HangUp::stops);
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  // The number of signals so far.
  static int requests();

  // The number of those that were only counted.
  static int hangUps();

  // Requests to stop, as a signal does.
  static void request();

  // Returns at this time, as soon as there is a request to stop, and after wake(). Also when
  // `descriptor` is readable; then returns true. That its other end is closed is a request to stop.
  static bool waitUntil(std::chrono::steady_clock::time_point time, int descriptor = -1);

  // Ends the current or the next waitUntil(). Async-signal-safe.
  static void wake();
};

}  // namespace tev::host
