#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "host/bus/subscription.h"
#include "host/fleet/range.h"
#include "host/fleet/worker_metrics.h"
#include "host/kafka/settings.h"
#include "host/metrics/prometheus_options.h"

namespace tev::host {

enum class ConsumeFormat : std::uint8_t { parquet, jsonl, csv, capture };

struct ConsumeOptions {
  KafkaOptions kafka;
  std::string group;
  ConsumeFormat format = ConsumeFormat::parquet;
  std::string output;  // path; empty: standard output
  RangeLimits limits;
  bool limits_given = false;
  bool is_forced_out = true;  // each range is forced to the disk before it counts as done
  std::optional<PrometheusOptions> prometheus;
  std::chrono::milliseconds schema_patience{10'000};
};

// tev-host consume: takes the messages of the topic until the user ends it. Returns the exit code.
// Throws UsageError and RunError.
int consume(const ConsumeOptions& options);

// The same for any message bus. `metrics` may be null.
int consume(const ConsumeOptions& options, Subscription& subscription, SchemaShelf& shelf,
            WorkerMetrics* metrics);

}  // namespace tev::host
