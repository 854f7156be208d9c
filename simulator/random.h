#pragma once

#include <cstdint>

namespace simulator {

// The output function of the SplitMix64 generator, which maps each number to a well-mixed number.
constexpr std::uint64_t mix(std::uint64_t x) {
  x += 0x9e3779b97f4a7c15U;
  x = (x ^ (x >> 30U)) * 0xbf58476d1ce4e5b9U;
  x = (x ^ (x >> 27U)) * 0x94d049bb133111ebU;
  return x ^ (x >> 31U);
}

}  // namespace simulator
