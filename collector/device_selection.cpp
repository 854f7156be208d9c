#include "collector/device_selection.h"

#include <algorithm>

#include "src/support/text.h"

namespace tev::events::multipath {

DeviceSelection::DeviceSelection(std::string_view text) : all_(text.empty()) {
  for (const auto piece : support::split(text, ',')) {
    auto name = string::trim(piece);
    if (!name.empty()) names_.push_back(std::move(name));
  }
}

bool DeviceSelection::contains(std::string_view name) const {
  return all_ || std::find(names_.begin(), names_.end(), name) != names_.end();
}

}  // namespace tev::events::multipath
