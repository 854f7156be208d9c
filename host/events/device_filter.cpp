#include "host/events/device_filter.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/support/errors.h"
#include "host/support/log.h"
#include "host/support/text.h"

namespace tev::host {

DeviceFilter::Expression::Expression(const std::string& expression) : text(expression) {
  const auto lines = Log::instance().linesOf([this] {
    tev_filter_get_incl_excl_tokens(text.c_str(), inclusive->all, &inclusive->count, exclusive->all,
                                    &exclusive->count);
  });
  if (!lines.empty())
    throw UsageError(fmt::format("--filter {}: {}", asPrintable(text), lines.back()));
}

bool DeviceFilter::Expression::passes(const std::string& device) const {
  return tev_filter_have_match(inclusive->all, inclusive->count, exclusive->all, exclusive->count,
                               device.c_str());
}

DeviceFilter::DeviceFilter(const std::vector<std::string>& expressions) {
  for (const std::string& text : expressions) expressions_.emplace_back(text);
}

bool DeviceFilter::passes(const std::string& device) const {
  return expressions_.empty() || std::ranges::any_of(expressions_, [&](const Expression& one) {
           return one.passes(device);
         });
}

void DeviceFilter::expectOneOf(const std::vector<std::string>& devices) const {
  if (devices.empty()) return;
  for (const Expression& one : expressions_)
    if (std::ranges::none_of(devices,
                             [&](const std::string& device) { return one.passes(device); }))
      throw UsageError(
          fmt::format("--filter {}: no device passes that has a chosen type\n  The devices are: {}",
                      asPrintable(one.text), commaSeparated(devices)));
}

}  // namespace tev::host
