// A provider plug-in, known by its public interface alone (tev/event_provider.h).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tev/event_provider.h"
#include "tev/logger.h"

namespace tev::host {

// The loaded library. It stays loaded until the process ends: it may have left something behind
// that is yet to run then.
class Plugin {
 public:
  // Throws RunError when it cannot be loaded or is no plug-in.
  explicit Plugin(const std::string& path);
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  // Has the plug-in log as this process does now. A plug-in that cannot be told goes on as it
  // likes.
  void shareLogger() const;
  bool sharesLogger() const { return register_logger_ != nullptr; }

 private:
  friend class Provider;

  template <class Function>
  void find(const char* name, Function& function);

  void* handle_;
  tev_construct_event_provider_t construct_ = nullptr;
  int (*register_logger_)(const tev_logger_ctx_t*) = nullptr;      // null: it has none
  tev_multipath_get_sample_counts_t get_sample_counts_ = nullptr;  // the same
};

struct DeviceCounts {
  std::string device;
  tev_multipath_sample_counts_t counts{};
};

// The plug-in's provider, from construction to release, all on one thread.
class Provider {
 public:
  // Throws RunError when the record lacks an entry point. Nothing is there when the plug-in
  // refused.
  Provider(const Plugin& plugin, const tev_custom_options* options);

  // Stops it if need be, and releases it.
  ~Provider();
  Provider(const Provider&) = delete;
  Provider& operator=(const Provider&) = delete;

  explicit operator bool() const { return record_ != nullptr; }
  std::string name() const { return record_->name ? record_->name : ""; }

  bool initialize(tev_type_system_t* type_system);
  bool start();
  int progress(tev_data_serializer_t* serializer);
  bool stop();

  // Of all devices; nothing when the plug-in does not count.
  std::optional<std::vector<DeviceCounts>> sampleCounts() const;

 private:
  const Plugin& plugin_;
  tev_event_provider_t* record_;
  bool samples_ = false;  // is to be stopped
};

}  // namespace tev::host
