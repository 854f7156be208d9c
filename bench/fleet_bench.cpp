// The consuming end of a bus: messages of many sources become Parquet files, as tev-host consume
// does it on one core. Each message has ten seconds of eight adapters. The baseline is a plain copy
// of the event blocks. Files are not forced to the disk; they are in the folder for temporary
// files.
#include <benchmark/benchmark.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bench/batch.h"
#include "bench/compare.h"
#include "bench/recording.h"
#include "host/fleet/aggregate.h"
#include "host/fleet/parquet_worker.h"

namespace tev::bench {
namespace {

constexpr std::uint32_t kAdapters = 8;
constexpr int kSeconds = 10;
constexpr std::size_t kMessages = 10'000;
constexpr std::uint64_t kEventsOfMessage = kAdapters * kSeconds * (1 + kPlanes);
constexpr std::uint64_t kRangeMessages = 2'500;  // about 100 MB of event blocks

// The messages of some sources, in turn.
class Messages final : public host::Subscription, public host::SchemaShelf {
 public:
  explicit Messages(std::size_t sources) : sources_(sources) {
    Batch batch(kAdapters, kSeconds, 1'000'000);
    for (std::size_t i = 0; i < kDistinct; ++i, batch.advance()) {
      blocks_.assign(batch.blocks().begin(), batch.blocks().end());
      host::Batch batch_of_node;
      batch_of_node.run = {"node", 1};
      batch_of_node.schemas =
          std::make_shared<host::RunSchemas>(host::RunSchemas{{schema().id}, {schema().text}});
      batch_of_node.events = kEventsOfMessage;
      batch_of_node.blocks = blocks_;
      messages_.push_back(writer_.write(batch_of_node));
    }
  }

  std::size_t size() const { return blocks_.size(); }  // bytes of the blocks of a message
  const std::vector<std::uint8_t>& blocks() const { return blocks_; }

  void poll(host::PartitionOwner& owner, std::size_t, std::chrono::milliseconds) override {
    for (std::size_t i = 0; i < kMessages; ++i) {
      const host::OutgoingMessage& sent = messages_[i / sources_ % kDistinct];
      const std::string source = "node-" + std::to_string(i % sources_);
      const std::string first = std::to_string(i / sources_ * kEventsOfMessage);
      host::PartitionMessage message{0, static_cast<std::int64_t>(i), {source, {}, sent.value}};
      for (const auto& [name, value] : sent.headers)
        message.message.headers.emplace_back(name, name == "tev-source"  ? source
                                                   : name == "tev-first" ? first
                                                                         : value);
      owner.take(message);
    }
    owner.take({0, kMessages, {"end", {}, {}}});  // ends the last range
  }

  bool commit(std::int32_t, std::int64_t, std::string&) override { return true; }
  std::vector<host::PartitionLag> lags() override { return {}; }
  void close() override {}

  std::optional<std::string> find(const std::string&, std::chrono::milliseconds) override {
    return schema().text;
  }

 private:
  static constexpr std::size_t kDistinct = 64;

  static const host::SchemaView::Schema& schema() {
    static const host::SchemaView view = makeSchema();
    return view.schemas()[0];
  }

