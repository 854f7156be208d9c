// The laws of the counters in scenario files.
#pragma once

#include <cstdint>
#include <memory>
#include <variant>
#include <vector>

#include "simulator/counter_source.h"

namespace simulator {

struct Constant {
  std::uint32_t value = 0;
};

// Low 32 bits of start + per_second × seconds + per_sample × samples. The term with seconds is
// rounded down.
struct Ramp {
  std::uint32_t start = 0;
  std::uint64_t per_second = 0;  // at most kMaxPerSecond
  std::uint64_t per_sample = 0;
};
inline constexpr std::uint64_t kMaxPerSecond = 1'000'000'000'000;

// mean + amplitude × sin(2π × elapsed / period), rounded and limited to 32 bits.
struct Sine {
  double mean = 0;
  double amplitude = 0;
  double period_usec = 1;
};

// Starts at `start`. Each read adds an integer in [-step, step]. The value is limited to [min,
// max].
struct RandomWalk {
  std::uint32_t start = 0;
  std::uint32_t step = 1;
  std::uint32_t min = 0;
  std::uint32_t max = UINT32_MAX;
};

using ValueLaw = std::variant<Constant, Ramp, Sine, RandomWalk>;

// The key of one counter's random numbers (section "Laws" of docs/simulator.md).
std::uint64_t counterKey(std::uint64_t seed, std::size_t device, std::size_t slot,
                         std::size_t counter);

struct KeyedLaw {
  ValueLaw law;
  std::uint64_t key;
};

std::unique_ptr<CounterSource> makeLawSource(const std::vector<KeyedLaw>& laws);

}  // namespace simulator
