// Delivery of events to the host's serializer. The baseline writes a 16-byte header and a copy per
// event. The swap of the buffers is also measured. Its cost should be proportional to the used part
// of the buffers.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "bench/compare.h"
#include "bench/delivery.h"

namespace tev::bench {
namespace {

void progress(benchmark::State& state) {
  const auto event_size = static_cast<std::uint32_t>(state.range(0));
  const auto room = state.range(1);  // events that a serializer holds; 0: all of them
  const Shape shape{.device_counters = (event_size - std::uint32_t{kNameLength}) / 4};
  Delivery delivery(shape, room == 0 ? 0 : static_cast<std::size_t>(room));
  const double events = kPassesPerBatch;
  const auto result = compare(
      state, events * static_cast<double>(delivery.eventSize() + 16), [&] { delivery.deliver(); },
      [&] { delivery.deliverBare(); }, [&] { delivery.refill(); }, [&] { delivery.refillBare(); },
      1);
  state.counters["event_bytes"] = static_cast<double>(delivery.eventSize());
  state.counters["ns_per_event"] = result.work_ns / events;
}

BENCHMARK(progress)
    ->ArgNames({"bytes", "room"})
    ->ArgsProduct({{32, 128, 512, 1024}, {0, 16, 4}})
    ->UseManualTime()
    ->MinTime(0.02);

// Swaps a buffer of 8 MiB of which `share` percent are used. The baseline clears the same number of
// bytes.
void swap(benchmark::State& state) {
  constexpr std::size_t kEvents = 8192;
  constexpr std::uint32_t kCounters = 256;
  const Shape shape{.device_counters = kCounters};
  const auto used = kEvents * static_cast<std::size_t>(state.range(0)) / 100;
  SwapWork work(shape, kEvents, used);
  compare(
      state, static_cast<double>(used * sampleSize(shape).sample), [&] { work.swap(); },
      [&] { work.clearBare(); }, [&] { work.fill(); }, [&] { work.fillBare(); }, 1);
}

BENCHMARK(swap)->ArgNames({"share"})->Arg(1)->Arg(50)->Arg(100)->UseManualTime()->MinTime(0.1);

}  // namespace
}  // namespace tev::bench
