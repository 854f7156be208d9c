// Arithmetic on sizes from external input. Throws std::length_error when the result exceeds 64
// bits.
#pragma once

#include <cstdint>
#include <stdexcept>

namespace tev::support {

inline std::uint64_t checkedAdd(std::uint64_t a, std::uint64_t b) {
  std::uint64_t sum = 0;
  if (__builtin_add_overflow(a, b, &sum)) throw std::length_error("size exceeds 64 bits");
  return sum;
}

inline std::uint64_t checkedMultiply(std::uint64_t a, std::uint64_t b) {
  std::uint64_t product = 0;
  if (__builtin_mul_overflow(a, b, &product)) throw std::length_error("size exceeds 64 bits");
  return product;
}

}  // namespace tev::support
