#pragma once

#include <cstdint>
#include <string>

#include "tev/dict.h"

namespace tev::events::multipath {

// What the host's options say to the collector.
struct Configuration {
  std::uint64_t sample_interval_usec = 0;
  std::uint64_t max_buffer_size = 0;  // bytes per buffer of a device; 0: follows from the rates
  std::uint64_t update_msec = 0;      // sizes the buffers, nothing else
  bool clear_sampled_counters = false;
  std::string sdk_log_level;
  std::string devices;  // unparsed; empty: every device
};

// Missing options take their defaults. std::invalid_argument or std::out_of_range, both with the
// message "stoull", for a number that is none or exceeds 64 bits.
Configuration readConfiguration(const tev_custom_options* options);

// Logs the summary at info level.
void logConfiguration(const Configuration& configuration);

}  // namespace tev::events::multipath
