#pragma once

#include <chrono>
#include <cstdint>
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
  std::optional<std::string> source;
  std::optional<std::uint64_t> queue_bytes;
  std::optional<std::string> spool;
  std::optional<std::uint64_t> spool_bytes;
  std::optional<std::uint64_t> range_bytes;
  std::optional<std::uint64_t> range_messages;
  std::optional<std::uint64_t> range_seconds;
};

}  // namespace tev::host
