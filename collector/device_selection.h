#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tev::events::multipath {

// Which devices are to be sampled: all of them, or those of a list of names.
class DeviceSelection {
 public:
  // Empty: all. Else names between commas; white space around them and empty ones are dropped, so
  // that a text of nothing else selects no device.
  explicit DeviceSelection(std::string_view text);

  bool all() const { return all_; }
  bool contains(std::string_view name) const;

 private:
  bool all_;
  std::vector<std::string> names_;
};

}  // namespace tev::events::multipath
