#pragma once

#include <string>

#include "sdk/vuna_abi.h"
#include "tev/dict.h"
#include "tev/export.h"

namespace tev::events::multipath {

// One pointer per SDK function, named like it.
struct SdkFunctions {
#define TEV_SDK_POINTER(name, result, parameters) result(*name) parameters = nullptr;
  VUNA_FUNCTIONS(TEV_SDK_POINTER)
#undef TEV_SDK_POINTER
};

// The device SDK: its two libraries, opened at run time, and its functions. The constructor binds
// every function, so all pointers are set. They do not change afterwards, so any thread may call
// through them.
class Api : public SdkFunctions {
 public:
  // Opens the library that "multipath-vuna-lib-path", or else "vuna-telemetry-lib-path", names.
  // std::runtime_error when that fails.
  TEV_API explicit Api(const tev_custom_options* options);

  // Uses functions that the caller has bound, and does not open a library.
  explicit Api(const SdkFunctions& functions) : SdkFunctions(functions) {}

  TEV_API ~Api();
  Api(const Api&) = delete;
  Api& operator=(const Api&) = delete;

  // Opens the telemetry library at `path` (empty: the SDK's usual place) and the common library
  // beside it, and binds all functions.
  TEV_API void loadSymbols(const std::string& path);

  // Closes both libraries. The pointers are not changed.
  TEV_API void unloadSymbols();

  // The SDK's name of a status; never null.
  const char* errorName(vuna_status status) const;

 private:
  void* telemetry_library_ = nullptr;
  void* common_library_ = nullptr;
};

}  // namespace tev::events::multipath
