#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tev/filters.h"

namespace tev::host {

// Filter expressions over the names of devices.
class DeviceFilter {
 public:
  // A device passes if it passes any of the expressions, and if there are none. Throws UsageError
  // when an expression exceeds the limits.
  explicit DeviceFilter(const std::vector<std::string>& expressions);

  bool passes(const std::string& device) const;

  // Throws UsageError when there are devices but none of them passes one of the expressions.
  void expectOneOf(const std::vector<std::string>& devices) const;

 private:
  struct Tokens {
    tev_filter_token_t all[TEV_FILTER_MAX_TOKENS];
    std::size_t count = 0;
  };

  struct Expression {
    explicit Expression(const std::string& text);
    bool passes(const std::string& device) const;

    std::string text;
    std::unique_ptr<Tokens> inclusive = std::make_unique<Tokens>();
    std::unique_ptr<Tokens> exclusive = std::make_unique<Tokens>();
  };

  std::vector<Expression> expressions_;
};

}  // namespace tev::host
