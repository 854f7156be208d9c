#pragma once

#include <cstdint>
#include <string>

#include "tev/dict.h"

namespace tev::events::multipath {

// The collector's settings, read from the host's options.
struct Configuration {
  std::uint64_t sample_interval_usec = 0;
  std::uint64_t max_buffer_size = 0;  // bytes per buffer of a device; 0: from interval and update
  std::uint64_t update_msec = 0;      // only determines the size of the buffers
  bool clear_sampled_counters = false;
  std::uint64_t sampling_threads = 1;  // 0: one for each device
  std::string sdk_log_level;
  std::string devices;  // unparsed; empty: every device
};

// Missing options have their defaults. Throws std::invalid_argument for a text that is not a number
// and std::out_of_range for a number beyond 64 bits, both with the message "stoull".
Configuration readConfiguration(const tev_custom_options* options);

// Logs the summary at info level.
void logConfiguration(const Configuration& configuration);

}  // namespace tev::events::multipath
