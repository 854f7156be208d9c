#include "collector/collector.h"

#include <algorithm>
#include <exception>

#include "collector/buffer_sizing.h"
#include "collector/counter_parser.h"
#include "src/support/checked.h"
#include "tev/logger.h"

namespace tev::events::multipath {

Collector::DevCtx::DevCtx(vuna_dev* device_, vuna_telemetry_mp* context_, std::string name_)
    : device(device_), context(context_), name(std::move(name_)) {}

Collector::Collector(const tev_custom_options* options) : Collector(options, Surroundings{}) {}

Collector::Collector(const tev_custom_options* options, const Surroundings& surroundings)
    : api_(surroundings.sdk ? Api(*surroundings.sdk) : Api(options)),
      configuration_(readConfiguration(options)),
      clock_(*surroundings.clock),
      roots_(surroundings.roots) {
  setSDKLogs(configuration_.sdk_log_level);
  logConfiguration(configuration_);
}

Collector::~Collector() {
  // The devices are about to be closed under the thread's feet.
  if (sampling_thread_.joinable()) std::terminate();
  giveBackDevices();
}

bool Collector::initialize() {
  if (!devices_.empty()) {  // whose buffers and names may be in use
    TEV_LOG_ERROR("[multipath] The collector has been initialized already");
    return false;
  }
  try {
    if (!setDevices(configuration_.devices)) {
      TEV_LOG_DEBUG("[multipath] Failed to set devices");
      return false;
    }
    setFieldsLengths();
    setDataBuffers();
    return true;
  } catch (...) {
    giveBackDevices();
    throw;
  }
}

void Collector::giveBackDevices() noexcept {
  for (const auto& dev : devices_) {
    if (dev.context) {
      api_.vuna_telemetry_mp_stop(dev.context);
      api_.vuna_telemetry_mp_destroy(dev.context);
    }
    if (dev.device) api_.vuna_dev_close(dev.device);
  }
  devices_.clear();
  if (device_list_) api_.vuna_devinfo_destroy_list(device_list_);
  device_list_ = nullptr;
}

void Collector::parseCounterMeta(SlotInfo& slot) {
  parseCounters(slot);
}

void Collector::setFieldsLengths() {
  for (const auto& dev : devices_)
    device_name_length_ = std::max(device_name_length_, dev.name.size());
  TEV_LOG_DEBUG("[multipath] Fields lengths: device_name %zu", device_name_length_);
}

void Collector::setDataBuffers() {
  for (auto& dev : devices_) {
    const auto& slot = dev.slot_info;
    dev.device_layout = EventLayout::ofDevice(slot, dev.name, device_name_length_);
    dev.plane_layout = EventLayout::ofPlane(slot, dev.name, device_name_length_);
    for (const DevCtx* earlier = devices_.data(); earlier != &dev; ++earlier) {
      dev.device_layout.shareCopiesOf(earlier->device_layout);
      dev.plane_layout.shareCopiesOf(earlier->plane_layout);
    }
    const std::size_t device_size = dev.device_layout.size();
    const std::size_t plane_size = dev.plane_layout.size();

    const std::size_t max_events =
        samplesPerBuffer(configuration_, device_size + plane_size * slot.num_planes);
    const std::size_t max_plane_events = support::checkedMultiply(max_events, slot.num_planes);

    TEV_LOG_DEBUG("[multipath] Device %s: device event size %zu, max events %zu (double buffer)",
                  dev.name.c_str(), device_size, max_events);
    for (auto& half : dev.halves)
      half.device = std::make_shared<EventBuffer>(device_size, max_events);

    TEV_LOG_DEBUG(
        "[multipath] Device %s: plane event size %zu, max events %zu (double buffer, %zu planes)",
        dev.name.c_str(), plane_size, max_plane_events, std::size_t{slot.num_planes});
    for (auto& half : dev.halves)
      half.plane = std::make_shared<EventBuffer>(plane_size, max_plane_events);

    if (const auto& planes = dev.plane_layout.differingPlanes(); !planes.empty())
      TEV_LOG_WARNING(
          "[multipath] Device %s: the counters of %zu of %u planes, plane %u the first, are not "
          "those that the plane event has fields for, in their order: what they lack reads zero, "
          "what they have beyond is cut",
          dev.name.c_str(), planes.size(), slot.num_planes, planes.front());
  }
}

namespace {

tev_type_field_info_t* copyFields(const EventLayout& layout, unsigned long& num_fields) {
  const auto& fields = layout.fields();
  auto* const copy = new tev_type_field_info_t[fields.size()];
  std::copy(fields.begin(), fields.end(), copy);
  num_fields = fields.size();
  return copy;
}

void releaseTexts(std::vector<std::string>& texts) {
  std::vector<std::string>().swap(texts);
}

}  // namespace

tev_type_field_info_t* Collector::getDeviceEventFields(unsigned long device_index,
                                                       unsigned long& num_fields) {
  return copyFields(devices_.at(device_index).device_layout, num_fields);
}

tev_type_field_info_t* Collector::getPlaneEventFields(unsigned long device_index,
                                                      unsigned long& num_fields) {
  return copyFields(devices_.at(device_index).plane_layout, num_fields);
}

void Collector::clearEventFieldStorage() {
  for (auto& dev : devices_) {
    dev.device_layout.forgetFields();
    dev.plane_layout.forgetFields();
    releaseTexts(dev.slot_info.device_counter_names);
    releaseTexts(dev.slot_info.device_counter_descriptions);
    releaseTexts(dev.slot_info.plane_counter_names);
    releaseTexts(dev.slot_info.plane_counter_descriptions);
  }
  TEV_LOG_DEBUG("[multipath] Cleared event field storage for all devices");
}

}  // namespace tev::events::multipath
