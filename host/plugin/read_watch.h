#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace tev::host {

// What the ledger says about the reads of a device.
struct DeviceReads {
  std::string device;
  std::uint64_t due = 0;       // passes
  std::uint64_t left_out = 0;  // batches without this device, because a read had not returned
};

// Describes reads that do not return, from what the plug-in reports.
class ReadWatch {
 public:
  // To be called after each batch.
  void batchEnded(const std::vector<DeviceReads>& reads);

  // Names the devices that were left out of the last batch, for how long, and which of them the
  // read that has not returned may belong to. Empty without such devices.
  std::string leftOut() const;

  // While the plug-in does not answer: which devices were read in the pass that has not ended.
  // Empty when the plug-in does not report it.
  static std::string passInProgress(const std::vector<DeviceReads>& reads);

 private:
  using Clock = std::chrono::steady_clock;

  struct Device {
    DeviceReads reads;
    bool is_left_out = false;
    Clock::time_point since;  // when it is left out
  };
  std::vector<Device> devices_;
};

}  // namespace tev::host
