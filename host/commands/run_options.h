#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "host/bus/bus_options.h"
#include "host/capture/capture_options.h"
#include "host/events/projection.h"
#include "host/figures/counting_options.h"
#include "host/kafka/settings.h"
#include "host/metrics/prometheus_options.h"
#include "host/outputs/formats.h"
#include "host/plugin/plugin_options.h"
#include "host/screen/symbols.h"

namespace tev::host {

struct RunOptions {
  PluginOptions plugin;
  SelectionOptions selection;
  std::uint64_t buffer_bytes = std::uint64_t{1} << 20;
  std::chrono::milliseconds update{1000};
  bool full_screen = false;              // instead of an output that writes
  std::optional<SymbolSet> symbols;      // of the screen; nothing: depends on the terminal
  const OutputFormat* format = nullptr;  // null: depends on where the output goes
  std::optional<CaptureOptions> capture;
  std::optional<PrometheusOptions> prometheus;
  KafkaOptions kafka;  // no brokers: do not send
  BusOptions bus;
  std::string output;  // path; empty: standard output
  std::optional<std::chrono::nanoseconds> duration;
  std::optional<std::uint64_t> samples;
  bool jitter = false;                              // measure it
  bool strict = false;                              // a missing sample is a failure
  bool rates = false;                               // derived figures beside the events
  std::optional<std::chrono::milliseconds> window;  // derived figures instead of the events
  CountingOptions counting;
  std::optional<double> link_gbits;  // instead of the speeds that the kernel reports
};

}  // namespace tev::host
