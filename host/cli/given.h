#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "host/capture/capture_options.h"
#include "host/metrics/listen_address.h"

namespace tev::host {

// Texts that can be interpreted only when all options are known.
struct Given {
  std::optional<std::string> plugin;
  std::string config;
  std::string scenario;
  std::string log_level;
  CaptureOptions capture;
  std::optional<ListenAddress> prometheus;
  std::optional<std::chrono::seconds> prometheus_peak;
};

}  // namespace tev::host
