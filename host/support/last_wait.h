#pragma once

#include <chrono>
#include <string>

namespace tev::host {

// A wait at the end of a run, which the user may cut short. The first request to stop, or the end
// of the run without one, has begun it. A further request cuts it short, but not in its first
// second, and so does the end of kLongest.
class LastWait {
 public:
  static constexpr std::chrono::seconds kLongest{10};

  // `what` completes the sentence "waiting for ...".
  explicit LastWait(std::string what);

  // After a second, says what it waits for, and at the end of kLongest, what has not ended. After
  // true, it is not to be asked again.
  bool isCutShort();

 private:
  std::string what_;
  int requests_before_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  bool said_ = false;
};

}  // namespace tev::host
