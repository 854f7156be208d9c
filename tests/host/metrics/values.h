// The values of metrics by their names and labels.
#pragma once

#include <cmath>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/metrics/family.h"

namespace tev::test {

using Values = std::map<std::string, double>;  // "tev_up device=d"

inline Values valuesOf(const std::vector<host::MetricFamily>& families) {
  Values values;
  for (const host::MetricFamily& family : families)
    for (const host::Metric& one : family.metrics) {
      std::string key = family.name;
      if (one.labels)
        for (const auto& [name, value] : *one.labels) key += " " + name + "=" + value;
      if (!values.emplace(key, std::round(1e3 * one.value) / 1e3).second)
        throw std::logic_error(key + " is there twice");
    }
  return values;
}

}  // namespace tev::test
