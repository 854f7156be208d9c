#include "bench/instant_sdk.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>

namespace tev::bench {
namespace {

constexpr std::uint32_t kTextLength = 64;

Shape shape;
std::vector<std::string> lines;
std::vector<std::uint32_t> devices;  // their numbers; a handle is the address of a number
std::vector<vuna_devinfo*> list;

template <class Handle>
Handle* handleOf(std::uint32_t* device) {
  return reinterpret_cast<Handle*>(device);
}

vuna_status put(std::uint32_t* out, std::uint32_t value) {
  *out = value;
  return kVunaSuccess;
}

vuna_status putText(char* out, const std::string& text) {
  std::strncpy(out, text.c_str(), kTextLength);
  return kVunaSuccess;
}

vuna_status read(vuna_telemetry_mp*, std::uint32_t, std::uint32_t* count, std::uint32_t*) {
  *count = shape.countersPerDevice();
  return kVunaSuccess;
}

struct Instant : events::multipath::SdkFunctions {
  Instant() {
    vuna_error_get_name = [](vuna_status) { return "no error"; };
    vuna_log_backend_create_with_file_sdk = [](std::FILE*, vuna_log_backend**) {
      return kVunaSuccess;
    };
    vuna_log_backend_set_sdk_level = [](vuna_log_backend*, std::uint32_t) { return kVunaSuccess; };
    vuna_devinfo_get_ibdev_name = [](const vuna_devinfo* info, char* out, std::uint32_t length) {
      std::snprintf(out, length, "d%03u", *reinterpret_cast<const std::uint32_t*>(info) % 1'000);
      return kVunaSuccess;
    };
    vuna_devinfo_create_list = [](vuna_devinfo*** out, std::uint32_t* count) {
      *out = list.data();
      return put(count, static_cast<std::uint32_t>(list.size()));
    };
    vuna_devinfo_destroy_list = [](vuna_devinfo**) { return kVunaSuccess; };
    vuna_dev_open = [](vuna_devinfo* info, vuna_dev** dev) {
      *dev = reinterpret_cast<vuna_dev*>(info);
      return kVunaSuccess;
    };
    vuna_dev_close = [](vuna_dev*) { return kVunaSuccess; };
    vuna_dev_as_devinfo = [](vuna_dev* dev) { return reinterpret_cast<vuna_devinfo*>(dev); };
    vuna_telemetry_mp_cap_is_supported = [](const vuna_devinfo*) { return kVunaSuccess; };
    vuna_telemetry_mp_create = [](vuna_dev* dev, vuna_telemetry_mp** mp) {
      *mp = reinterpret_cast<vuna_telemetry_mp*>(dev);
      return kVunaSuccess;
    };
    vuna_telemetry_mp_destroy = [](vuna_telemetry_mp*) { return kVunaSuccess; };
    vuna_telemetry_mp_start = [](vuna_telemetry_mp*) { return kVunaSuccess; };
    vuna_telemetry_mp_stop = [](vuna_telemetry_mp*) { return kVunaSuccess; };
    vuna_telemetry_mp_cap_get_max_algo_slots = [](const vuna_devinfo*, std::uint32_t* out) {
      return put(out, 1);
    };
    vuna_telemetry_mp_get_algo_id = [](vuna_telemetry_mp*, std::uint32_t, std::uint32_t* out) {
      return put(out, 1);
    };
    vuna_telemetry_mp_get_algo_major_version = vuna_telemetry_mp_get_algo_id;
    vuna_telemetry_mp_get_algo_minor_version = vuna_telemetry_mp_get_algo_id;
    vuna_telemetry_mp_get_algo_enable_status = [](vuna_telemetry_mp*, std::uint32_t,
                                                  std::uint8_t* algo, std::uint8_t* counters) {
      *algo = *counters = 1;
      return kVunaSuccess;
    };
    vuna_telemetry_mp_cap_get_max_algo_info_len = [](const vuna_devinfo*, std::uint32_t* out) {
      return put(out, kTextLength);
    };
    vuna_telemetry_mp_get_algo_info = [](vuna_telemetry_mp*, std::uint32_t, char* out) {
      return putText(out, "instant");
    };
    vuna_telemetry_mp_get_num_counters = [](vuna_telemetry_mp*, std::uint32_t, std::uint32_t* out) {
      return put(out, shape.countersPerDevice());
    };
    vuna_telemetry_mp_cap_get_max_counter_info_len = [](const vuna_devinfo*, std::uint32_t* out) {
      return put(out, kTextLength);
    };
    vuna_telemetry_mp_get_counter_info = [](vuna_telemetry_mp*, std::uint32_t, std::uint8_t counter,
                                            char* out) { return putText(out, lines[counter]); };
    vuna_telemetry_mp_cap_get_max_num_counters = [](const vuna_devinfo*, std::uint32_t* out) {
      return put(out, shape.countersPerDevice());
    };
    vuna_telemetry_mp_get_counters = read;
    vuna_telemetry_mp_get_and_clear_counters = read;
  }
};

}  // namespace

std::vector<std::string> descriptions(const Shape& of) {
  const auto of_device = [](std::uint32_t i) {
    return "counter_" + std::to_string(i) + ", counted by the device";
  };
  const auto of_plane = [](std::uint32_t i, std::uint32_t plane) {
    return "plane_counter_" + std::to_string(i) + ", counted, plane " + std::to_string(plane);
  };
  std::vector<std::string> texts;
  if (of.order == Order::interleaved) {
    for (std::uint32_t i = 0; i < std::max(of.device_counters, of.counters_per_plane); ++i) {
      if (i < of.device_counters) texts.push_back(of_device(i));
      for (std::uint32_t plane = 0; plane < of.planes && i < of.counters_per_plane; ++plane)
        texts.push_back(of_plane(i, plane));
    }
    return texts;
  }
  for (std::uint32_t i = 0; i < of.device_counters; ++i) texts.push_back(of_device(i));
  for (std::uint32_t plane = 0; plane < of.planes; ++plane)
    for (std::uint32_t i = 0; i < of.counters_per_plane; ++i) texts.push_back(of_plane(i, plane));
  if (of.order == Order::shuffled) std::shuffle(texts.begin(), texts.end(), std::mt19937(1));
  return texts;
}

const events::multipath::SdkFunctions& instantSdk(const Shape& of) {
  static const Instant functions;
  shape = of;
  lines = descriptions(of);
  devices.resize(of.devices);
  list.clear();
  for (std::uint32_t i = 0; i < of.devices; ++i) {
    devices[i] = i;
    list.push_back(handleOf<vuna_devinfo>(&devices[i]));
  }
  return functions;
}

SampleSize sampleSize(const Shape& of) {
  const std::size_t device_event = kNameLength + 4 * of.device_counters;
  const std::size_t plane_event = kNameLength + 1 + 4 * of.counters_per_plane;
  return {device_event, plane_event, device_event + of.planes * plane_event};
}

}  // namespace tev::bench
