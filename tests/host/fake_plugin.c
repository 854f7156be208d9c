/* A plug-in without devices that does what its options say, also what no plug-in should do.
 *
 *   trace=FILE        the calls are appended to it, one per line
 *   say=LEVELS        what construct logs: any of "error", "warning", "debug"
 *   refuse=STEP       construct, initialize or start; "entry" leaves an entry point out
 *   samples=N         of each device while it runs; 0: without end, which is the default
 *   burst=N           samples taken from one progress to the next, default 1
 *   after_stop=N      samples that are there after stop
 *   failures=N        calls of progress that fail before the first that does not
 *   wrong=WHAT        progress misbehaves: "stuck", "overrun", "endless" or "result"; or its blocks
 * do: "magic", "schema", "type", "count" or "cut" lost=N            samples that are said to have
 * been lost
 */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tev/event_provider.h"
#include "tev/logger.h"

enum { kDevices = 2, kPlanes = 2, kEventsPerSample = kDevices * (1 + kPlanes) };

static const char* const kDeviceNames[kDevices] = {"alpha", "be"};

struct Script {
  char trace[256];
  char say[64];
  char refuse[32];
  char wrong[32];
  unsigned long samples, burst, after_stop, failures, lost;
};

static struct Script script;
static tev_event_provider_t record;
static uint8_t schema_index, device_type, plane_type;
static unsigned long next_event, events_there; /* counted over all samples */
static bool stopped;

static void readText(const tev_custom_options* options, const char* key, char* text, size_t size) {
  const char* const value = tev_dict_get(options, key);
  snprintf(text, size, "%s", value ? value : "");
}

static unsigned long readNumber(const tev_custom_options* options, const char* key,
                                unsigned long otherwise) {
  const char* const value = tev_dict_get(options, key);
  return value ? strtoul(value, NULL, 10) : otherwise;
}

static bool is(const char* text, const char* word) {
  return strcmp(text, word) == 0;
}

static void trace(const char* call) {
  FILE* const file = *script.trace ? fopen(script.trace, "a") : NULL;
  if (!file) return;
  fprintf(file, "%s\n", call);
  fclose(file);
}

static bool initialize(tev_event_provider_t* provider, tev_type_system_t* types) {
  trace("initialize");
  if (is(script.refuse, "initialize")) return false;
  const tev_type_field_info_t fields[] = {{"device_name", "its name", "char", 0, 5},
                                          {"plane", "its number", "uint8_t", 0, 1},
                                          {"bytes", "a counter", "uint32_t", 0, 1}};
  const tev_type_field_info_t device_fields[] = {fields[0], fields[2]};
  const char* const keys[] = {"device_name", "plane"};
  tev_schema_t* const schema =
      tev_type_system_add_schema(types, provider->name, provider->version, &schema_index);
  return tev_schema_add_type(schema, "fake_device", device_fields, 2, &device_type) == 0 &&
         tev_schema_add_type(schema, "fake_plane", fields, 3, &plane_type) == 0 &&
         tev_schema_set_field_indexes(schema, device_type, keys, 1) == 0 &&
         tev_schema_set_field_indexes(schema, plane_type, keys, 2) == 0;
}

static bool start(tev_event_provider_t* provider) {
  (void)provider;
  trace("start");
  TEV_LOG_DEBUG("[fake] starting");
  return !is(script.refuse, "start");
}

/* Sample s of a device: time stamp s + 1 seconds, counter 100 s + 10 plane, planes from 1. */
static int writeEvent(tev_data_serializer_t* serializer) {
  const unsigned long sample = next_event / kEventsPerSample;
  const unsigned long part = next_event % kEventsPerSample;
  const unsigned device = (unsigned)(part / (1 + kPlanes));
  const unsigned plane = (unsigned)(part % (1 + kPlanes));
  const uint32_t bytes = (uint32_t)(100 * sample + 10 * plane);

  char event[10] = "";
  size_t size = 5;
  memcpy(event, kDeviceNames[device], strlen(kDeviceNames[device]));
  if (plane > 0) event[size++] = (char)(plane - 1);
  memcpy(event + size, &bytes, sizeof bytes);
  return tev_data_serializer_write_events_ts(serializer, schema_index,
                                             plane > 0 ? plane_type : device_type, event, 1,
                                             (sample + 1) * 1000000);
}

