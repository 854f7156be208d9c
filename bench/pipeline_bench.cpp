// The pipeline in steady state: sample, swap, deliver, with all locks, clocks and clearing. The
// baseline is a bare loop that gathers by index, reads one clock per sample, and copies each event
// behind a header. A plain copy of the delivered bytes is measured too.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "bench/compare.h"
#include "bench/delivery.h"
#include "bench/sampler.h"

namespace tev::bench {
namespace {

void pipeline(benchmark::State& state) {
  // One device event of 32 counters and four plane events of 16.
  const Shape shape{.device_counters = 32,
                    .planes = 4,
                    .counters_per_plane = 16,
                    .order = state.range(1) ? Order::shuffled : Order::contiguous};
  const auto passes = static_cast<std::size_t>(state.range(0));
  const auto size = sampleSize(shape);
  const std::size_t delivered = (size.sample + 16 * (shape.planes + 1)) * passes;
  std::vector<std::uint8_t> out(delivered + 4096);

  HandDriven driven(shape, samplingOptions().get());
  BareSampler bare(shape);
  const auto work = [&] {
    for (std::size_t i = 0; i < passes; ++i) driven.pass();
    driven.deliver(out, out.size());
  };
  const auto baseline = [&] {
    bare.empty();
    for (std::size_t i = 0; i < passes; ++i) bare.pass();
    std::uint8_t* to = out.data();
    for (const auto& device : bare.devices()) {
      const std::byte* event = device.bytes.data();
      for (std::size_t i = 0; i < device.events; ++i) {
        const bool plane = i % (shape.planes + 1) != 0;
        const std::size_t bytes = plane ? size.plane_event : size.device_event;
        to = putBlock(to, device.timestamps[i], plane, event, bytes);
        event += bytes;
      }
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  };
  const auto result = compare(
      state, static_cast<double>(delivered), work, baseline, [] {}, [] {}, 1);
  std::vector<std::uint8_t> copy(out.size());
  std::vector<double> copy_ns(1001);
  for (auto& one : copy_ns)
    one = nanoseconds(
        [&] {
          std::memcpy(copy.data(), out.data(), delivered);
          benchmark::DoNotOptimize(copy.data());
          benchmark::ClobberMemory();
        },
        1);
  const double values = static_cast<double>(passes) * shape.countersPerDevice();
  state.counters["ns_per_value"] = result.work_ns / values;
  state.counters["baseline_ns_per_value"] = result.baseline_ns / values;
  state.counters["memcpy_ns"] = median(copy_ns);
}

BENCHMARK(pipeline)
    ->ArgNames({"samples", "shuffled"})
    ->ArgsProduct({{64, kPassesPerBatch}, {1, 0}})
    ->UseManualTime()
    ->MinTime(0.2);

}  // namespace
}  // namespace tev::bench
