#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tev/filters.h"

namespace tev::host {

// A filter expression over the names of devices.
class DeviceFilter {
 public:
  // Every device passes an empty expression. Throws UsageError when the expression exceeds the
  // limits.
  explicit DeviceFilter(const std::string& expression);

  bool passes(const std::string& device) const;

  // Throws UsageError when there are devices but none of them passes.
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
