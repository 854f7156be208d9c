#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/events/event_source.h"
#include "host/plugin/device_info.h"
#include "host/plugin/plugin.h"
#include "host/plugin/read_watch.h"

namespace tev::host {

// The plug-in's provider, from construction to release, all on one thread.
class Provider {
 public:
  // Throws RunError when the record lacks an entry point. When the plug-in refuses, the object
  // converts to false, and only its destructor may be called.
  Provider(const Plugin& plugin, const tev_custom_options* options);

  // Stops the provider, unless it is stopped already, and releases it.
  ~Provider();
  Provider(const Provider&) = delete;
  Provider& operator=(const Provider&) = delete;

  explicit operator bool() const { return record_ != nullptr; }
  std::string name() const { return record_->name ? record_->name : ""; }
  std::string version() const;  // three numbers

  bool initialize(tev_type_system_t* type_system);
  bool start();
  int progress(tev_data_serializer_t* serializer);
  bool stop();  // does nothing the second time

  // For all devices; nothing when the plug-in does not count.
  std::optional<std::vector<DeviceCounts>> deviceCounts() const;

  // The devices that the SDK lists, also after initialize() failed; nothing when the plug-in does
  // not describe them.
  std::optional<std::vector<DeviceInfo>> deviceInfos() const {
    return readDeviceInfos(plugin_.getDeviceInfo(), record_);
  }

  // For all devices; empty when the plug-in does not report them.
  std::vector<DeviceReads> deviceReads() const;

 private:
  // False when there is no such device.
  bool readCounts(std::uint32_t device_index, DeviceCounts& counts) const;

  const Plugin& plugin_;
  tev_event_provider_t* record_;
  bool must_stop_ = false;
};

}  // namespace tev::host
