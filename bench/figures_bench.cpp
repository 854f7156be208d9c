// The cost of deriving figures from samples, per value, as in "tev-host run --rates" and
// "--window". The baseline only reads the values.
#include <benchmark/benchmark.h>

#include "bench/batch.h"
#include "bench/compare.h"
#include "host/events/decoder.h"
#include "host/events/series.h"
#include "host/events/values.h"
#include "host/figures/windows.h"

namespace tev::bench {
namespace {

constexpr int kPasses = 50;  // in a batch, as many as are fetched at once

void figures(benchmark::State& state) {
  const host::SchemaView schema = makeSchema();
  const host::Projection projection(schema);
  host::Figures figures(projection, knownKinds());
  host::SeriesTable series;
  host::Windows windows(figures, 1'000'000,
                        {[](const host::SeriesWindow&) {}, [](const host::DeviceWindow&) {}});
  Batch batch(static_cast<std::uint32_t>(state.range(0)), kPasses, 1000);
  std::uint64_t sum = 0;
  const auto derive = [&] {
    host::decodeBlocks(schema, batch.blocks(), [&](const host::Event& event) {
      const host::Series& one = series.of(event);
      figures.sample(event, one);
      windows.sample(event, one);
    });
  };
  const auto read = [&] {
    host::decodeBlocks(schema, batch.blocks(), [&](const host::Event& event) {
      for (const host::Column& column : event.type->columns)
        if (column.key == 0) sum += host::unsignedOf(column, event.data);
    });
    benchmark::DoNotOptimize(sum);
  };
  const auto result = compare(
      state, 0, derive, read, [&] { batch.advance(); }, [] {}, 1);
  state.counters["ns_per_value"] = result.work_ns / batch.values();
}
BENCHMARK(figures)->ArgName("devices")->Arg(1)->Arg(16)->Arg(64)->UseManualTime()->MinTime(0.3);

}  // namespace
}  // namespace tev::bench
