// The built library as a host has it: opened by path, known by its exported names alone.
#pragma once

#include <dlfcn.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tev/event_provider.h"
#include "tev/logger.h"

namespace tev::test {

// A scenario of the simulator: one device whose first counter says how often it has been read.
inline constexpr char kCountedReads[] = R"({
  "clock": "samples",
  "devices": [{"ibdev_name": "rdma0", "slots": [{"counters": [
    {"text": "reads, how often", "law": {"type": "ramp", "per_sample": 1}},
    {"text": "tx, sent", "planes": 2, "law": {"type": "constant", "value": 7}}]}]}]})";

struct Event {
  std::uint64_t timestamp = 0;
  std::string type;
  std::string device;
  std::string bytes;  // all of the event
};

class Plugin {
 public:
  explicit Plugin(const char* path = PLUGIN) : handle_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
    if (!handle_) throw std::runtime_error(dlerror());
  }
  ~Plugin() { dlclose(handle_); }
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  template <class Symbol>
  Symbol* symbol(const char* name) const {
    void* const address = dlsym(handle_, name);
    if (!address) throw std::runtime_error(dlerror());
    return reinterpret_cast<Symbol*>(address);
  }

  // Hands this module's logger to the plug-in, so that a CapturedLog sees what it says.
  void shareLogger() const {
    tev_logger_ctx_t* const ctx = tev_get_logger_ctx();
    symbol<decltype(_tev_register_logger)>("_tev_register_logger")(ctx);
    tev_destroy_logger_ctx(ctx);
  }

  tev_event_provider_t* construct(const tev_custom_options* options) const {
    return symbol<decltype(construct_event_provider)>("construct_event_provider")(options);
  }

 private:
  void* handle_;
};

// A provider and the host's side of it.
class HostedProvider {
 public:
  HostedProvider(const Plugin& plugin, const tev_custom_options* options)
      : provider_(plugin.construct(options)), types_(tev_create_type_system()), buffer_(1 << 16) {}
  ~HostedProvider() {
    if (provider_) {
      provider_->stop(provider_);
      provider_->finalize(provider_);
    }
    tev_destroy_type_system(types_);
  }
  HostedProvider(const HostedProvider&) = delete;
  HostedProvider& operator=(const HostedProvider&) = delete;

  tev_event_provider_t* operator->() const { return provider_; }
  explicit operator bool() const { return provider_ != nullptr; }
  tev_event_provider_t* get() const { return provider_; }
  const tev_schema_t& schema() const { return *types_->schemas[0]; }

  bool initialize() { return provider_->initialize(provider_, types_); }

  // Everything that is there to be delivered now.
  std::vector<Event> drain() {
    std::vector<Event> events;
    int result = TEV_PROGRESS_FULL;
    while (result == TEV_PROGRESS_FULL) {
      tev_data_serializer_t serializer{types_, buffer_.data(), buffer_.size(), 0};
      result = provider_->progress(provider_, 0, &serializer);
      for (std::uint64_t at = 0; at < serializer.used;) at += decode(&buffer_[at], events);
    }
    if (result != TEV_PROGRESS_DONE) throw std::runtime_error("progress failed");
    return events;
  }

  // Drains until there have been so many events.
  std::vector<Event> await(std::size_t count) {
    std::vector<Event> events;
    while (events.size() < count)
      for (auto& event : drain()) events.push_back(std::move(event));
    return events;
  }

 private:
  std::size_t decode(const std::uint8_t* block, std::vector<Event>& events) {
    const auto& type = *schema().types[block[13]];
    Event event;
    std::memcpy(&event.timestamp, block + 4, sizeof event.timestamp);
    event.type = type.name;
    event.bytes.assign(reinterpret_cast<const char*>(block + 16), type.size);
    const auto name = event.bytes.substr(0, type.fields[0]->array_length);
    event.device = name.substr(0, name.find('\0'));
    events.push_back(std::move(event));
    return 16 + type.size;
  }

  tev_event_provider_t* provider_;
  tev_type_system_t* types_;
  std::vector<std::uint8_t> buffer_;
};

}  // namespace tev::test
