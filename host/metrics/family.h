// What an exporter serves: metric families, independent of the library that writes them.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tev::host {

using Labels = std::vector<std::pair<std::string, std::string>>;  // name and value

struct Metric {
  std::shared_ptr<const Labels> labels;  // null: none
  double value = 0;
};

enum class MetricType { counter, gauge };

struct MetricFamily {
  std::string name;
  std::string help;  // not escaped
  MetricType type = MetricType::gauge;
  std::vector<Metric> metrics;
};

}  // namespace tev::host