  std::size_t sources_;
  host::MessageWriter writer_;
  std::vector<std::uint8_t> blocks_;  // of the last message
  std::vector<host::OutgoingMessage> messages_;
};

double cpuSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void fleetToParquet(benchmark::State& state) {
  Messages messages(static_cast<std::size_t>(state.range(0)));
  const TemporaryFolder temporary;
  const std::string path = temporary.path("fleet");
  std::uint64_t events = 0;
  double cpu = 0;
  const auto work = [&] {
    const double begin = cpuSeconds();
    host::SchemaCache schemas(messages, std::chrono::milliseconds(0));
    host::Intake intake(schemas);
    host::RangeFolder folder(path, "bench", false);
    host::ParquetWorker worker(folder, {UINT64_MAX, kRangeMessages, 1'000'000'000}, intake,
                               messages, [](auto) { return false; });
    worker.assigned(0);
    messages.poll(worker, kMessages, {});
    events = worker.written().events;
    cpu = cpuSeconds() - begin;
  };
  std::vector<std::uint8_t> copied(messages.size());
  const auto copy = [&] {
    for (std::size_t i = 0; i < kMessages; ++i) {
      std::memcpy(copied.data(), messages.blocks().data(), copied.size());
      benchmark::DoNotOptimize(copied.data());
      benchmark::ClobberMemory();
    }
  };
  const double bytes = static_cast<double>(kMessages * messages.size());
  compare(
      state, bytes, work, copy, [&] { std::filesystem::remove_all(path); }, [] {}, 1);
  if (events != kMessages * kEventsOfMessage) state.SkipWithError("not all events are written");
  state.counters["cpu_ns_per_event"] = cpu * 1e9 / static_cast<double>(events);
  state.counters["MB_per_cpu_s"] = bytes / cpu / 1e6;
}
BENCHMARK(fleetToParquet)
    ->ArgName("sources")
    ->Arg(10)
    ->Arg(1000)
    ->Arg(10'000)
    ->UseManualTime()
    ->MinTime(0.5);

std::size_t residentBytes() {
  std::ifstream file("/proc/self/statm");
  std::size_t all = 0;
  std::size_t resident = 0;
  file >> all >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// What a worker's metrics cost beside that: the sums over all sources, from unpacked messages.
void fleetAggregate(benchmark::State& state) {
  constexpr std::size_t kRounds = 16;
  const auto sources = static_cast<std::size_t>(state.range(0));
  Messages shelf(1);
  host::SchemaCache schemas(shelf, std::chrono::milliseconds(0));
  const auto schema = schemas.of({makeSchema().schemas()[0].id});
  std::vector<std::vector<std::uint8_t>> rounds;
  Batch batch(kAdapters, kSeconds, 1'000'000);
  for (std::size_t i = 0; i < kRounds; ++i, batch.advance())
    rounds.emplace_back(batch.blocks().begin(), batch.blocks().end());
  std::vector<host::MessageHead> heads(sources);
  for (std::size_t i = 0; i < sources; ++i) heads[i].run = {"node-" + std::to_string(i), 1};

  const std::size_t before = residentBytes();
  host::Aggregate aggregate(std::chrono::seconds(60));
  std::size_t round = 0;
  double cpu = 0;
  std::size_t messages = 0;
  const auto work = [&] {
    const double begin = cpuSeconds();
    host::Contents contents;
    contents.schema = schema;
    contents.blocks = rounds[round++ % kRounds];
    for (const host::MessageHead& head : heads) aggregate.taken(0, head, contents, 0);
    cpu += cpuSeconds() - begin;
    messages += sources;
  };
  work();  // makes the state of the sources
  const std::size_t state_bytes = residentBytes() - before;
  cpu = 0;
  messages = 0;
  std::vector<std::uint8_t> copied(rounds[0].size());
  const auto copy = [&] {
    for (std::size_t i = 0; i < sources; ++i) {
      std::memcpy(copied.data(), rounds[i % kRounds].data(), copied.size());
      benchmark::DoNotOptimize(copied.data());
      benchmark::ClobberMemory();
    }
  };
  const auto bytes = static_cast<double>(sources * rounds[0].size());
  compare(
      state, bytes, work, copy, [] {}, [] {}, 1);
  const auto all = static_cast<double>(messages);
  state.counters["cpu_ns_per_event"] = cpu * 1e9 / all / static_cast<double>(kEventsOfMessage);
  state.counters["MB_per_cpu_s"] = all * static_cast<double>(rounds[0].size()) / cpu / 1e6;
  state.counters["KB_per_source"] =
      static_cast<double>(state_bytes) / 1e3 / static_cast<double>(sources);
  state.counters["estimated_KB_per_source"] =
      static_cast<double>(aggregate.memory()) / 1e3 / static_cast<double>(sources);
  state.counters["families_us"] =
      nanoseconds([&] { benchmark::DoNotOptimize(aggregate.families()); }, 10) * 1e-3;
}
BENCHMARK(fleetAggregate)->ArgName("sources")->Arg(10)->Arg(10'000)->UseManualTime()->MinTime(0.5);

}  // namespace
}  // namespace tev::bench
