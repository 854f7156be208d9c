#include "collector/api.h"

#include <dlfcn.h>

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <stdexcept>

#include "collector/options.h"
#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

namespace fs = boost::filesystem;

constexpr char kCommonLibrary[] = "libvuna_common.so";

std::string telemetryLibraryOption(const tev_custom_options* options) {
  for (const auto* const option : {&kLibraryPath, &kFallbackLibraryPath})
    if (const char* path = tev_dict_get(options, option->key)) return path;
  return {};
}

bool exists(const std::string& path) {
  boost::system::error_code error;
  const auto type = fs::status(path, error).type();
  return type != fs::file_not_found && type != fs::status_error;
}

// A name without a directory means the file in the current directory, whose existence was checked,
// and not a file that the loader finds under that name in its search path.
void* openLibrary(const std::string& path) {
  const bool bare = path.find('/') == std::string::npos;
  return dlopen((bare ? "./" + path : path).c_str(), RTLD_NOW);
}

std::string loaderError() {
  const char* const text = dlerror();
  return text ? text : "unknown error";
}

template <class Function>
bool bind(Function*& pointer, void* library, const char* name) {
  pointer = reinterpret_cast<Function*>(dlsym(library, name));
  return pointer != nullptr;
}

}  // namespace

Api::Api(const tev_custom_options* options) {
  loadSymbols(telemetryLibraryOption(options));
}

Api::~Api() {
  unloadSymbols();
}

void Api::loadSymbols(const std::string& path) {
  const std::string telemetry_path = path.empty() ? kFallbackLibraryPath.default_value : path;
  if (!exists(telemetry_path))
    throw std::runtime_error("VUNA lib path does not exist at: " + telemetry_path);
  TEV_LOG_DEBUG("[multipath] VUNA lib path found in: %s", telemetry_path.c_str());

  const std::string common_path =
      (fs::path(telemetry_path).parent_path() / kCommonLibrary).string();
  if (!exists(common_path))
    throw std::runtime_error("VUNA common lib path does not exist at: " + common_path);
  TEV_LOG_DEBUG("[multipath] VUNA common lib path found in: %s", common_path.c_str());

  // Opened first, so that the telemetry library finds the one from its own directory loaded.
  common_library_ = openLibrary(common_path);
  if (!common_library_)
    throw std::runtime_error("Failed to open VUNA common lib '" + common_path +
                             "': " + loaderError());
  TEV_LOG_DEBUG("[multipath] VUNA common lib loaded successfully");

  // On failure the common library intentionally remains open.
  telemetry_library_ = openLibrary(telemetry_path);
  if (!telemetry_library_)
    throw std::runtime_error("Failed to open VUNA lib '" + telemetry_path + "': " + loaderError());
  TEV_LOG_DEBUG("[multipath] VUNA lib loaded successfully");

#define TEV_BIND(name, result, parameters)                    \
  if (!bind(name, telemetry_library_, #name)) {               \
    unloadSymbols();                                          \
    throw std::runtime_error("Failed to load symbol " #name); \
  }
  VUNA_FUNCTIONS(TEV_BIND)
#undef TEV_BIND
}

void Api::unloadSymbols() {
  for (void** library : {&telemetry_library_, &common_library_}) {
    if (*library) dlclose(*library);
    *library = nullptr;
  }
}

const char* Api::errorName(vuna_status status) const {
  const char* const name = vuna_error_get_name(status);
  return name ? name : "unnamed error";
}

}  // namespace tev::events::multipath
