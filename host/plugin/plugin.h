// The library of a provider plug-in, used only through its public interface (tev/event_provider.h).
#pragma once

#include <string>

#include "tev/event_provider.h"
#include "tev/logger.h"

namespace tev::host {

// It stays loaded until the process ends, because its code may still have to run at that time.
class Plugin {
 public:
  // Throws RunError when it cannot be loaded or is not a plug-in.
  explicit Plugin(const std::string& path);
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  // Makes the plug-in use this process's logger. A plug-in that does not export the function for
  // this continues to use its own logger.
  void shareLogger() const;
  bool sharesLogger() const { return register_logger_ != nullptr; }

  tev_construct_event_provider_t construct() const { return construct_; }

  // Null when the plug-in does not export them.
  tev_multipath_get_sample_counts_t getSampleCounts() const { return get_sample_counts_; }
  tev_multipath_get_ledger_t getLedger() const { return get_ledger_; }
  tev_multipath_get_option_t getOption() const { return get_option_; }
  tev_multipath_get_device_info_t getDeviceInfo() const { return get_device_info_; }

 private:
  template <class Function>
  void find(const char* name, Function& function);

  void* handle_;
  tev_construct_event_provider_t construct_ = nullptr;
  int (*register_logger_)(const tev_logger_ctx_t*) = nullptr;
  tev_multipath_get_sample_counts_t get_sample_counts_ = nullptr;
  tev_multipath_get_ledger_t get_ledger_ = nullptr;
  tev_multipath_get_option_t get_option_ = nullptr;
  tev_multipath_get_device_info_t get_device_info_ = nullptr;
};

}  // namespace tev::host
