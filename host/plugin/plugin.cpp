#include "host/plugin/plugin.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <filesystem>
#include <system_error>

#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

// The path for the loader. Refuses what is not a regular file, because the loader would wait for
// ever for a pipe. Adds "./" to a bare name, because the loader would search its own folders for
// it.
std::string pathForLoader(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) return path;
  if (!std::filesystem::is_regular_file(status))
    throw RunError(fmt::format("cannot load the plug-in: {} is not a file", asPrintable(path)));
  return path.find('/') == std::string::npos ? "./" + path : path;
}

void* load(const std::string& path) {
  void* const handle = dlopen(pathForLoader(path).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) throw RunError(fmt::format("cannot load the plug-in: {}", asPrintable(dlerror())));
  return handle;
}

}  // namespace

Plugin::Plugin(const std::string& path) : handle_(load(path)) {
  find("construct_event_provider", construct_);
  find("_tev_register_logger", register_logger_);
  find("multipath_event_provider_get_sample_counts", get_sample_counts_);
  find("multipath_event_provider_get_ledger", get_ledger_);
  find("multipath_event_provider_get_option", get_option_);
  find("multipath_event_provider_get_device_info", get_device_info_);
  if (!construct_)
    throw RunError(asPrintable(path) + " is not a plug-in: it lacks construct_event_provider");
}

template <class Function>
void Plugin::find(const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(handle_, name));
}

void Plugin::shareLogger() const {
  if (!register_logger_) return;
  tev_logger_ctx_t* const ctx = tev_get_logger_ctx();
  register_logger_(ctx);
  tev_destroy_logger_ctx(ctx);
}

}  // namespace tev::host
