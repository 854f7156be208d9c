// Set-up with an SDK that takes almost no time: construct and initialize, the parsing of counter
// descriptions, and schemas.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/delivery.h"
#include "collector/counter_parser.h"

namespace tev::bench {
namespace {

void constructAndInitialize(benchmark::State& state) {
  const Shape shape{.devices = static_cast<std::uint32_t>(state.range(0)),
                    .device_counters = 56,
                    .planes = 4,
                    .counters_per_plane = 50};
  const auto options = samplingOptions();
  for ([[maybe_unused]] const auto _ : state) {
    const HandDriven provider(shape, options.get());
    benchmark::DoNotOptimize(&provider);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(shape.devices));
}
BENCHMARK(constructAndInitialize)->ArgName("devices")->Arg(1)->Arg(16)->Arg(64)->UseRealTime();

void counterParsing(benchmark::State& state) {
  const auto lines = descriptions({.device_counters = 56, .planes = 4, .counters_per_plane = 50});
  for ([[maybe_unused]] const auto _ : state) {
    events::multipath::SlotInfo slot;
    slot.counter_infos = lines;
    events::multipath::parseCounters(slot);
    benchmark::DoNotOptimize(slot.counters.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(lines.size()));
}
BENCHMARK(counterParsing);

void schemaAddAndId(benchmark::State& state) {
  std::vector<std::string> names;
  std::vector<tev_type_field_info_t> fields;
  for (int i = 0; i < 256; ++i) names.push_back("counter_" + std::to_string(i));
  for (const auto& name : names)
    fields.push_back({name.c_str(), "counted by the device", "uint32_t", TEV_VALUE_ABSOLUTE, 1});
  for ([[maybe_unused]] const auto _ : state) {
    tev_type_system_t* const types = tev_create_type_system();
    tev_schema_t* const schema = tev_type_system_add_schema(types, "bench", 1, nullptr);
    tev_schema_add_type(schema, "type", fields.data(), fields.size(), nullptr);
    tev_type_system_update_md5_hashes(types);
    tev_destroy_type_system(types);
  }
  state.SetItemsProcessed(state.iterations() * 256);
}
BENCHMARK(schemaAddAndId);

}  // namespace
}  // namespace tev::bench
