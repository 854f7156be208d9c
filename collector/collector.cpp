#include "collector/collector.h"

#include <algorithm>
#include <exception>
#include <new>
#include <span>
#include <stdexcept>
#include <utility>

#include "collector/buffer_sizing.h"
#include "collector/counter_parser.h"
#include "collector/device_finder.h"
#include "collector/device_selection.h"
#include "collector/interface_names.h"
#include "collector/sdk_log.h"
#include "collector/slot_reader.h"
#include "src/support/checked.h"
#include "tev/logger.h"

namespace tev::events::multipath {

Collector::DevCtx::DevCtx(vuna_dev* device_, vuna_telemetry_mp* context_, std::string name_)
    : device(device_), context(context_), name(std::move(name_)) {}

Collector::Collector(const tev_custom_options* options) : Collector(options, Surroundings{}) {}

Collector::Collector(const tev_custom_options* options, const Surroundings& surroundings)
    : api_(surroundings.sdk ? Api(*surroundings.sdk) : Api(options)),
      configuration_(readConfiguration(options)),
      roots_(surroundings.roots),
      samplers_(api_, *surroundings.clock,
                {.interval_usec = configuration_.sample_interval_usec,
                 .clear_counters = configuration_.clear_sampled_counters},
                configuration_.sampling_threads) {
  setSDKLogs(configuration_.sdk_log_level);
  logConfiguration(configuration_);
}

Collector::~Collector() {
  // The thread may be reading the devices that are about to be closed.
  if (samplers_.isRunning()) {
    TEV_LOG_ERROR("[multipath] finalize without stop: the process ends");
    std::terminate();
  }
  giveBackDevices();
}

bool Collector::initialize() {
  if (!devices_.empty()) {  // their buffers and names may be in use
    TEV_LOG_ERROR("[multipath] The collector has been initialized already");
    return false;
  }
  try {
    if (!setDevices(configuration_.devices)) {
      TEV_LOG_DEBUG("[multipath] Failed to set devices");
      return false;
    }
    makeRoomForValues();
    if (devices_.empty()) {
      giveBackDevices();
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

void Collector::giveBack(const DevCtx& dev) noexcept {
  if (dev.context) {
    api_.vuna_telemetry_mp_stop(dev.context);
    api_.vuna_telemetry_mp_destroy(dev.context);
  }
  if (dev.device) api_.vuna_dev_close(dev.device);
}

void Collector::giveBackDevices() noexcept {
  samplers_.forgetDevices();
  for (const auto& dev : devices_) giveBack(dev);
  devices_.clear();
  device_name_length_ = 0;
  if (device_list_) api_.vuna_devinfo_destroy_list(device_list_);
  device_list_ = nullptr;
}

bool Collector::setDevices(const std::string& devices) {
  const DeviceSelection selection(devices);
  InterfaceNames interfaces;
  getRdmaDevNameToNetworkInterfaceMap(interfaces);

  listed_.clear();
  device_list_ = nullptr;
  std::uint32_t count = 0;
  if (const auto status = api_.vuna_devinfo_create_list(&device_list_, &count)) {
    TEV_LOG_DEBUG("[multipath] Failed to create device list: %s", api_.errorName(status));
    device_list_ = nullptr;
    return false;
  }
  if (!device_list_) count = 0;  // whatever count the SDK reports
  DeviceFinder(api_, selection, interfaces)
      .find(std::span(device_list_, count), listed_,
            [this](auto* device, auto* context, auto& listed) {
              return keepDevice(device, context, listed);
            });
  if (!devices_.empty()) return true;

  giveBackDevices();
  TEV_LOG_DEBUG("[multipath] No devices found for MP");
  return false;
}

// An invalid answer excludes only the device that gave it.
bool Collector::keepDevice(vuna_dev* device, vuna_telemetry_mp* context, ListedDevice& listed) {
  const std::string& name = listed.name();
  DevCtx dev(device, context, name);
  dev.listed = listed_.size() - 1;
  const auto refuse = [&](const char* reason) {
    dev.reason = logReason(TEV_LEVEL_WARNING, "Skipping device %s: %s", name.c_str(), reason);
    return false;
  };
  const auto read_slot = [&] {
    try {
      return setActiveAlgoSlotInfo(dev);
    } catch (const std::length_error& error) {
      return refuse(error.what());
    } catch (const std::out_of_range&) {
      return refuse("the plane number of a counter is out of range");
    }
  };
  if (!read_slot()) {
    TEV_LOG_WARNING("[multipath] Could not set active algo slot info for device %s", name.c_str());
    listed.reason = dev.reason;
    return false;
  }
  devices_.push_back(std::move(dev));
  return true;
}

void Collector::getRdmaDevNameToNetworkInterfaceMap(std::map<std::string, std::string>& map) {
  readInterfaceNames(roots_, map);
}

bool Collector::setActiveAlgoSlotInfo(DevCtx& dev) {
  return SlotReader(api_, dev.device, dev.context, dev.name.c_str(), dev.reason)
      .readActiveSlot(dev.slot_info);
}

bool Collector::setSlotInfo(DevCtx& dev, unsigned char slot, const vuna_devinfo* devinfo,
                            unsigned int algo_id) {
  return SlotReader(api_, dev.device, dev.context, dev.name.c_str(), dev.reason)
      .readSlot(dev.slot_info, slot, devinfo, algo_id);
}

void Collector::parseCounterMeta(SlotInfo& slot) {
  parseCounters(slot);
}

void Collector::setSDKLogs(const std::string& level) {
  routeSdkLog(api_, level);
}

// A device is released when its values do not fit into memory.
void Collector::makeRoomForValues() {
  // Counters have 8-bit indexes. A device that does not report its maximum stays below this one.
  samplers_.makeFor(devices_.size());
  if (!samplers_.makeRoomFor(kMaxCounters)) throw std::bad_alloc();
  std::erase_if(devices_, [this](const DevCtx& dev) {
    std::uint32_t max_num = 0;
    if (const vuna_devinfo* const devinfo = api_.vuna_dev_as_devinfo(dev.device); !devinfo)
      TEV_LOG_WARNING("[multipath] Could not get device info for device %s", dev.name.c_str());
    else if (const auto status = api_.vuna_telemetry_mp_cap_get_max_num_counters(devinfo, &max_num))
      TEV_LOG_WARNING("[multipath] Could not get max num counters for device %s: %s",
                      dev.name.c_str(), api_.errorName(status));

    const std::uint32_t needed = std::max(max_num, dev.slot_info.num_counters);
    if (samplers_.makeRoomFor(needed)) return false;
    listed_.at(dev.listed).reason =
        logReason(TEV_LEVEL_WARNING, "Skipping device %s: no memory for the %u counters of a read",
                  dev.name.c_str(), needed);
    giveBack(dev);
    return true;
  });
}

void Collector::setFieldsLengths() {
  for (const auto& dev : devices_)
    device_name_length_ = std::max(device_name_length_, dev.name.size());
  TEV_LOG_DEBUG("[multipath] Fields lengths: device_name %zu", device_name_length_);
}

void Collector::setDataBuffers() {
  std::vector<SampledDevice*> sampled_devices;
  for (auto& dev : devices_) {
    const auto& slot = dev.slot_info;
    auto& sampled = dev.sampled;
    sampled.name = dev.name;
    sampled.context = dev.context;
    sampled.slot = slot.slot;
    sampled.num_declared = slot.num_counters;
    sampled.num_counters = slot.counters.size();
    sampled.device_layout = EventLayout::ofDevice(slot, dev.name, device_name_length_);
    sampled.plane_layout = EventLayout::ofPlane(slot, dev.name, device_name_length_);
    for (const auto* const earlier : sampled_devices) {
      sampled.device_layout.sharePlanOf(earlier->device_layout);
      sampled.plane_layout.sharePlanOf(earlier->plane_layout);
    }
    sampled_devices.push_back(&sampled);

    const std::size_t device_size = sampled.device_layout.size();
    const std::size_t plane_size = sampled.plane_layout.size();
    const std::size_t max_events =
        samplesPerBuffer(configuration_, device_size + plane_size * slot.num_planes);
    const std::size_t max_plane_events = support::checkedMultiply(max_events, slot.num_planes);
    TEV_LOG_DEBUG("[multipath] Device %s: device event size %zu, max events %zu (double buffer)",
                  dev.name.c_str(), device_size, max_events);
    sampled.buffers.makeDeviceBuffers(device_size, max_events);
    TEV_LOG_DEBUG(
        "[multipath] Device %s: plane event size %zu, max events %zu (double buffer, %zu planes)",
        dev.name.c_str(), plane_size, max_plane_events, std::size_t{slot.num_planes});
    sampled.buffers.makePlaneBuffers(plane_size, max_plane_events);

    if (const auto& planes = sampled.plane_layout.differingPlanes(); !planes.empty())
      TEV_LOG_WARNING(
          "[multipath] Device %s: the counters of %zu of %u planes, plane %u the first, are not "
          "those that the plane event has fields for, in their order: where one is missing, the "
          "counters behind it stand under the names of others and the last fields read zero; "
          "counters beyond the fields are cut",
          dev.name.c_str(), planes.size(), slot.num_planes, planes.front());
  }
  samplers_.setDevices(std::move(sampled_devices));
}

bool Collector::start() {
  samplers_.start();
  return true;
}

bool Collector::stop() {
  samplers_.stop();
  return true;
}

void Collector::getData(std::vector<EventBuffer*>& device_buffers,
                        std::vector<EventBuffer*>& plane_buffers) {
  samplers_.swap(device_buffers, plane_buffers);
}

void Collector::collectData() {
  samplers_.run();
}

tev_multipath_ledger_t Collector::ledger(std::size_t index) const {
  const auto& sampled = devices_.at(index).sampled;
  return record(sampled.ledger, samplers_.passes(index), sampled.buffers.capacityBytes());
}

tev_multipath_device_info_t Collector::deviceInfo(std::size_t index) const {
  const ListedDevice& listed = listed_.at(index);
  tev_multipath_device_info_t info{};
  info.state = TEV_DEVICE_LEFT_OUT;
  info.device_index = TEV_ALL_DEVICES;
  info.name = listed.name().c_str();
  info.rdma_name = listed.rdma_name.c_str();
  info.interface_name = listed.interface_name.c_str();
  info.reason = listed.reason.c_str();
  info.algorithm = "";
  const auto dev = std::ranges::find(devices_, index, &DevCtx::listed);
  if (dev == devices_.end()) return info;

  const SlotInfo& slot = dev->slot_info;
  const DoubleBuffer& buffers = dev->sampled.buffers;
  info.state = TEV_DEVICE_SAMPLED;
  info.device_index = static_cast<std::uint32_t>(dev - devices_.begin());
  info.algorithm = slot.algo_info.c_str();
  info.algorithm_id = slot.algo_id;
  info.algorithm_major = slot.algo_major;
  info.algorithm_minor = slot.algo_minor;
  info.slot = slot.slot;
  info.device_counters = slot.num_device_counters;
  info.plane_counters = slot.num_plane_counters;
  info.planes = slot.num_planes;
  info.buffer_samples = buffers.maxSamples();
  info.buffer_bytes = buffers.capacityBytes();
  info.memory_bytes = buffers.memoryBytes();
  return info;
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
  return copyFields(devices_.at(device_index).sampled.device_layout, num_fields);
}

tev_type_field_info_t* Collector::getPlaneEventFields(unsigned long device_index,
                                                      unsigned long& num_fields) {
  return copyFields(devices_.at(device_index).sampled.plane_layout, num_fields);
}

void Collector::clearEventFieldStorage() {
  for (auto& dev : devices_) {
    dev.sampled.device_layout.forgetFields();
    dev.sampled.plane_layout.forgetFields();
    releaseTexts(dev.slot_info.device_counter_names);
    releaseTexts(dev.slot_info.device_counter_descriptions);
    releaseTexts(dev.slot_info.plane_counter_names);
    releaseTexts(dev.slot_info.plane_counter_descriptions);
  }
  TEV_LOG_DEBUG("[multipath] Cleared event field storage for all devices");
}

}  // namespace tev::events::multipath
