// The exported telemetry library: it plays the scenario that the environment names.
#include <cstdlib>

#include "simulator/scenario.h"
#include "simulator/sdk.h"

namespace simulator {
namespace {

Sdk sdkOfEnvironment() {
  const char* const trace = secure_getenv("VUNA_SIMULATOR_TRACE");
  try {
    return Sdk(scenarioOfEnvironment(), trace);
  } catch (const ScenarioError& error) {
    return Sdk(error, trace);
  }
}

}  // namespace

Sdk& Sdk::instance() {
  static Sdk sdk = sdkOfEnvironment();
  return sdk;
}

}  // namespace simulator