static void spoil(tev_data_serializer_t* serializer) {
  if (is(script.wrong, "magic")) serializer->buffer[0] = 'X';
  if (is(script.wrong, "schema")) serializer->buffer[12] = 9;
  if (is(script.wrong, "type")) serializer->buffer[14] = 1;
  if (is(script.wrong, "count")) serializer->buffer[15] = 255;
  if (is(script.wrong, "cut")) serializer->used -= 1;
  if (is(script.wrong, "overrun")) serializer->used = serializer->capacity + 1;
}

static void takeSamples(void) {
  const unsigned long limit = script.samples * kEventsPerSample;
  if (stopped) {
    events_there += script.after_stop * kEventsPerSample;
    if (!is(script.wrong, "endless")) script.after_stop = 0;
  } else if (script.samples == 0 || events_there < limit) {
    events_there += script.burst * kEventsPerSample;
    if (script.samples > 0 && events_there > limit) events_there = limit;
  }
}

static int progress(tev_event_provider_t* provider, uint16_t source,
                    tev_data_serializer_t* serializer) {
  (void)provider;
  (void)source;
  trace("progress");
  if (is(script.wrong, "stuck")) return TEV_PROGRESS_FULL;
  if (is(script.wrong, "result")) return 7;
  if (script.failures > 0) {
    --script.failures;
    return TEV_PROGRESS_FAILED;
  }
  if (next_event == events_there) takeSamples();
  for (; next_event < events_there; ++next_event)
    if (writeEvent(serializer) == 0) return TEV_PROGRESS_FULL;
  if (serializer->used > 0) spoil(serializer);
  return TEV_PROGRESS_DONE;
}

static bool stop(tev_event_provider_t* provider) {
  (void)provider;
  trace("stop");
  stopped = true;
  return true;
}

static void finalize(tev_event_provider_t* provider) {
  (void)provider;
  trace("finalize");
}

static void say(void) {
  if (strstr(script.say, "debug")) TEV_LOG_DEBUG("[fake] looking for %s", "devices");
  if (strstr(script.say, "warning")) TEV_LOG_WARNING("[fake] half of it is missing");
  if (strstr(script.say, "error")) TEV_LOG_ERROR("[fake] the device is on fire");
}

tev_event_provider_t* construct_event_provider(const tev_custom_options* options) {
  readText(options, "trace", script.trace, sizeof script.trace);
  readText(options, "say", script.say, sizeof script.say);
  readText(options, "refuse", script.refuse, sizeof script.refuse);
  readText(options, "wrong", script.wrong, sizeof script.wrong);
  script.samples = readNumber(options, "samples", 0);
  script.burst = readNumber(options, "burst", 1);
  script.after_stop = readNumber(options, "after_stop", 0);
  script.failures = readNumber(options, "failures", 0);
  script.lost = readNumber(options, "lost", 0);

  trace("construct");
  say();
  if (dlsym(RTLD_DEFAULT, "tev_create_type_system")) {
    TEV_LOG_ERROR("[fake] the host shows its own copy of the common library");
    return NULL;
  }
  if (is(script.refuse, "construct")) return NULL;
  record.version = 1;
  record.name = "fake";
  record.description = "a plug-in without devices";
  record.initialize = initialize;
  record.start = start;
  record.progress = is(script.refuse, "entry") ? NULL : progress;
  record.stop = stop;
  record.finalize = finalize;
  return &record;
}

bool multipath_event_provider_get_sample_counts(tev_event_provider_t* provider,
                                                uint32_t device_index, const char** device_name,
                                                tev_multipath_sample_counts_t* counts) {
  (void)provider;
  if (device_index >= kDevices) return false;
  if (device_name) *device_name = kDeviceNames[device_index];
  *counts = (tev_multipath_sample_counts_t){next_event, device_index == 1 ? script.lost : 0, 3};
  return true;
}
