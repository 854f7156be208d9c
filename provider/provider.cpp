#include "provider/provider.h"

#include <algorithm>

#include "provider/event_types.h"
#include "src/data/serializer/block_writer.h"
#include "src/support/clock.h"
#include "src/support/log_throttle.h"
#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

support::LogThrottle collector_failure_throttle;

bool isEmpty(const EventBuffer* buffer) {
  return buffer->num_events == 0;
}

// Writes what the host has not been given yet, event by event, until the serializer takes no more.
// The last answer of the writer; 1 when all is written. What does not change from one event to the
// next is held here: the compiler must take every write to the host's buffer for a change.
int writeEvents(EventBuffer& buffer, common::BlockWriter writer) {
  const std::uint64_t event_size = buffer.event_size;
  const std::byte* event = buffer.at(buffer.read_index);
  const std::uint64_t* const timestamps = buffer.timestamps.data();
  const std::uint64_t* timestamp = timestamps + buffer.read_index;
  const std::uint64_t* const end = timestamps + buffer.num_events;
  int written = 1;
  for (; timestamp < end; ++timestamp, event += event_size) {
    written = writer.write(event, 1, *timestamp);
    if (written <= 0) break;
  }
  buffer.read_index = static_cast<std::uint64_t>(timestamp - timestamps);
  return written;
}

bool allSet(const std::vector<bool>& flags) {
  return std::find(flags.begin(), flags.end(), false) == flags.end();
}

}  // namespace

Provider::Provider(const tev_custom_options* options, const Surroundings& surroundings)
    : collector_(std::make_shared<Collector>(options, surroundings)) {}

bool Provider::initialize(tev_event_provider_t* provider, tev_type_system_t* type_system) {
  if (!collector_->initialize()) {
    if (tev_log_enabled(TEV_LEVEL_INFO) &&
        collector_failure_throttle.admit(support::realtimeUsec()))
      TEV_LOG_INFO("[multipath] Failed to initialize collector");
    return false;
  }
  const std::size_t num_devices = collector_->numDevices();
  if (num_devices == 0) {
    TEV_LOG_ERROR("[multipath] No devices found");
    return false;
  }
  tev_schema_t* const schema =
      tev_type_system_add_schema(type_system, provider->name, provider->version, &schema_index_);
  if (!schema) {
    TEV_LOG_ERROR("[multipath] Failed to add schema");
    return false;
  }

  EventTypes device_types(kDeviceEvents);
  EventTypes plane_types(kPlaneEvents);
  for (std::size_t device = 0; device < num_devices; ++device) {
    unsigned long count = 0;
    std::unique_ptr<tev_type_field_info_t[]> fields(
        collector_->getDeviceEventFields(device, count));
    device_types.add(std::move(fields), count);
    fields.reset(collector_->getPlaneEventFields(device, count));
    plane_types.add(std::move(fields), count);
  }
  const bool registered = device_types.registerAll(*schema) && plane_types.registerAll(*schema);
  device_type_ids_ = device_types.idsByDevice();
  plane_type_ids_ = plane_types.idsByDevice();
  device_types.releaseFields();
  plane_types.releaseFields();
  collector_->clearEventFieldStorage();
  if (!registered) return false;

  collector_->start();
  return true;
}

void Provider::stop() {
  collector_->stop();
}

// False, with nothing pending, when the collector hands out something else than a pair per device.
bool Provider::takeBatch() {
  // All that may throw comes first: a batch that is pending has its flags.
  const std::size_t num_devices = collector_->numDevices();
  device_done_.assign(num_devices, false);
  plane_done_.assign(num_devices, false);
  collector_->getData(device_buffers_, plane_buffers_);
  if (device_buffers_.size() != num_devices || plane_buffers_.size() != num_devices) {
    TEV_LOG_ERROR("[multipath] Unexpected number of event buffers from collector");
    dropBatch();
    return false;
  }
  for (std::size_t device = 0; device < num_devices; ++device) {
    device_done_[device] = isEmpty(device_buffers_[device]);
    plane_done_[device] = isEmpty(plane_buffers_[device]);
  }
  return true;
}

void Provider::dropBatch() {
  device_buffers_.clear();
  plane_buffers_.clear();
  device_done_.clear();
  plane_done_.clear();
}

int Provider::progress(unsigned short /*source_index*/, tev_data_serializer_t* serializer) {
  if (device_buffers_.empty() && plane_buffers_.empty()) {
    if (!takeBatch()) return TEV_PROGRESS_FAILED;
    if (allSet(device_done_) && allSet(plane_done_)) {
      dropBatch();
      return TEV_PROGRESS_DONE;
    }
  }
  int result = writeBuffers("device", device_buffers_, device_done_, device_type_ids_, serializer);
  if (result == TEV_PROGRESS_DONE)
    result = writeBuffers("plane", plane_buffers_, plane_done_, plane_type_ids_, serializer);
  if (result == TEV_PROGRESS_DONE) dropBatch();
  return result;
}

int Provider::writeBuffers(const char* kind, std::vector<EventBuffer*>& buffers,
                           std::vector<bool>& done, const std::vector<std::uint8_t>& type_ids,
                           tev_data_serializer_t* serializer) {
  for (std::size_t device = 0; device < buffers.size(); ++device) {
    if (done[device]) continue;
    EventBuffer& buffer = *buffers[device];
    const int written = writeEvents(buffer, {serializer, schema_index_, type_ids[device]});
    if (written < 0) {
      TEV_LOG_ERROR("[multipath] Failed to write %s event for device %zu", kind, device);
      return TEV_PROGRESS_FAILED;
    }
    if (written == 0) return TEV_PROGRESS_FULL;
    done[device] = true;
  }
  return TEV_PROGRESS_DONE;
}

}  // namespace tev::events::multipath
