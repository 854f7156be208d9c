// A plug-in without devices. It does what its options say, including errors that a plug-in should
// not make.
//
//   trace=FILE        the calls are appended to it, one per line
//   say=LEVELS        what construct logs: any of "error", "warning", "debug"; "clean-up" is a
//   debug
//                     line behind them
//   refuse=STEP       construct or initialize; "entry" leaves an entry point out
//   hang=STEP         initialize, stop, finalize or (drain) the last progress does not return
//   burst=N           samples taken from one progress to the next, default 1
//   after_stop=N      samples that are there after stop
//   failures=N        calls of progress that fail before the first that does not
//   wrong=WHAT        progress misbehaves: "stuck", "overrun", "endless" or "magic"; or, from the
//                     second call on, "hang" or "abort"
//   lost=N            samples that are said to have been lost
//   failed=N          reads of each device that are said to have failed
#include <dlfcn.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "tev/event_provider.h"
#include "tev/logger.h"

namespace {

constexpr unsigned kDevices = 2;
constexpr unsigned kPlanes = 2;
constexpr unsigned kEventsPerSample = kDevices * kPlanes;
constexpr const char* kDeviceNames[kDevices] = {"alpha", "be"};

std::map<std::string, std::string> script;
tev_event_provider_t record;
unsigned long next_event, events_there;  // counted over all samples
unsigned long after_stop, failures;
bool stopped;

// Several threads look up at the same time.
std::string given(const char* key) {
  const auto found = script.find(key);
  return found == script.end() ? "" : found->second;
}

bool is(const char* key, const char* word) {
  return given(key) == word;
}

unsigned long number(const char* key) {
  return std::strtoul(given(key).c_str(), nullptr, 10);
}

void trace(const char* call) {
  if (!is("trace", "")) std::ofstream(given("trace"), std::ios::app) << call << '\n';
  if (is("hang", call)) std::this_thread::sleep_for(std::chrono::hours(1));
}

bool initialize(tev_event_provider_t* provider, tev_type_system_t* types) {
  trace("initialize");
  if (is("refuse", "initialize")) return false;
  const tev_type_field_info_t fields[] = {{"device_name", "its name", "char", 0, 5},
                                          {"plane", "its number", "uint8_t", 0, 1},
                                          {"bytes", "a counter", "uint32_t", 0, 1}};
  const char* const keys[] = {"device_name", "plane"};
  tev_schema_t* const schema =
      tev_type_system_add_schema(types, provider->name, provider->version, nullptr);
  return tev_schema_add_type(schema, "fake_plane", fields, 3, nullptr) == 0 &&
         tev_schema_set_field_indexes(schema, 0, keys, 2) == 0;
}

bool start(tev_event_provider_t*) {
  trace("start");
  TEV_LOG_DEBUG("[fake] starting");
  return true;
}

// Sample s of a device: time stamp s + 1 seconds, counter 100 s + 10 plane.
bool writeEvent(tev_data_serializer_t* serializer) {
  const unsigned long sample = next_event / kEventsPerSample;
  const unsigned long plane = next_event % kPlanes;
  const auto bytes = static_cast<std::uint32_t>(100 * sample + 10 * plane);
  std::string event = kDeviceNames[next_event / kPlanes % kDevices];
  event.resize(5);
  event += static_cast<char>(plane);
  event.append(reinterpret_cast<const char*>(&bytes), sizeof bytes);
  return tev_data_serializer_write_events_ts(serializer, 0, 0, event.data(), 1,
                                             (sample + 1) * 1000000) != 0;
}

void takeSamples() {
  events_there += (stopped ? after_stop : number("burst")) * kEventsPerSample;
  if (stopped && !is("wrong", "endless")) after_stop = 0;
}

int progress(tev_event_provider_t*, std::uint16_t, tev_data_serializer_t* serializer) {
  trace("progress");
  if (next_event > 0 && is("wrong", "hang")) std::this_thread::sleep_for(std::chrono::hours(1));
  if (stopped && is("hang", "drain")) std::this_thread::sleep_for(std::chrono::hours(1));
  if (next_event > 0 && is("wrong", "abort")) std::abort();
  if (is("wrong", "stuck")) return TEV_PROGRESS_FULL;
  if (failures > 0) {
    --failures;
    return TEV_PROGRESS_FAILED;
  }
  if (next_event == events_there) takeSamples();
  for (; next_event < events_there; ++next_event)
    if (!writeEvent(serializer)) return TEV_PROGRESS_FULL;
  if (is("wrong", "magic")) serializer->buffer[0] = 'X';
  if (is("wrong", "overrun")) serializer->used = serializer->capacity + 1;
  return TEV_PROGRESS_DONE;
}

bool stop(tev_event_provider_t*) {
  trace("stop");
  stopped = true;
  return true;
}

void finalize(tev_event_provider_t*) {
  trace("finalize");
}

}  // namespace

tev_event_provider_t* construct_event_provider(const tev_custom_options* options) {
  script["burst"] = "1";
  tev_dict_enum(
      options,
      [](const char* key, const char* value, void*) {
        script[key] = value ? value : "";
        return true;
      },
      nullptr);
  after_stop = number("after_stop");
  failures = number("failures");

  trace("construct");
  const std::string levels = given("say");
  const char* const say = levels.c_str();
  if (std::strstr(say, "debug")) TEV_LOG_DEBUG("[fake] looking for %s", "devices");
  if (std::strstr(say, "warning")) TEV_LOG_WARNING("[fake] half of it is missing");
  if (std::strstr(say, "error")) TEV_LOG_ERROR("[fake] the device is on fire");
  if (std::strstr(say, "clean-up")) TEV_LOG_DEBUG("[fake] cleaned up");
  if (dlsym(RTLD_DEFAULT, "tev_create_type_system")) {
    TEV_LOG_ERROR("[fake] the host shows its own copy of the common library");
    return nullptr;
  }
  if (is("refuse", "construct")) return nullptr;
  record.version = 1;
  record.name = "fake";
  record.description = "a plug-in without devices";
  record.initialize = initialize;
  record.start = start;
  record.progress = is("refuse", "entry") ? nullptr : progress;
  record.stop = stop;
  record.finalize = finalize;
  return &record;
}

bool multipath_event_provider_get_sample_counts(tev_event_provider_t*, std::uint32_t device_index,
                                                const char** device_name,
                                                tev_multipath_sample_counts_t* counts) {
  if (device_index >= kDevices) return false;
  *device_name = kDeviceNames[device_index];
  *counts = {next_event, device_index == 1 ? number("lost") : 0, number("failed")};
  return true;
}
