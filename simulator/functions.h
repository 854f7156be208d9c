// The SDK's functions: their prototypes, and the functions as values, for counting, tracing and
// faults.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "sdk/vuna_abi.h"

// A definition that differs from its row does not compile.
extern "C" {
#define F(name, result, parameters) __attribute__((visibility("default"))) result name parameters;
VUNA_FUNCTIONS(F)
#undef F
}

namespace simulator {

enum class Function : std::size_t {
#define F(name, result, parameters) name,
  VUNA_FUNCTIONS(F)
#undef F
};

inline constexpr std::array kFunctionNames = {
#define F(name, result, parameters) #name,
    VUNA_FUNCTIONS(F)
#undef F
};
inline constexpr std::size_t kFunctionCount = kFunctionNames.size();

constexpr std::size_t indexOf(Function function) {
  return static_cast<std::size_t>(function);
}
constexpr const char* nameOf(Function function) {
  return kFunctionNames[indexOf(function)];
}

constexpr std::optional<Function> functionNamed(std::string_view name) {
  for (std::size_t i = 0; i < kFunctionCount; ++i)
    if (name == kFunctionNames[i]) return static_cast<Function>(i);
  return std::nullopt;
}

}  // namespace simulator
