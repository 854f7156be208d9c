// The calls that must fail, and the counts of calls that decide when.
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
    untouched,  // no output is written and no work is done
    nothing,    // the outputs are empty (null handle, count 0) and no work is done
    number,     // the output is `number` and no work is done
    result      // the call does its work
  };

  Function function{};
  std::optional<std::uint64_t> call{};  // the n-th matching call, from 1; empty: every call
  std::optional<std::string> device{};  // only calls about this device count
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

  // Counts one call and returns its fault. If several faults apply, returns the first of the
  // list. `device` is the name of the device that the call concerns, or null. Only one thread at
  // a time may call this.
  const Fault* next(Function function, const std::string* device);

 private:
  std::array<std::vector<Fault>, kFunctionCount> of_;
};

// What a fault of a function may specify. Some functions do not concern a device. Only a few return
// a number. Functions that release an object release it even when they report a failure.
bool concernsDevice(Function function);
bool deliversNumber(Function function);
bool releases(Function function);

}  // namespace simulator
