// Calls that are to go wrong, and the count that tells when.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/functions.h"

namespace simulator {

struct Fault {
  enum class Deliver {
    untouched,  // no output is written, nothing happens
    nothing,    // the outputs say "nothing": null handle, count 0; nothing happens
    number,     // the output is `number`; nothing else happens
    result      // the call does its work
  };

  Function function{};
  std::optional<std::uint64_t> call;  // the n-th matching call, from 1; none: every one
  std::optional<std::string> device;  // only calls about this device count
  vuna_status status = kVunaSuccess;
  Deliver deliver = Deliver::untouched;
  std::uint32_t number = 0;
  std::uint64_t latency_usec = 0;

  std::uint64_t seen = 0;  // matching calls so far
};

class Faults {
 public:
  void add(Fault fault);

  bool any(Function function) const { return !of_[indexOf(function)].empty(); }

  // Counts one call, and tells which fault it meets: the first given of those that are due.
  // `device` is the name of the device that the call is about, or null. Not for two threads at
  // once.
  const Fault* next(Function function, const std::string* device);

 private:
  std::array<std::vector<Fault>, kFunctionCount> of_;
};

// What functions can be told to do: some are about no device, few have a number to deliver, and a
// release is done even when it is reported to have failed.
bool concernsDevice(Function function);
bool deliversNumber(Function function);
bool releases(Function function);

}  // namespace simulator
