// One sampling pass over all devices. The baseline is a bare loop that gathers the same counters by
// index into packed records, reads the clock once per device, and takes one uncontended lock.
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <vector>

#include "bench/compare.h"
#include "bench/instant_sdk.h"
#include "bench/sampler.h"

namespace tev::bench {
namespace {

void samplingPass(benchmark::State& state) {
  const auto planes = static_cast<std::uint32_t>(state.range(2));
  const auto counters = static_cast<std::uint32_t>(state.range(1));
  Shape shape{.devices = static_cast<std::uint32_t>(state.range(0)),
              .order = state.range(3) ? Order::interleaved : Order::contiguous};
  // The counters are distributed evenly over the device event and the plane events. Each plane
  // has at least one.
  shape.planes = planes;
  shape.counters_per_plane = planes == 0 ? 0 : std::max(1U, counters / (planes + 1));
  shape.device_counters = counters - planes * shape.counters_per_plane;

  Sampler sampler(shape);
  BareSampler bare(shape);
  // The number of passes whose events fit into the cache. The buffers are emptied, untimed,
  // before each turn.
  constexpr std::size_t kBytesPerTurn = 256 * 1024;
  const std::size_t bytes = sampleSize(shape).sample * shape.devices;
  const auto passes = static_cast<int>(std::clamp<std::size_t>(kBytesPerTurn / bytes, 4, 64));
  compare(
      state, static_cast<double>(bytes), [&] { sampler.pass(); }, [&] { bare.pass(); },
      [&] { sampler.empty(); }, [&] { bare.empty(); }, passes);
  const auto values = static_cast<double>(counters * shape.devices);
  state.counters["ns_per_value"] = state.counters["work_ns"] / values;
}

void shapes(benchmark::internal::Benchmark* bench) {
  for (const int devices : {1, 8, 64})
    for (const int counters : {16, 64, 256})
      for (const int planes : {0, 1, 4, 16})
        for (const int interleaved : planes > 0 ? std::vector{0, 1} : std::vector{0})
          bench->Args({devices, counters, planes, interleaved});
}

BENCHMARK(samplingPass)
    ->ArgNames({"devices", "counters", "planes", "interleaved"})
    ->Apply(shapes)
    ->UseManualTime()
    ->MinTime(0.02);

}  // namespace
}  // namespace tev::bench
