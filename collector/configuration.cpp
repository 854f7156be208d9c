#include "collector/configuration.h"

#include "collector/options.h"
#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

const char* valueOf(const tev_custom_options* options, const Option& option) {
  const char* const value = tev_dict_get(options, option.key);
  return value ? value : option.default_value;
}

std::uint64_t numberOf(const tev_custom_options* options, const Option& option) {
  return std::stoull(valueOf(options, option));
}

}  // namespace

Configuration readConfiguration(const tev_custom_options* options) {
  Configuration configuration;
  configuration.sample_interval_usec = numberOf(options, kSampleInterval);
  configuration.max_buffer_size = numberOf(options, kMaxBufferSize);
  configuration.update_msec = numberOf(options, kUpdate);
  configuration.clear_sampled_counters =
      tev_string_to_boolean(valueOf(options, kClearSampledCounters));
  configuration.sampling_threads = numberOf(options, kSamplingThreads);
  configuration.sdk_log_level = valueOf(options, kSdkLogLevel);
  configuration.devices = valueOf(options, kDevices);
  return configuration;
}

void logConfiguration(const Configuration& configuration) {
  TEV_LOG_INFO("[multipath] collector configuration:");
  TEV_LOG_INFO("[multipath] \tsample interval: %lu usec", configuration.sample_interval_usec);
  TEV_LOG_INFO("[multipath] \tmax buffer size: %lu", configuration.max_buffer_size);
  TEV_LOG_INFO("[multipath] \tclear sampled counters: %s",
               boolean_to_string(configuration.clear_sampled_counters));
  if (configuration.sampling_threads != 1)
    TEV_LOG_INFO("[multipath] \tsampling threads: %lu", configuration.sampling_threads);
  TEV_LOG_INFO("[multipath] \tmultipath devices: %s",
               configuration.devices.empty() ? "all" : configuration.devices.c_str());
}

}  // namespace tev::events::multipath
