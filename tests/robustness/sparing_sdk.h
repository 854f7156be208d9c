// The SDK in memory. Its own allocations do not fail and are not counted.
#pragma once

#include "tests/robustness/failing_allocator.h"
#include "tests/support/fake_sdk.h"

namespace tev::test {

using events::multipath::SdkFunctions;

template <auto Function, class Result, class... Arguments>
constexpr auto sparing(Result (*)(Arguments...)) {
  return +[](Arguments... arguments) -> Result {
    const AllocationsSucceed spared;
    return (FakeSdk::current().functions().*Function)(arguments...);
  };
}

inline SdkFunctions sparingFunctions(const SdkFunctions& functions) {
  SdkFunctions table;
#define TEV_SPARE(name, result, parameters) \
  table.name = sparing<&SdkFunctions::name>(functions.name);
  VUNA_FUNCTIONS(TEV_SPARE)
#undef TEV_SPARE
  return table;
}

}  // namespace tev::test
