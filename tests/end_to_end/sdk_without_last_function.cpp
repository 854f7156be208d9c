// A telemetry library of an SDK release that lacks the last function of the table.
#include "sdk/vuna_abi.h"

#define vuna_telemetry_mp_get_and_clear_counters vuna_telemetry_mp_of_another_release

#define TEV_STUB(name, result, parameters) \
  extern "C" result name parameters {      \
    return {};                             \
  }
#pragma GCC diagnostic ignored "-Wunused-parameter"
VUNA_FUNCTIONS(TEV_STUB)
