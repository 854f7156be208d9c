#include "host/support/last_wait.h"

#include <fmt/format.h>

#include <utility>

#include "host/support/log.h"
#include "host/support/stop_signal.h"

namespace tev::host {
namespace {

constexpr std::chrono::seconds kUsual{1};

}  // namespace

LastWait::LastWait(std::string what)
    : what_(std::move(what)), requests_before_(StopSignal::requests() > 0 ? 1 : 0) {}

bool LastWait::isCutShort() {
  const auto waited = std::chrono::steady_clock::now() - start_;
  if (waited < kUsual) return false;
  if (StopSignal::requests() > requests_before_) return true;
  if (!std::exchange(said_, true))
    Log::instance().say(fmt::format("tev-host: waiting for {}; Ctrl-C ends the wait", what_));
  if (waited < kLongest) return false;
  Log::instance().say(
      fmt::format("tev-host: waited {} s for {}: the program ends now", kLongest.count(), what_));
  return true;
}

}  // namespace tev::host
