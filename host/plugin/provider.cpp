#include "host/plugin/provider.h"

#include <fmt/format.h>

#include <cstring>
#include <utility>

#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {

Provider::Provider(const Plugin& plugin, const tev_custom_options* options)
    : plugin_(plugin), record_(plugin.construct()(options)) {
  if (record_ && !(record_->initialize && record_->start && record_->progress && record_->stop &&
                   record_->finalize))
    throw RunError("the plug-in's provider record lacks an entry point");
}

Provider::~Provider() {
  if (!record_) return;
  stop();
  record_->finalize(record_);
}

std::string Provider::version() const {
  const std::uint32_t version = record_->version;
  return fmt::format("{}.{}.{}", version & 0xff, (version >> 8) & 0xff, version >> 16);
}

bool Provider::initialize(tev_type_system_t* type_system) {
  must_stop_ = record_->initialize(record_, type_system);
  return must_stop_;
}

bool Provider::start() {
  return record_->start(record_);
}

int Provider::progress(tev_data_serializer_t* serializer) {
  return record_->progress(record_, 0, serializer);
}

bool Provider::stop() {
  return !std::exchange(must_stop_, false) || record_->stop(record_);
}

bool Provider::readCounts(std::uint32_t device_index, DeviceCounts& counts) const {
  const char* name = nullptr;
  if (const auto get_ledger = plugin_.getLedger()) {
    tev_multipath_ledger_t ledger{};
    if (!get_ledger(record_, device_index, &name, &ledger, sizeof ledger)) return false;
    const char* const failure = ledger.last_failure;
    counts = {.lost = ledger.buffer_full,
              .failed = ledger.read_refused + ledger.nothing_filled,
              .refused = ledger.read_refused,
              .nothing_filled = ledger.nothing_filled,
              .missed_by_overrun = ledger.missed_by_overrun,
              .missed_by_late_wakeup = ledger.missed_by_late_wakeup,
              .discarded = ledger.discarded,
              .last_good_usec = ledger.last_good_usec,
              .left_out = ledger.left_out,
              .last_failure = asPrintable({failure, strnlen(failure, sizeof ledger.last_failure)})};
  } else {
    tev_multipath_sample_counts_t samples{};
    if (!plugin_.getSampleCounts()(record_, device_index, &name, &samples)) return false;
    counts = {.lost = samples.lost, .failed = samples.failed, .failed_otherwise = samples.failed};
  }
  if (name) counts.device = asPrintable(name);
  return true;
}

std::optional<std::vector<DeviceCounts>> Provider::deviceCounts() const {
  if (!plugin_.getLedger() && !plugin_.getSampleCounts()) return std::nullopt;
  std::vector<DeviceCounts> all;
  DeviceCounts counts;
  while (readCounts(static_cast<std::uint32_t>(all.size()), counts)) all.push_back(counts);
  return all;
}

std::vector<DeviceReads> Provider::deviceReads() const {
  std::vector<DeviceReads> all;
  const auto get_ledger = plugin_.getLedger();
  const char* name = nullptr;
  tev_multipath_ledger_t ledger{};
  while (get_ledger &&
         get_ledger(record_, static_cast<std::uint32_t>(all.size()), &name, &ledger, sizeof ledger))
    all.push_back({name ? name : "", ledger.due, ledger.left_out});
  return all;
}

}  // namespace tev::host
