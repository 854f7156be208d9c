#include "host/events/device_filter.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/support/errors.h"
#include "host/support/log.h"
#include "host/support/text.h"

namespace tev::host {

DeviceFilter::DeviceFilter(const std::string& expression) : expression_(expression) {
  const auto lines = Log::instance().linesOf([this] {
    tev_filter_get_incl_excl_tokens(expression_.c_str(), inclusive_->all, &inclusive_->count,
                                    exclusive_->all, &exclusive_->count);
  });
  if (!lines.empty())
    throw UsageError(fmt::format("--filter {}: {}", asPrintable(expression), lines.back()));
}

bool DeviceFilter::passes(const std::string& device) const {
  return tev_filter_have_match(inclusive_->all, inclusive_->count, exclusive_->all,
                               exclusive_->count, device.c_str());
}

void DeviceFilter::expectOneOf(const std::vector<std::string>& devices) const {
  if (devices.empty() ||
      std::ranges::any_of(devices, [this](const std::string& device) { return passes(device); }))
    return;
  throw UsageError(
      fmt::format("--filter {}: no device passes that has a chosen type\n  The devices are: {}",
                  asPrintable(expression_), commaSeparated(devices)));
}

}  // namespace tev::host
