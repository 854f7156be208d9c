// The common library: options, messages, filters and sets.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/compare.h"
#include "tev/counter_set.h"
#include "tev/dict.h"
#include "tev/field_set.h"
#include "tev/filters.h"
#include "tev/logger.h"

namespace tev::bench {
namespace {

void dictGet(benchmark::State& state) {
  tev_custom_options* const dict = tev_dict_create();
  for (int i = 0; i < state.range(0); ++i)
    tev_dict_add(dict, ("some-option-" + std::to_string(i)).c_str(), "value");
  for ([[maybe_unused]] const auto _ : state)
    benchmark::DoNotOptimize(tev_dict_get(dict, "some-option-7"));
  tev_dict_delete(dict);
}
BENCHMARK(dictGet)->ArgName("entries")->Arg(8)->Arg(64)->Arg(512);

// The baseline is a load and a compare.
void disabledMessage(benchmark::State& state) {
  constexpr int kCalls = 1000;
  tev_set_log_level(TEV_LEVEL_ERROR);
  std::uint32_t level = TEV_LEVEL_ERROR;
  const auto message = [&] {
    for (int i = 0; i < kCalls; ++i) {
      TEV_LOG_DEBUG("%d", i);
      benchmark::ClobberMemory();
    }
  };
  const auto bare = [&] {
    for (int i = 0; i < kCalls; ++i) {
      benchmark::DoNotOptimize(level);
      if (level >= TEV_LEVEL_DEBUG) std::printf("%d", i);
      benchmark::ClobberMemory();
    }
  };
  const auto result = compare(state, 0, message, bare);
  state.counters["ns_per_call"] = result.work_ns / kCalls;
  tev_set_log_level(0);
}
BENCHMARK(disabledMessage)->UseManualTime()->MinTime(0.05);

void lineToAFile(benchmark::State& state) {
  const auto path =
      std::filesystem::temp_directory_path() / ("tev-bench." + std::to_string(getpid()) + ".log");
  tev_init_file_logger(path.c_str(), TEV_LEVEL_DEBUG);
  for ([[maybe_unused]] const auto _ : state)
    TEV_LOG_DEBUG("[bench] device %s has %d counters", "rdma0", 256);
  tev_close_logger();
  tev_set_log_level(0);
  std::filesystem::remove(path);
}
BENCHMARK(lineToAFile)->Iterations(100'000);

void tokenMatch(benchmark::State& state) {
  for ([[maybe_unused]] const auto _ : state)
    benchmark::DoNotOptimize(tev_filter_match_single_token("plane_tx_congestion_bytes", "^plane_"));
}
BENCHMARK(tokenMatch);

std::vector<std::string> patterns(std::int64_t count, const char* suffix) {
  std::vector<std::string> lines;
  for (std::int64_t i = 0; i < count; ++i)
    lines.push_back("^counter_" + std::to_string(i) + "_" + suffix);
  return lines;
}

// The name does not match any pattern, so all patterns are tried.
void counterSetMiss(benchmark::State& state) {
  ProviderCounterSet set;
  set.loadFromLines(patterns(state.range(0), "x"));
  const std::string name = "plane_tx_congestion_bytes";
  for ([[maybe_unused]] const auto _ : state)
    benchmark::DoNotOptimize(set.shouldIncludeCounter(name, ""));
}
BENCHMARK(counterSetMiss)->ArgName("patterns")->Arg(1)->Arg(10)->Arg(100);

void fieldSetMiss(benchmark::State& state) {
  auto lines = patterns(state.range(0), "x");
  lines.insert(lines.begin(), "[multipath_event_*]");
  ProviderFieldSet set;
  set.loadFromLines(lines);
  for ([[maybe_unused]] const auto _ : state)
    benchmark::DoNotOptimize(
        set.shouldIncludeField("multipath_event_plane", "plane_tx_congestion_bytes"));
}
BENCHMARK(fieldSetMiss)->ArgName("patterns")->Arg(1)->Arg(10)->Arg(100);

}  // namespace
}  // namespace tev::bench
