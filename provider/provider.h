#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "collector/collector.h"
#include "tev/event_provider.h"
#include "tev/export.h"

namespace tev::events::multipath {

// What the record's `context` points at: the collector, the event types it delivers, and the batch
// that is being delivered. Host thread only.
class Provider {
 public:
  // Throws what the collector's construction throws.
  explicit Provider(const tev_custom_options* options, const Surroundings& surroundings = {});

  // Prepares the devices, adds the record's schema and one type per distinct layout to the type
  // system, and starts sampling. On false no sampling goes on; what was added to the type system
  // stays.
  TEV_API bool initialize(tev_event_provider_t* provider, tev_type_system_t* type_system);

  // Writes the events of a batch, the device events first; a batch that does not fit is resumed by
  // the next call at the same event. TEV_PROGRESS_...
  TEV_API int progress(unsigned short source_index, tev_data_serializer_t* serializer);

  TEV_API void stop();

  Collector& collector() const { return *collector_; }

 private:
  bool takeBatch();
  int writeBuffers(const char* kind, std::vector<EventBuffer*>& buffers, std::vector<bool>& done,
                   const std::vector<std::uint8_t>& type_ids, tev_data_serializer_t* serializer);
  void dropBatch();

  std::shared_ptr<Collector> collector_;
  std::vector<std::uint8_t> device_type_ids_;  // per device
  std::vector<std::uint8_t> plane_type_ids_;   // per device
  // The batch: buffers lent by the collector until the next hand-off. Empty: none is pending.
  std::vector<EventBuffer*> device_buffers_;
  std::vector<bool> device_done_;
  std::vector<EventBuffer*> plane_buffers_;
  std::vector<bool> plane_done_;
  std::uint8_t schema_index_ = 0;
};

}  // namespace tev::events::multipath
