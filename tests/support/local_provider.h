// A provider in this program and its host.
#pragma once

#include <optional>

#include "provider/provider.h"
#include "tests/support/fake_machine.h"
#include "tests/support/host.h"

namespace tev::test {

class LocalProvider : public Host {
 public:
  explicit LocalProvider(const events::multipath::Surroundings& surroundings)
      : Host(&record_), surroundings_(surroundings) {
    record_.name = "multipath_events";
    record_.version = 1;
    record_.initialize = multipath_event_provider_initialize;
    record_.progress = multipath_event_provider_progress;
  }
  ~LocalProvider() { stop(); }

  // Throws what the provider throws.
  void construct(const tev_custom_options* options) {
    provider_.emplace(options, surroundings_);
    record_.context = &*provider_;
  }

  void stop() {
    if (provider_) multipath_event_provider_stop(&record_);
  }

  tev_multipath_sample_counts_t counts() {
    tev_multipath_sample_counts_t counts{};
    multipath_event_provider_get_sample_counts(&record_, TEV_ALL_DEVICES, nullptr, &counts);
    return counts;
  }

  // The ledger of all devices.
  tev_multipath_ledger_t ledger() {
    tev_multipath_ledger_t ledger{};
    multipath_event_provider_get_ledger(&record_, TEV_ALL_DEVICES, nullptr, &ledger, sizeof ledger);
    return ledger;
  }

  events::multipath::Collector& collector() { return provider_->collector(); }

 private:
  tev_event_provider_t record_{};
  events::multipath::Surroundings surroundings_;
  std::optional<events::multipath::Provider> provider_;
};

}  // namespace tev::test
