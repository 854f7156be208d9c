#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "collector/api.h"
#include "collector/clock.h"
#include "collector/configuration.h"
#include "collector/event_buffer.h"
#include "collector/event_layout.h"
#include "collector/slot_info.h"
#include "src/device_utils/host_roots.h"
#include "src/support/malloc_ptr.h"
#include "tev/dict.h"
#include "tev/event_provider.h"
#include "tev/export.h"

namespace tev::events::multipath {

class DeviceSelection;

// What the collector takes from the world around it besides the host's options.
struct Surroundings {
  const SdkFunctions* sdk = nullptr;  // null: opened by path, as the options say
  Clock* clock = &Clock::system();
  common::HostRoots roots{};  // of /sys and /dev
};

// Samples the multipath counters of the machine's adapters on a thread of its own.
//
// Life: construct, initialize, start, getData again and again, stop, destroy. All of it on one
// thread of the host's; the sampling thread shares with it only what is marked below.
class Collector {
 public:
  // One device that is being sampled: open, its multipath context created and started.
  struct DevCtx {
    // A half of the double buffer: the device events and the plane events of the same samples.
    struct Half {
      std::shared_ptr<EventBuffer> device;
      std::shared_ptr<EventBuffer> plane;
    };

    TEV_API DevCtx(vuna_dev* device, vuna_telemetry_mp* context, std::string name);

    Half& filling() { return halves[first_pair_active ? 0 : 1]; }
    Half& handedOut() { return halves[first_pair_active ? 1 : 0]; }

    SlotInfo slot_info;
    vuna_dev* device;            // given back by the collector, not by the destructor
    vuna_telemetry_mp* context;  // the same
    std::string name;            // of the network interface, or else of the RDMA device
    EventLayout device_layout;
    EventLayout plane_layout;
    std::array<Half, 2> halves;     // guarded by the collector's mutex once the thread runs
    bool first_pair_active = true;  // the same
    tev_multipath_sample_counts_t counts{};  // written by the sampling thread, read by any
  };

  // Binds the SDK and reads the options. std::runtime_error when the SDK cannot be bound,
  // std::invalid_argument or std::out_of_range for a number that is none.
  TEV_API explicit Collector(const tev_custom_options* options);
  Collector(const tev_custom_options* options, const Surroundings& surroundings);

  // Gives back every device. `stop` must have been called: a thread that still runs ends the
  // process.
  TEV_API ~Collector();
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

  // Selects and opens the devices and makes their buffers. False when no device qualifies. What it
  // throws (memory, sizes, plane numbers) leaves no device open.
  TEV_API bool initialize();

  // Starts and ends sampling. Always true; `start` throws std::system_error without a thread, and
  // std::bad_alloc without room for what the devices say they may fill in.
  TEV_API bool start();
  TEV_API bool stop();

  // Appends, per device in order, the buffers filled since the last call; sampling goes on in the
  // others, emptied: what the host has not read of them is dropped. The buffers stay the
  // collector's and do not change until the next call. Waits for at most one pass.
  TEV_API void getData(std::vector<EventBuffer*>& device_buffers,
                       std::vector<EventBuffer*>& plane_buffers);

  std::size_t numDevices() const { return devices_.size(); }
  const std::vector<DevCtx>& devices() const { return devices_; }

  // What became of the samples of the device at `index`. Any thread; waits for nothing.
  tev_multipath_sample_counts_t sampleCounts(std::size_t index) const;

  // The fields of a device's events, in a new array that the caller releases with delete[]. The
  // texts are valid until clearEventFieldStorage().
  TEV_API tev_type_field_info_t* getDeviceEventFields(unsigned long device_index,
                                                      unsigned long& num_fields);
  TEV_API tev_type_field_info_t* getPlaneEventFields(unsigned long device_index,
                                                     unsigned long& num_fields);
  TEV_API void clearEventFieldStorage();

  // The steps of `initialize`, in its order.
  TEV_API bool setDevices(const std::string& devices);
  TEV_API void getRdmaDevNameToNetworkInterfaceMap(std::map<std::string, std::string>& map);
  TEV_API bool setActiveAlgoSlotInfo(DevCtx& dev);
  TEV_API bool setSlotInfo(DevCtx& dev, unsigned char slot, const vuna_devinfo* devinfo,
                           unsigned int algo_id);
  TEV_API void parseCounterMeta(SlotInfo& slot);
  TEV_API void setFieldsLengths();
  TEV_API void setDataBuffers();

  // The body of the sampling thread.
  TEV_API void collectData();

  // One pass over all devices, which the thread makes with the mutex held. `values` has room for
  // what any device fills in.
  void samplePass(std::uint32_t* values);

  // Routes the SDK's own log to standard error, at the level that a word names. Once per process.
  TEV_API void setSDKLogs(const std::string& level);

 private:
  void tryDevice(vuna_devinfo* listed, std::uint32_t index, const DeviceSelection& selection,
                 const std::map<std::string, std::string>& interfaces);
  void giveBackDevices() noexcept;

  void makeRoomForValues();
  void sampleDevice(DevCtx& dev, std::uint32_t* values);
  void waitForNextPass(Clock::TimePoint& due, std::unique_lock<std::mutex>& lock);

  Api api_;  // first: bound before all else, unbound after it
  vuna_devinfo** device_list_ = nullptr;
  std::vector<DevCtx> devices_;  // not changed while the thread runs
  Configuration configuration_;
  Clock& clock_;
  common::HostRoots roots_;
  std::size_t device_name_length_ = 0;  // bytes of the name field of every event

  std::mutex mutex_;  // held for a whole pass, and for a whole swap
  // The sampling thread's. Two, so that a swap does not wake it from its interval.
  std::condition_variable wake_;     // between passes: to stop
  std::condition_variable swapped_;  // while a swap is let in: it is done, or to stop
  std::atomic<bool> running_{false};
  std::atomic<std::uint32_t> swaps_waiting_{0};
  std::uint64_t swaps_done_ = 0;              // guarded by mutex_
  support::MallocPtr<std::uint32_t> values_;  // the sampling thread's: one read of one device
  std::thread sampling_thread_;
};

}  // namespace tev::events::multipath
