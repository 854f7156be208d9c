// The C functions with which a host uses the plug-in. They catch the plug-in's exceptions.

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "collector/options.h"
#include "provider/provider.h"
#include "src/support/guard.h"
#include "src/support/malloc_ptr.h"
#include "tev/event_provider.h"
#include "tev/logger.h"

using tev::events::multipath::Provider;

static_assert(sizeof(tev_event_provider_t) == 19 * sizeof(void*) &&
              offsetof(tev_event_provider_t, context) == 4 * sizeof(void*) &&
              offsetof(tev_event_provider_t, initialize) == 5 * sizeof(void*) &&
              offsetof(tev_event_provider_t, get_source_config) == 12 * sizeof(void*));
static_assert(sizeof(tev_event_provider_config_t) == 16 &&
              offsetof(tev_event_provider_config_t, word32) == 8 &&
              offsetof(tev_event_provider_config_t, word16) == 12);

namespace {

constexpr char kTag[] = "[multipath] ";

Provider& providerOf(tev_event_provider_t* record) {
  return *static_cast<Provider*>(record->context);
}

}  // namespace

tev_event_provider_t* construct_event_provider(const tev_custom_options* options) {
  tev::support::MallocPtr<tev_event_provider_t> record(
      static_cast<tev_event_provider_t*>(std::calloc(1, sizeof(tev_event_provider_t))));
  if (!record) {
    TEV_LOG_ERROR("[multipath] Failed to allocate base_provider");
    return nullptr;
  }
  // The plug-in throws only exceptions that are derived from std::exception. Others are passed on.
  try {
    record->context = new Provider(options);
  } catch (const std::exception& error) {
    TEV_LOG_ERROR("[multipath] Failed to construct provider: %s", error.what());
    return nullptr;
  }
  record->version = 1;
  record->name = "multipath_events";
  record->description = "Sample HCA multipath telemetry";
  record->initialize = multipath_event_provider_initialize;
  record->start = multipath_event_provider_start;
  record->progress = multipath_event_provider_progress;
  record->stop = multipath_event_provider_stop;
  record->finalize = multipath_event_provider_finalize;
  record->get_sources = multipath_event_provider_get_sources;
  record->get_source_config = multipath_event_provider_get_source_config;
  return record.release();
}

bool multipath_event_provider_initialize(tev_event_provider_t* provider,
                                         tev_type_system_t* type_system) {
  return tev::support::guarded(
      __func__, false, [&] { return providerOf(provider).initialize(provider, type_system); },
      kTag);
}

bool multipath_event_provider_start(tev_event_provider_t* provider) {
  // Sampling began with initialize.
  return !provider || !provider->context || providerOf(provider).isInItsProcess();
}

int multipath_event_provider_progress(tev_event_provider_t* provider, uint16_t source_index,
                                      tev_data_serializer_t* serializer) {
  return tev::support::guarded<int>(
      __func__, TEV_PROGRESS_FAILED,
      [&] { return providerOf(provider).progress(source_index, serializer); }, kTag);
}

bool multipath_event_provider_stop(tev_event_provider_t* provider) {
  return tev::support::guarded(
      __func__, true,
      [&] {
        providerOf(provider).stop();
        return true;
      },
      kTag);
}

void multipath_event_provider_finalize(tev_event_provider_t* provider) {
  if (!provider) return;
  // In a child process, nothing is released, because all objects belong to the parent.
  if (provider->context && !providerOf(provider).isInItsProcess()) return;
  delete static_cast<Provider*>(provider->context);
  std::free(provider);
}

tev_source_array_t* multipath_event_provider_get_sources(tev_event_provider_t* /*provider*/) {
  tev_source_array_t* const sources = tev_create_source_array();
  if (!sources) {
    TEV_LOG_ERROR("[multipath] cannot allocate sources");
    return nullptr;
  }
  tev_source_t* const source = tev_create_default_source("multipath");
  if (!source) {
    tev_destroy_source_array(sources);
    return nullptr;
  }
  if (!tev_source_array_append(sources, source)) {
    tev_destroy_source_array(sources);
    tev_destroy_source(source);
    return nullptr;
  }
  return sources;
}

bool multipath_event_provider_get_source_config(tev_event_provider_t* /*provider*/,
                                                uint16_t /*source_index*/,
                                                tev_event_provider_config_t* config) {
  *config = {.word64 = 7, .word32 = 0, .word16 = 0};
  return true;
}

namespace {

// The caller's record may be of an earlier or a later version. The fields that both versions have
// are filled in, and the bytes after them in the caller's record are set to zero.
template <class Record>
void fillIn(Record* callers, std::size_t size, const Record& record) {
  if (size == 0) return;
  std::memset(static_cast<void*>(callers), 0, size);
  std::memcpy(static_cast<void*>(callers), &record, std::min(size, sizeof record));
}

// Reads the ledger of one device, or of all devices together. False when there is no such device.
bool readLedger(tev_event_provider_t* provider, std::uint32_t device_index,
                const char** device_name, tev_multipath_ledger_t& ledger) {
  const auto& collector = providerOf(provider).collector();
  if (device_name) *device_name = nullptr;
  ledger = {};
  // A fork may have happened while the ledger was being changed.
  if (!providerOf(provider).isInItsProcess()) return false;
  if (device_index == TEV_ALL_DEVICES) {
    for (std::size_t device = 0; device < collector.numDevices(); ++device)
      tev::events::multipath::add(ledger, collector.ledger(device));
    return true;
  }
  if (device_index >= collector.numDevices()) return false;
  if (device_name) *device_name = collector.devices()[device_index].name.c_str();
  ledger = collector.ledger(device_index);
  return true;
}

}  // namespace

bool multipath_event_provider_get_sample_counts(tev_event_provider_t* provider,
                                                uint32_t device_index, const char** device_name,
                                                tev_multipath_sample_counts_t* counts) {
  tev_multipath_ledger_t ledger;
  const bool found = readLedger(provider, device_index, device_name, ledger);
  *counts = {.taken = ledger.taken,
             .lost = ledger.buffer_full,
             .failed = ledger.read_refused + ledger.nothing_filled};
  return found;
}

bool multipath_event_provider_get_ledger(tev_event_provider_t* provider, uint32_t device_index,
                                         const char** device_name, tev_multipath_ledger_t* ledger,
                                         size_t size) {
  tev_multipath_ledger_t whole;
  const bool found = readLedger(provider, device_index, device_name, whole);
  fillIn(ledger, size, whole);
  return found;
}

bool multipath_event_provider_get_device_info(tev_event_provider_t* provider, uint32_t index,
                                              tev_multipath_device_info_t* info, size_t size) {
  return tev::support::guarded(
      __func__, false,
      [&] {
        Provider& of = providerOf(provider);
        const bool found = of.isInItsProcess() && index < of.collector().listed().size();
        fillIn(info, size, found ? of.deviceInfo(index) : tev_multipath_device_info_t{});
        return found;
      },
      kTag);
}

bool multipath_event_provider_get_option(uint32_t index, tev_multipath_option_t* option,
                                         size_t size) {
  const auto options = tev::events::multipath::options();
  const bool found = index < options.size();
  fillIn(option, size, found ? options[index] : tev_multipath_option_t{});
  return found;
}
