#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "collector/api.h"
#include "collector/clock.h"
#include "collector/configuration.h"
#include "collector/event_buffer.h"
#include "collector/listed_device.h"
#include "collector/sampled_device.h"
#include "collector/samplers.h"
#include "collector/slot_info.h"
#include "src/device_utils/host_roots.h"
#include "tev/dict.h"
#include "tev/event_provider.h"
#include "tev/export.h"

namespace tev::events::multipath {

// What the collector uses besides the host's options. Tests replace it.
struct Surroundings {
  const SdkFunctions* sdk = nullptr;  // null: the library that the options name is opened
  Clock* clock = &Clock::system();
  common::HostRoots roots{};  // of /sys and /dev
};

// Samples the multipath counters of the machine's adapters: finds the devices, lays out their
// events, and runs the samplers that fill the buffers.
//
// Order of calls: construct, initialize, start, getData repeatedly, stop, destroy. One thread of
// the host makes all calls.
class Collector {
 public:
  // One device that is being sampled: open, its multipath context created and started.
  struct DevCtx {
    TEV_API DevCtx(vuna_dev* device, vuna_telemetry_mp* context, std::string name);

    SlotInfo slot_info;
    vuna_dev* device;            // released by the collector, not by the destructor
    vuna_telemetry_mp* context;  // the same
    std::string name;            // of the network interface, or else of the RDMA device
    std::string reason;          // why it is left out, when its slots cannot be read
    std::size_t listed = 0;      // place in the SDK's list
    SampledDevice sampled;       // set up by setDataBuffers()
  };

  // Binds the SDK and reads the options. Throws std::runtime_error when the SDK cannot be bound,
  // std::invalid_argument for an option that is not a number, and std::out_of_range for a number
  // that is too large.
  TEV_API explicit Collector(const tev_custom_options* options);
  Collector(const tev_custom_options* options, const Surroundings& surroundings);

  // Releases every device. `stop` must have been called before. If the thread still runs, the
  // process ends after a line in the log.
  TEV_API ~Collector();
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

  // Selects and opens the devices and allocates their buffers. A device that gives invalid
  // answers is excluded. Returns false when no device remains. When it throws (memory, sizes),
  // all devices are closed.
  TEV_API bool initialize();

  // Releases every device, so that `initialize` can be called again. Sampling must not run.
  void giveBackDevices() noexcept;

  // Start and end sampling. Always return true. `start` throws std::system_error when a thread
  // cannot be created; none of them runs then.
  TEV_API bool start();
  TEV_API bool stop();

  // Appends, for each device in order, the buffers that were filled since the last call. Sampling
  // continues in the other buffers, which are emptied: events in them that the host has not read
  // are dropped. The collector still owns the returned buffers and does not change them until the
  // next call. Waits for at most one pass. With several sampling threads, a device whose thread
  // does not answer in time has empty buffers, and its samples come with a later call.
  TEV_API void getData(std::vector<EventBuffer*>& device_buffers,
                       std::vector<EventBuffer*>& plane_buffers);

  std::size_t numDevices() const { return devices_.size(); }
  const std::vector<DevCtx>& devices() const { return devices_; }

  // The ledger of the device at `index`. May be called from any thread; does not block.
  tev_multipath_ledger_t ledger(std::size_t index) const;

  // The devices that the SDK listed for the last `initialize`, in the order of the list.
  const std::vector<ListedDevice>& listed() const { return listed_; }

  // Describes the listed device at `index`, except for the types of its events. The texts are
  // valid until the next `initialize`.
  tev_multipath_device_info_t deviceInfo(std::size_t index) const;

  // Whether a sampling thread has ended by an exception. May be called from any thread.
  bool samplingFailed() const { return samplers_.hasFailed(); }

  // The fields of a device's events, in a new array that the caller releases with delete[]. The
  // texts are valid until clearEventFieldStorage().
  TEV_API tev_type_field_info_t* getDeviceEventFields(unsigned long device_index,
                                                      unsigned long& num_fields);
  TEV_API tev_type_field_info_t* getPlaneEventFields(unsigned long device_index,
                                                     unsigned long& num_fields);
  TEV_API void clearEventFieldStorage();

  // The steps of `initialize`, in the order in which it takes them.
  TEV_API bool setDevices(const std::string& devices);
  TEV_API void getRdmaDevNameToNetworkInterfaceMap(std::map<std::string, std::string>& map);
  TEV_API bool setActiveAlgoSlotInfo(DevCtx& dev);
  TEV_API bool setSlotInfo(DevCtx& dev, unsigned char slot, const vuna_devinfo* devinfo,
                           unsigned int algo_id);
  TEV_API void parseCounterMeta(SlotInfo& slot);
  void makeRoomForValues();
  TEV_API void setFieldsLengths();
  TEV_API void setDataBuffers();

  // The body of the first sampling thread: passes, until `stop`.
  TEV_API void collectData();

  // Makes one pass over all devices, on the caller's thread.
  void samplePass() { samplers_.samplePass(); }

  // Routes the SDK's own log to standard error, at the level named by the option. Done once per
  // process.
  TEV_API void setSDKLogs(const std::string& level);

 private:
  bool keepDevice(vuna_dev* device, vuna_telemetry_mp* context, ListedDevice& listed);
  void giveBack(const DevCtx& dev) noexcept;

  Api api_;  // the first member: bound before all others, unbound after them
  vuna_devinfo** device_list_ = nullptr;
  std::vector<ListedDevice> listed_;
  std::vector<DevCtx> devices_;
  Configuration configuration_;
  common::HostRoots roots_;
  std::size_t device_name_length_ = 0;  // bytes of the name field of every event
  Samplers samplers_;
};

}  // namespace tev::events::multipath
