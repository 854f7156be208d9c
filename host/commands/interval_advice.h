// Whether the sampling interval is short enough for counters of bytes.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/events/byte_counters.h"
#include "host/events/projection.h"
#include "host/plugin/device_info.h"
#include "host/plugin/option_table.h"

namespace tev::host {

// The interval that the plug-in uses; nothing when it is 0 or not known.
std::optional<Seconds> sampleInterval(const GivenOptions& given, const OptionTable& table);

// One sentence that names the device with the fastest link, its speed, the counters, and the
// interval that they need. Empty when the interval is short enough, or no link speed is known.
// `link_gbits` overrides the speeds that the kernel reports.
std::string intervalAdvice(const std::vector<DeviceInfo>& devices, const Projection& projection,
                           Seconds interval, std::optional<double> link_gbits);

}  // namespace tev::host
