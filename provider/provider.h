#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "collector/collector.h"
#include "src/support/process_id.h"
#include "tev/event_provider.h"
#include "tev/export.h"

namespace tev::events::multipath {

// The object to which the record's `context` points: the collector, the event types that it
// delivers, and the batch that is being delivered. Used on the host's thread only.
class Provider {
 public:
  // Throws what the collector's construction throws.
  explicit Provider(const tev_custom_options* options, const Surroundings& surroundings = {});

  // Prepares the devices, adds the record's schema and one type per distinct layout to the type
  // system, and starts sampling. When it returns false or throws, every device has been released;
  // additions to the type system remain. A provider that already samples returns false and
  // continues to sample.
  TEV_API bool initialize(tev_event_provider_t* provider, tev_type_system_t* type_system);

  // Writes the events of a batch, the device events first. If the batch does not fit, the next
  // call continues at the same event. Returns TEV_PROGRESS_...
  TEV_API int progress(unsigned short source_index, tev_data_serializer_t* serializer);

  TEV_API void stop();

  // Describes a device that the SDK listed. `index` must be below the number of these devices.
  tev_multipath_device_info_t deviceInfo(std::size_t index) const;

  // False in a child of the process that constructed the provider, which is logged once.
  bool isInItsProcess();

  Collector& collector() const { return *collector_; }

 private:
  bool takeBatch();
  int writeBuffers(const char* kind, std::vector<EventBuffer*>& buffers, std::vector<bool>& done,
                   const std::vector<std::uint8_t>& type_ids, tev_data_serializer_t* serializer);
  void warnWhenTooSmall(const tev_data_serializer_t* serializer, std::uint64_t event_size) const;
  void dropBatch();
  int deliver(tev_data_serializer_t* serializer);
  bool registerTypes(tev_event_provider_t* provider, tev_type_system_t* type_system);

  std::shared_ptr<Collector> collector_;
  std::vector<std::uint8_t> device_type_ids_;  // per device
  std::vector<std::uint8_t> plane_type_ids_;   // per device

  // The batch: buffers that the collector owns, and that may be used until the next swap. Empty
  // when no batch is pending.
  std::vector<EventBuffer*> device_buffers_;
  std::vector<bool> device_done_;
  std::vector<EventBuffer*> plane_buffers_;
  std::vector<bool> plane_done_;
  std::uint8_t schema_index_ = 0;
  support::ProcessId process_;
  bool said_foreign_ = false;
};

}  // namespace tev::events::multipath
