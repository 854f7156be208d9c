// The simulator as a part of the test program. It plays a scenario that the test describes.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "collector/api.h"
#include "simulator/sdk.h"

namespace tev::test {

using simulator::Function;

// A call that fails, or with status 0 succeeds without an output.
inline simulator::Fault failing(Function function, std::uint64_t call = 1, vuna_status status = 5) {
  return {.function = function, .call = call, .status = status};
}

// One at a time: the SDK's functions have no argument to find it by.
class SimulatedSdk {
 public:
  SimulatedSdk();
  ~SimulatedSdk();
  SimulatedSdk(const SimulatedSdk&) = delete;
  SimulatedSdk& operator=(const SimulatedSdk&) = delete;

  // Adds a device with one slot. The lines are its counters' descriptions, and the values are what
  // a read fills in.
  simulator::Device& add(const std::string& name, const std::vector<std::string>& lines,
                         std::vector<std::uint32_t> values);

  // The next call starts anew, with the scenario as it then is.
  void restart() { sdk_.reset(); }

  // The number of a name in the simulator's report; 0 when it is missing.
  std::uint64_t reported(const std::string& wanted);

  // Whether all devices, contexts and lists have been released, in that order, and no call was a
  // misuse.
  bool balanced();

  simulator::Scenario scenario;  // read by the first call
  std::string trace_file;
  events::multipath::SdkFunctions functions;  // the simulator's, unless the test replaces some

  // Called in each read. It may change the values that the device has from now on.
  std::function<void(const std::string& device, std::vector<std::uint32_t>& values)> on_read;

 private:
  friend class simulator::Sdk;
  simulator::Sdk& sdk();

  std::optional<simulator::Sdk> sdk_;
};

}  // namespace tev::test
