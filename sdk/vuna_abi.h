// The device SDK as this system calls it: opaque handles, a 32-bit status (0 is success), and the
// 27 functions. The SDK is opened at run time and never linked.
//
// VUNA_FUNCTIONS is the only list of the functions. The table of pointers, its loader and the
// prototypes that the simulator implements are generated from it. Functions are bound in the order
// of the rows. To add a function, append one row.
#pragma once

#include <cstdint>
#include <cstdio>

extern "C" {

using vuna_status = std::uint32_t;

struct vuna_devinfo;       // a device description from the SDK's list
struct vuna_dev;           // an open device
struct vuna_telemetry_mp;  // the multipath telemetry context of an open device
struct vuna_log_backend;
}

// Statuses with a special meaning. Every other number except 0 is a general failure.
inline constexpr vuna_status kVunaSuccess = 0;
inline constexpr vuna_status kVunaSlotEmpty = 18;    // vuna_telemetry_mp_get_algo_id
inline constexpr vuna_status kVunaSlotInvalid = 21;  // vuna_telemetry_mp_get_algo_enable_status

// clang-format off
#define VUNA_FUNCTIONS(F) \
  F(vuna_error_get_name, const char*, (vuna_status status)) \
  F(vuna_log_backend_create_with_file_sdk, vuna_status, (std::FILE* stream, vuna_log_backend** backend)) \
  F(vuna_log_backend_set_sdk_level, vuna_status, (vuna_log_backend* backend, std::uint32_t level)) \
  F(vuna_devinfo_get_ibdev_name, vuna_status, (const vuna_devinfo* devinfo, char* name, std::uint32_t length)) \
  F(vuna_devinfo_create_list, vuna_status, (vuna_devinfo*** list, std::uint32_t* count)) \
  F(vuna_devinfo_destroy_list, vuna_status, (vuna_devinfo** list)) \
  F(vuna_dev_open, vuna_status, (vuna_devinfo* devinfo, vuna_dev** dev)) \
  F(vuna_dev_close, vuna_status, (vuna_dev* dev)) \
  F(vuna_dev_as_devinfo, vuna_devinfo*, (vuna_dev* dev)) \
  F(vuna_telemetry_mp_cap_is_supported, vuna_status, (const vuna_devinfo* devinfo)) \
  F(vuna_telemetry_mp_create, vuna_status, (vuna_dev* dev, vuna_telemetry_mp** mp)) \
  F(vuna_telemetry_mp_destroy, vuna_status, (vuna_telemetry_mp* mp)) \
  F(vuna_telemetry_mp_start, vuna_status, (vuna_telemetry_mp* mp)) \
  F(vuna_telemetry_mp_stop, vuna_status, (vuna_telemetry_mp* mp)) \
  F(vuna_telemetry_mp_cap_get_max_algo_slots, vuna_status, (const vuna_devinfo* devinfo, std::uint32_t* max_slots)) \
  F(vuna_telemetry_mp_get_algo_id, vuna_status, (vuna_telemetry_mp* mp, std::uint32_t slot, std::uint32_t* algo_id)) \
  F(vuna_telemetry_mp_get_algo_major_version, vuna_status, (vuna_telemetry_mp* mp, std::uint32_t slot, std::uint32_t* major)) \
  F(vuna_telemetry_mp_get_algo_minor_version, vuna_status, (vuna_telemetry_mp* mp, std::uint32_t slot, std::uint32_t* minor)) \
  F(vuna_telemetry_mp_get_algo_enable_status, vuna_status, (vuna_telemetry_mp* mp, std::uint32_t slot, std::uint8_t* algo_enabled, std::uint8_t* counters_enabled)) \
  F(vuna_telemetry_mp_cap_get_max_algo_info_len, vuna_status, (const vuna_devinfo* devinfo, std::uint32_t* length)) \
  F(vuna_telemetry_mp_get_algo_info, vuna_status, (vuna_telemetry_mp* mp, std::uint32_t slot, char* info)) \
  F(vuna_telemetry_mp_get_num_counters, vuna_status, (vuna_telemetry_mp* mp, std::uint32_t slot, std::uint32_t* count)) \
  F(vuna_telemetry_mp_cap_get_max_counter_info_len, vuna_status, (const vuna_devinfo* devinfo, std::uint32_t* length)) \
  F(vuna_telemetry_mp_get_counter_info, vuna_status, (vuna_telemetry_mp* mp, std::uint32_t slot, std::uint8_t counter, char* info)) \
  F(vuna_telemetry_mp_cap_get_max_num_counters, vuna_status, (const vuna_devinfo* devinfo, std::uint32_t* max_num)) \
  F(vuna_telemetry_mp_get_counters, vuna_status, (vuna_telemetry_mp* mp, std::uint32_t slot, std::uint32_t* count, std::uint32_t* values)) \
  F(vuna_telemetry_mp_get_and_clear_counters, vuna_status, (vuna_telemetry_mp* mp, std::uint32_t slot, std::uint32_t* count, std::uint32_t* values))
// clang-format on
