#pragma once

#include <chrono>

#include "host/metrics/listen_address.h"

namespace tev::host {

struct PrometheusOptions {
  ListenAddress address;
  std::chrono::seconds peak{60};  // over which time the extremes of single samples are given
};

}  // namespace tev::host
