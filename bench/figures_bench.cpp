// The cost of deriving figures from samples, per value, as in "tev-host run --rates" and
// "--window". The baseline only reads the values.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "bench/compare.h"
#include "host/events/decoder.h"
#include "host/events/series.h"
#include "host/events/values.h"
#include "host/figures/windows.h"
#include "tev/schema.h"
#include "tev/serializer.h"

namespace tev::bench {
namespace {

constexpr std::uint32_t kDeviceCounters = 32;
constexpr std::uint32_t kPlanes = 4;
constexpr std::uint32_t kPlaneCounters = 16;
constexpr std::uint32_t kValuesPerDevice = kDeviceCounters + kPlanes * kPlaneCounters;
constexpr int kPasses = 50;  // in a batch, as many as are fetched at once

void addType(tev_schema_t* schema, const char* name, std::uint32_t counters, bool is_plane) {
  std::vector<std::string> names;
  for (std::uint32_t i = 0; i < counters; ++i) names.push_back("counter_" + std::to_string(i));
  std::vector<tev_type_field_info_t> fields{{"device_name", nullptr, "char", 0, 8}};
  if (is_plane) fields.push_back({"plane", nullptr, "uint8_t", 0, 1});
  for (const std::string& one : names) fields.push_back({one.c_str(), nullptr, "uint32_t", 0, 1});
  std::uint8_t index = 0;
  const char* keys[] = {"device_name", "plane"};
  tev_schema_add_type(schema, name, fields.data(), fields.size(), &index);
  tev_schema_set_field_indexes(schema, index, keys, is_plane ? 2 : 1);
}

host::SchemaView makeSchema() {
  tev_type_system_t* const types = tev_create_type_system();
  tev_schema_t* const schema = tev_type_system_add_schema(types, "bench", 1, nullptr);
  addType(schema, "device", kDeviceCounters, false);
  addType(schema, "plane", kPlaneCounters, true);
  host::SchemaView view = host::SchemaView::fromTypeSystem(*types);
  tev_destroy_type_system(types);
  return view;
}

// A batch of samples whose values grow from one call of advance() to the next.
class Batch {
 public:
  explicit Batch(std::uint32_t devices) : devices_(devices) { advance(); }

  void advance() {
    bytes_.clear();
    for (const bool planes : {false, true})
      for (std::uint32_t device = 0; device < devices_; ++device)
        for (int pass = 0; pass < kPasses; ++pass)
          for (std::uint32_t plane = 0; plane < (planes ? kPlanes : 1); ++plane)
            addEvent(planes, device, plane, pass_ + static_cast<std::uint64_t>(pass));
    pass_ += kPasses;
  }

  host::Blocks blocks() const { return bytes_; }
  double values() const { return kPasses * static_cast<double>(devices_) * kValuesPerDevice; }

 private:
  template <class Value>
  void add(const Value& value) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&value);
    bytes_.insert(bytes_.end(), bytes, bytes + sizeof value);
  }

  void addEvent(bool is_plane, std::uint32_t device, std::uint32_t plane, std::uint64_t pass) {
    const std::size_t begin = bytes_.size();
    bytes_.resize(begin + TEV_EVENT_BLOCK_HEADER_SIZE);
    std::uint8_t* const header = &bytes_[begin];
    const std::uint64_t timestamp = 1'700'000'000'000'000 + pass * 1000;
    constexpr std::uint8_t kMagic[] = {'T', 'E', 'V', 'E'};
    std::memcpy(header, kMagic, sizeof kMagic);
    std::memcpy(header + TEV_EVENT_BLOCK_TIMESTAMP_OFFSET, &timestamp, sizeof timestamp);
    header[TEV_EVENT_BLOCK_TYPE_INDEX_OFFSET] = is_plane;
    header[TEV_EVENT_BLOCK_COUNT_OFFSET] = 1;
    char name[8] = "dev";
    name[3] = static_cast<char>('A' + device / 26);
    name[4] = static_cast<char>('a' + device % 26);
    add(name);
    if (is_plane) add(static_cast<std::uint8_t>(plane));
    // One field in eight is a gauge.
    for (std::uint32_t i = 0; i < (is_plane ? kPlaneCounters : kDeviceCounters); ++i)
      add(static_cast<std::uint32_t>(i % 8 == 7 ? 50 + (pass + i) % 20 : pass * (i + 1) * 100));
  }

  std::uint32_t devices_;
  std::uint64_t pass_ = 0;
  std::vector<std::uint8_t> bytes_;
};

void figures(benchmark::State& state) {
  const host::SchemaView schema = makeSchema();
  const host::Projection projection(schema);
  host::Figures figures(projection, {.counters = {"^"}, .gauges = {"7$", "15$", "23$", "31$"}});
  host::SeriesTable series;
  host::Windows windows(figures, 1'000'000,
                        {[](const host::SeriesWindow&) {}, [](const host::DeviceWindow&) {}});
  Batch batch(static_cast<std::uint32_t>(state.range(0)));
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
