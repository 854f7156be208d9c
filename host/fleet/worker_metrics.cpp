#include "host/fleet/worker_metrics.h"

#include <algorithm>
#include <utility>

namespace tev::host {
namespace {

// The counts, their names and what they are.
struct CountFamily {
  std::uint64_t FleetCounts::*count;
  const char* name;
  const char* help;
};

constexpr CountFamily kCounts[] = {
    {&FleetCounts::messages, "tev_consumed_messages_total", "Messages that were read."},
    {&FleetCounts::events, "tev_consumed_events_total", "Events that were taken."},
    {&FleetCounts::bytes, "tev_consumed_block_bytes_total",
     "Bytes of the event blocks that were taken, unpacked."},
    {&FleetCounts::gaps, "tev_gaps_total", "Gaps in the numbers of the events of a node's run."},
    {&FleetCounts::lost, "tev_gap_events_total", "Events that are missing in these gaps."},
    {&FleetCounts::unseen, "tev_unseen_events_total",
     "Events of runs before the first message of theirs that was read."},
    {&FleetCounts::repeats, "tev_repeated_messages_total", "Messages that were sent again."},
    {&FleetCounts::repeated, "tev_repeated_events_total",
     "Events that were taken before, and were dropped."},
    {&FleetCounts::missing_offsets, "tev_removed_messages_total",
     "Messages that the brokers had removed before they were read."},
};

std::shared_ptr<const Labels> label(const char* name, std::string value) {
  return std::make_shared<Labels>(Labels{{name, std::move(value)}});
}

// "unknown schema" as the value of a label.
std::string labelOf(Cause cause) {
  std::string text = nameOf(cause);
  std::ranges::replace(text, ' ', '_');
  return text;
}

}  // namespace

std::vector<MetricFamily> workerFamilies(const FleetCounts& counts,
                                         const std::vector<PartitionLag>& lags) {
  std::vector<MetricFamily> families;
  for (const CountFamily& one : kCounts)
    families.push_back({one.name,
                        one.help,
                        MetricType::counter,
                        {{nullptr, static_cast<double>(counts.*one.count)}}});
  MetricFamily& rejected =
      families.emplace_back(MetricFamily{"tev_rejected_messages_total",
                                         "Messages that were skipped, by cause.",
                                         MetricType::counter,
                                         {}});
  for (std::size_t i = 0; i < kCauses; ++i)
    rejected.metrics.push_back(
        {label("cause", labelOf(static_cast<Cause>(i))), static_cast<double>(counts.rejected[i])});
  MetricFamily& lag = families.emplace_back(MetricFamily{
      "tev_lag_messages", "Messages of a partition that are not read yet.", MetricType::gauge, {}});
  for (const PartitionLag& one : lags)
    if (one.end >= 0)
      lag.metrics.push_back(
          {label("partition", std::to_string(one.partition)),
           static_cast<double>(std::max<std::int64_t>(one.end - one.position, 0))});
  return families;
}

WorkerMetrics::WorkerMetrics(const ListenAddress& address)
    : exporter_(address, [this] {
        std::shared_ptr<const std::vector<MetricFamily>> latest;
        {
          const std::lock_guard lock(mutex_);
          latest = latest_;
        }
        return *latest;
      }) {}

void WorkerMetrics::publish(std::vector<MetricFamily> families) {
  auto latest = std::make_shared<const std::vector<MetricFamily>>(std::move(families));
  const std::lock_guard lock(mutex_);
  latest_.swap(latest);  // the old one is released after the lock, if no scrape uses it
}

}  // namespace tev::host
