#include "host/metrics/metric_names.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

bool isNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

}  // namespace

std::string nameWord(std::string_view text) {
  std::string word;
  while (!text.empty()) {
    word += isNameCharacter(text[0]) ? text[0] : '_';
    text.remove_prefix(std::max<std::size_t>(utf8Length(text), 1));
  }
  return word;
}

std::string labelName(std::string_view field) {
  std::string name = nameWord(field);
  while (name.starts_with("__")) name.erase(0, 1);
  if (name.empty() || (name[0] >= '0' && name[0] <= '9')) name.insert(0, "_");
  return name;
}

std::string totalName(const std::string& name) {
  return name.ends_with("_total") ? name : name + "_total";
}

void MetricNames::claim(const std::string& metric, const std::string& owner) {
  const auto [found, is_new] = owners_.emplace(metric, owner);
  if (!is_new && found->second != owner)
    throw UsageError(
        fmt::format("--prometheus: {} and {} would both be the metric {}: one of them "
                    "needs another name, by an alias in a counter set (--cset)",
                    found->second, owner, metric));
}

}  // namespace tev::host
