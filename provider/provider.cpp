#include "provider/provider.h"

#include <algorithm>
#include <utility>

#include "provider/event_types.h"
#include "src/serializer/block_writer.h"
#include "src/support/clock.h"
#include "src/support/log_throttle.h"
#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

support::LogThrottle collector_failure_throttle;
support::LogThrottle small_serializer_throttle;

bool isEmpty(const EventBuffer* buffer) {
  return buffer->num_events == 0;
}

// Writes the events that the host has not received yet, one by one, until the serializer is full.
// Returns the last result of the writer; 1 when all events are written. Values that are the same
// for all events are kept in local variables, because the compiler must assume that every write to
// the host's buffer may change a member.
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
  if (!isInItsProcess()) return false;
  if (!collector_->initialize()) {
    if (tev_log_enabled(TEV_LEVEL_INFO) &&
        collector_failure_throttle.admit(support::realtimeUsec()))
      TEV_LOG_INFO("[multipath] Failed to initialize collector");
    return false;
  }
  try {
    if (registerTypes(provider, type_system)) {
      collector_->start();
      return true;
    }
  } catch (...) {
    collector_->giveBackDevices();
    throw;
  }
  collector_->giveBackDevices();
  return false;
}

bool Provider::registerTypes(tev_event_provider_t* provider, tev_type_system_t* type_system) {
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
  return registered;
}

void Provider::stop() {
  if (isInItsProcess()) collector_->stop();
}

tev_multipath_device_info_t Provider::deviceInfo(std::size_t index) const {
  tev_multipath_device_info_t info = collector_->deviceInfo(index);
  if (info.state != TEV_DEVICE_SAMPLED) return info;
  info.schema_index = schema_index_;
  info.device_type = device_type_ids_.at(info.device_index);
  info.plane_type = plane_type_ids_.at(info.device_index);
  return info;
}

bool Provider::isInItsProcess() {
  if (process_.isCurrent()) return true;
  if (!std::exchange(said_foreign_, true))
    TEV_LOG_ERROR("[multipath] The provider belongs to the parent process and cannot be used here");
  return false;
}

// Returns false, with no batch pending, when the collector does not return one pair of buffers per
// device.
bool Provider::takeBatch() {
  // Code that may throw comes first, so that a pending batch always has its flags.
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
  if (!isInItsProcess()) return TEV_PROGRESS_FAILED;
  // Read before the swap, so that this batch contains all samples taken before the thread ended.
  const bool ended = collector_->samplingFailed();
  const int result = deliver(serializer);
  return ended && result == TEV_PROGRESS_DONE ? TEV_PROGRESS_FAILED : result;
}

int Provider::deliver(tev_data_serializer_t* serializer) {
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

// With such a serializer, a host would drain it and call again for ever. The warning gives the size
// that is sufficient for all events of the provider.
void Provider::warnWhenTooSmall(const tev_data_serializer_t* serializer,
                                std::uint64_t event_size) const {
  const std::uint64_t capacity = serializer && serializer->buffer ? serializer->capacity : 0;
  if (capacity >= common::kBlockHeaderSize + event_size) return;
  if (!tev_log_enabled(TEV_LEVEL_WARNING) ||
      !small_serializer_throttle.admit(support::realtimeUsec()))
    return;
  // The batch does not have the buffers of a device that was left out of it.
  std::size_t largest = 0;
  for (const auto& device : collector_->devices())
    largest = std::max(
        {largest, device.sampled.device_layout.size(), device.sampled.plane_layout.size()});
  TEV_LOG_WARNING("[multipath] The serializer holds %lu bytes: %lu are needed for every event",
                  capacity, common::kBlockHeaderSize + largest);
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
    if (written == 0) {
      warnWhenTooSmall(serializer, buffer.event_size);
      return TEV_PROGRESS_FULL;
    }
    done[device] = true;
  }
  return TEV_PROGRESS_DONE;
}

}  // namespace tev::events::multipath
