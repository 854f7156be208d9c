// The source of the values of one slot's counters.
#pragma once

#include <cstdint>

#include "sdk/vuna_abi.h"

namespace simulator {

struct Moment {
  std::uint64_t elapsed_usec;  // since the context was started
  std::uint64_t sample;        // number of this read since then, from 0
};

// The source of one slot in one context. It is created when the context starts. Only one thread at
// a time uses it. `sample` increases by one with each successful read.
class CounterSource {
 public:
  CounterSource() = default;
  CounterSource(const CounterSource&) = delete;
  CounterSource& operator=(const CounterSource&) = delete;
  virtual ~CounterSource() = default;

  // Stores one value per counter of the slot; `values` has room for all of them.
  virtual vuna_status read(const Moment& moment, std::uint32_t* values) = 0;
};

}  // namespace simulator
