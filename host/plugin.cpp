#include "host/plugin.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <filesystem>
#include <system_error>
#include <utility>

#include "host/errors.h"
#include "host/text.h"

namespace tev::host {
namespace {

// The loader looks a name without a slash up in its own places, and waits for a pipe to be written.
std::string pathForLoader(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) return path;
  if (!std::filesystem::is_regular_file(status))
    throw RunError(fmt::format("cannot load the plug-in: {} is not a file", path));
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
  if (!construct_)
    throw RunError(fmt::format("{} is not a plug-in: it lacks construct_event_provider", path));
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

Provider::Provider(const Plugin& plugin, const tev_custom_options* options)
    : plugin_(plugin), record_(plugin.construct_(options)) {
  if (record_ && !(record_->initialize && record_->start && record_->progress && record_->stop &&
                   record_->finalize))
    throw RunError("the plug-in's provider record lacks an entry point");
}

Provider::~Provider() {
  if (!record_) return;
  stop();
  record_->finalize(record_);
}

bool Provider::initialize(tev_type_system_t* type_system) {
  samples_ = record_->initialize(record_, type_system);
  return samples_;
}

bool Provider::start() {
  return record_->start(record_);
}

int Provider::progress(tev_data_serializer_t* serializer) {
  return record_->progress(record_, 0, serializer);
}

bool Provider::stop() {
  return !std::exchange(samples_, false) || record_->stop(record_);
}

std::optional<std::vector<DeviceCounts>> Provider::sampleCounts() const {
  if (!plugin_.get_sample_counts_) return std::nullopt;
  std::vector<DeviceCounts> all;
  const char* name = nullptr;
  for (DeviceCounts one; plugin_.get_sample_counts_(record_, static_cast<std::uint32_t>(all.size()),
                                                    &name, &one.counts);
       all.push_back(one))
    one.device = name ? asPrintable(name) : "";
  return all;
}

}  // namespace tev::host
