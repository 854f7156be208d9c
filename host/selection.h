// What of a plug-in's events is written out, and under which names.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "host/run_options.h"
#include "host/schema_view.h"
#include "tev/filters.h"

namespace tev::host {

// Leaves of the schema what the field set and the counter set want: columns go, counters get their
// aliases, and types of which nothing is left are no longer wanted. A counter is any field that is
// no key. Throws UsageError, with the names that there are, when a set cannot be used.
void select(SchemaView& schema, const SelectionOptions& options);

// A filter expression over the names of devices.
class DeviceFilter {
 public:
  // Lets everything pass.
  DeviceFilter() = default;

  // Throws UsageError when it holds too much.
  explicit DeviceFilter(const std::string& expression);

  bool passes(const std::string& device) const;

  // Throws UsageError when there are devices, and none passes.
  void expectOneOf(const std::vector<std::string>& devices) const;

 private:
  struct Tokens {
    tev_filter_token_t all[TEV_FILTER_MAX_TOKENS];
    std::size_t count = 0;
  };

  std::string expression_;
  std::unique_ptr<Tokens> inclusive_ = std::make_unique<Tokens>();
  std::unique_ptr<Tokens> exclusive_ = std::make_unique<Tokens>();
};

}  // namespace tev::host
