#include "collector/configuration.h"

#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

const char* valueOr(const tev_custom_options* options, const char* key, const char* fallback) {
  const char* const value = tev_dict_get(options, key);
  return value ? value : fallback;
}

std::uint64_t number(const tev_custom_options* options, const char* key, const char* fallback) {
  return std::stoull(valueOr(options, key, fallback));
}

}  // namespace

Configuration readConfiguration(const tev_custom_options* options) {
  Configuration configuration;
  configuration.sample_interval_usec = number(options, "multipath-sample-interval-usec", "1000000");
  configuration.max_buffer_size = number(options, "multipath-max-buffer-size", "0");
  configuration.update_msec = number(options, "update", "1000");
  configuration.clear_sampled_counters =
      tev_string_to_boolean(valueOr(options, "multipath-clear-sampled-counters", "false"));
  configuration.sdk_log_level = valueOr(options, "multipath-sdk-log-level", "warning");
  configuration.devices = valueOr(options, "multipath-devices", "");
  return configuration;
}

void logConfiguration(const Configuration& configuration) {
  TEV_LOG_INFO("[multipath] collector configuration:");
  TEV_LOG_INFO("[multipath] \tsample interval: %lu usec", configuration.sample_interval_usec);
  TEV_LOG_INFO("[multipath] \tmax buffer size: %lu", configuration.max_buffer_size);
  TEV_LOG_INFO("[multipath] \tclear sampled counters: %s",
               boolean_to_string(configuration.clear_sampled_counters));
  TEV_LOG_INFO("[multipath] \tmultipath devices: %s",
               configuration.devices.empty() ? "all" : configuration.devices.c_str());
}

}  // namespace tev::events::multipath
