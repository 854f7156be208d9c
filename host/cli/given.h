#pragma once

#include <optional>
#include <string>

#include "host/capture/capture_options.h"

namespace tev::host {

// Texts that can be interpreted only when all options are known.
struct Given {
  std::optional<std::string> plugin;
  std::string config;
  std::string scenario;
  std::string log_level;
  CaptureOptions capture;
};

}  // namespace tev::host
