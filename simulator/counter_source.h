// Where the values of one slot's counters come from.
#pragma once

#include <cstdint>

#include "sdk/vuna_abi.h"

namespace simulator {

struct Moment {
  std::uint64_t elapsed_usec;  // since the context was started
  std::uint64_t sample;        // number of this read since then, from 0
};

// One context's source: made when the context starts, asked by one thread at a time, with `sample`
// rising by one from each successful read to the next.
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
