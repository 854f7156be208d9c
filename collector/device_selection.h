#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tev::events::multipath {

// Selects the devices to be sampled: all of them, or those in a list of names.
class DeviceSelection {
 public:
  // An empty text selects all devices. Otherwise the text is a list of names separated by commas.
  // White space around names and empty names are dropped, so a text with only commas and white
  // space does not select any device.
  explicit DeviceSelection(std::string_view text);

  bool all() const { return all_; }
  bool contains(std::string_view name) const;

 private:
  bool all_;
  std::vector<std::string> names_;
};

}  // namespace tev::events::multipath
