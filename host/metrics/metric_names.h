// Names of metrics and labels.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace tev::host {

// The text with "_" in place of each character that names of metrics and labels cannot have. These
// are all but ASCII letters, digits and "_". A character of several bytes is one.
std::string nameWord(std::string_view text);

// The name of a label for a key field. Names may neither begin with a digit nor with "__".
std::string labelName(std::string_view field);

// The name of a counter's metric ends with "_total", once.
std::string totalName(const std::string& name);

// The metrics of one exporter, each with what it stands for.
class MetricNames {
 public:
  // Throws UsageError, with both owners, when the name already belongs to another one.
  void claim(const std::string& metric, const std::string& owner);

 private:
  std::map<std::string, std::string> owners_;
};

}  // namespace tev::host
