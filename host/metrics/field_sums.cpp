#include "host/metrics/field_sums.h"

#include <fmt/format.h>

#include <functional>
#include <optional>

#include "host/events/byte_counters.h"
#include "host/events/values.h"
#include "host/figures/figures.h"
#include "host/support/errors.h"
#include "host/support/log.h"

namespace tev::host {
namespace {

constexpr std::uint64_t kUsecPerSecond = 1'000'000;

std::string prefixed(const FieldNames& names) {
  return "tev_fleet_" + names.word;
}

std::vector<std::string> metricsOf(const FieldNames& names) {
  const std::string name = prefixed(names);
  return {totalName(name), name + "_unknown_steps_total", name + "_peak_per_second",
          name + "_recent_min", name + "_recent_max"};
}

// The families by name. Two fields of one name but of other declarations are one metric.
class Families {
 public:
  using Combine = std::function<double(double, double)>;

  void add(const std::string& name, MetricType type, std::string help, double value,
           const Combine& combine) {
    const auto [found, is_new] =
        all_.emplace(name, MetricFamily{name, std::move(help), type, {{nullptr, value}}});
    if (is_new) return;
    double& before = found->second.metrics.front().value;
    before = combine(before, value);
  }

  std::vector<MetricFamily> take() {
    std::vector<MetricFamily> families;
    for (auto& entry : all_) families.push_back(std::move(entry.second));
    return families;
  }

 private:
  std::map<std::string, MetricFamily> all_;
};

double smaller(double a, double b) {
  return std::min(a, b);
}
double larger(double a, double b) {
  return std::max(a, b);
}

}  // namespace

FieldSum* FieldSums::of(const TypeView& type, const Column& column) {
  if (column.key != 0 || column.count != 1 || isText(column)) return nullptr;
  const FieldKind kind = isCounterSized(column) ? declaredKind(column, {}) : FieldKind::gauge;
  const std::string key = kindOf(type) + '\0' + column.name;
  const auto known = by_name_.find({key, kind});
  if (known != by_name_.end()) return known->second;
  if (by_name_.size() >= kMostFields) {
    is_full_ = true;
    return nullptr;
  }
  FieldSum* const added = add(type, column, kind);
  if (!added) ++left_out_;
  by_name_[{key, kind}] = added;
  return added;
}

FieldSum* FieldSums::add(const TypeView& type, const Column& column, FieldKind kind) {
  FieldNames names = namesOf(type, column);
  try {
    for (const std::string& metric : metricsOf(names)) names_.claim(metric, names.owner);
  } catch (const UsageError&) {
    Log::instance().say(fmt::format(
        "tev-host: --prometheus: {} is left out, because another field has its name in a metric",
        names.owner));
    return nullptr;
  }
  return &fields_
              .emplace_back(std::move(names),
                            FieldSum(kind, countsBytes(column) || countsPackets(column)),
                            static_cast<std::size_t>(peak_.count()))
              .sum;
}

void FieldSums::keepExtremes(Field& field, std::uint64_t second) {
  FieldSum& sum = field.sum;
  const auto keep = [second](RecentPeak& peak, double value) {
    if (value != -FieldSum::kHighest) peak.add(second, value);
  };
  keep(field.highest, sum.highest_per_usec_ * 1e6);
  keep(field.largest, sum.largest_);
  keep(field.smallest, -sum.smallest_);
  sum.highest_per_usec_ = sum.largest_ = -FieldSum::kHighest;
  sum.smallest_ = FieldSum::kHighest;
}

std::vector<MetricFamily> FieldSums::families(std::uint64_t now_usec) {
  const std::uint64_t second = now_usec / kUsecPerSecond;
  Families families;
  for (Field& field : fields_) {
    keepExtremes(field, second);
    const FieldSum& sum = field.sum;
    const FieldKind kind = sum.judge_.kind();
    if (kind == FieldKind::undecided) continue;
    const std::string name = prefixed(field.names);
    const std::string& head = field.names.head;
    const auto lately = [&](const char* suffix, const char* what, std::optional<double> value,
                            const Families::Combine& combine) {
      if (value)
        families.add(
            name + suffix, MetricType::gauge,
            fmt::format("{}: {} of any node, over the last {} seconds.", head, what, peak_.count()),
            *value, combine);
    };
    if (kind == FieldKind::gauge) {
      auto smallest = field.smallest.at(second);
      if (smallest) smallest = -*smallest;
      lately("_recent_min", "smallest sample", smallest, smaller);
      lately("_recent_max", "largest sample", field.largest.at(second), larger);
      continue;
    }
    field.total = std::max(field.total, sum.total_);
    field.unknown_steps = std::max(field.unknown_steps, sum.unknown_steps_);
    families.add(totalName(name), MetricType::counter,
                 field.names.described +
                     ": increase over all nodes, as this worker read it, without unknown steps.",
                 static_cast<double>(field.total), std::plus<>());
    families.add(name + "_unknown_steps_total", MetricType::counter,
                 head + ": steps of all nodes that are not known.",
                 static_cast<double>(field.unknown_steps), std::plus<>());
    lately("_peak_per_second", "highest rate of any single sample, per second,",
           field.highest.at(second), larger);
  }
  return families.take();
}

}  // namespace tev::host
