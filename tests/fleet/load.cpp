// Stands for many nodes: sends their events with the batching code of `tev-host run --kafka`, from
// one process: load BROKERS TOPIC SOURCES SECONDS BATCH_SECONDS. Each node has 8 adapters with 32
// counters and 4 planes with 16 counters each, sampled once per second. Sends as fast as the
// brokers take it, and prints a line of JSON: what was sent, and the CPU time of each step, without
// that of making the events.
#include <fmt/format.h>
#include <malloc.h>
#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/bus/batcher.h"
#include "host/kafka/publisher.h"
#include "host/support/random.h"
#include "tests/host/sample_types.h"

namespace {

using namespace tev::host;

constexpr int kAdapters = 8;
constexpr int kPlanes = 4;
constexpr int kDeviceCounters = 32;
constexpr int kPlaneCounters = 16;
constexpr int kPause = 1000;                  // seconds
constexpr std::size_t kLate = 100;            // sources, enough for each partition to have one
constexpr std::uint64_t kSecond = 1'000'000;  // microseconds

double cpuSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double wallSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double processCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void addType(tev_schema_t& schema, const char* name, std::vector<const char*> keys, int counters) {
  std::vector<std::string> names;
  names.reserve(static_cast<std::size_t>(counters));
  std::vector<tev_type_field_info_t> fields{{"device_name", nullptr, "char", 0, 8}};
  if (keys.size() > 1) fields.push_back({"plane", nullptr, "uint16_t", 0, 1});
  for (int i = 0; i < counters; ++i)
    fields.push_back(
        {names.emplace_back(fmt::format("counter_{:02}", i)).c_str(), nullptr, "uint32_t", 0, 1});
  std::uint8_t index = 0;
  if (tev_schema_add_type(&schema, name, fields.data(), fields.size(), &index) != 0 ||
      tev_schema_set_field_indexes(&schema, index, keys.data(), keys.size()) != 0)
    throw std::runtime_error("a type is not accepted");
}

// One node's events of one second. Counters move by a different step each, as those of adapters.
void fill(tev::test::Bytes& blocks, std::uint64_t now_usec, std::uint32_t node) {
  blocks.clear();
  const auto second = static_cast<std::uint32_t>(now_usec / kSecond);
  const auto value = [&](int adapter, int plane, int counter) {
    const std::uint32_t speed =
        (node * 2654435761U +
         static_cast<std::uint32_t>(adapter * 1000 + plane * 100 + counter) * 40503U) >>
        12;
    return second * (counter % 4 == 3 ? speed % 3 : speed);
  };
  blocks.block(now_usec, 0, 0, kAdapters);
  for (int adapter = 0; adapter < kAdapters; ++adapter) {
    blocks.text(fmt::format("rdma{}", adapter), 8);
    for (int i = 0; i < kDeviceCounters; ++i) blocks.add(value(adapter, 9, i));
  }
  blocks.block(now_usec, 0, 1, kAdapters * kPlanes);
  for (int adapter = 0; adapter < kAdapters; ++adapter) {
    for (int plane = 0; plane < kPlanes; ++plane) {
      blocks.text(fmt::format("rdma{}", adapter), 8).add(static_cast<std::uint16_t>(plane));
      for (int i = 0; i < kPlaneCounters; ++i) blocks.add(value(adapter, plane, i));
    }
  }
}

class Load {
 public:
  Load(const std::string& brokers, const std::string& topic)
      : publisher_(makeKafkaPublisher(
            {.brokers = brokers, .topic = topic, .settings = {}, .settings_file = ""}, false)) {
    const std::unique_ptr<tev_type_system_t, decltype(&tev_destroy_type_system)> types(
        tev_create_type_system(), tev_destroy_type_system);
    tev_schema_t* const schema = tev_type_system_add_schema(types.get(), "load", 1, nullptr);
    addType(*schema, "device", {"device_name"}, kDeviceCounters);
    addType(*schema, "plane", {"device_name", "plane"}, kPlaneCounters);
    tev_type_system_update_md5_hashes(types.get());
    schema_ = std::make_unique<SchemaView>(SchemaView::fromTypeSystem(*types));
  }

  void run(std::size_t sources, int seconds, int batch_seconds) {
    const std::size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
    std::vector<std::unique_ptr<Batcher>> batchers;
    for (std::size_t i = 0; i < sources; ++i)
      batchers.push_back(
          std::make_unique<Batcher>(RunId{fmt::format("node{:05}", i), randomNumber()}, *schema_,
                                    [this](const Batch& batch) { send(batch); }));
    publishSchema();
    const double start = wallSeconds();
    const std::uint64_t start_usec = static_cast<std::uint64_t>(time(nullptr)) * kSecond -
                                     static_cast<std::uint64_t>(seconds + kPause) * kSecond;
    tev::test::Bytes blocks;
    std::size_t memory = 0;
    for (int begin = 0; begin < seconds; begin += batch_seconds) {
      for (std::size_t node = 0; node < sources; ++node) {
        for (int i = begin; i < begin + batch_seconds; ++i) {
          const double begun = cpuSeconds();
          fill(blocks, start_usec + static_cast<std::uint64_t>(i) * kSecond,
               static_cast<std::uint32_t>(node));
          bytes_ += blocks.size();
          const double filled = cpuSeconds();
          batchers[node]->add(blocks);
          fill_cpu_ += filled - begun;
          batch_cpu_ += cpuSeconds() - filled;
        }
      }
      if (begin == 0) memory = mallinfo2().uordblks + mallinfo2().hblkhd - before;
      for (const auto& one : batchers) one->close();
    }
    std::uint64_t events = 0;
    for (const auto& one : batchers) events += one->events();
    // Readers end their files at an event of any of their sources that is much later.
    for (std::size_t node = 0; node < std::min(sources, kLate); ++node) {
      fill(blocks, start_usec + static_cast<std::uint64_t>(seconds + kPause) * kSecond,
           static_cast<std::uint32_t>(node));
      batchers[node]->add(blocks);
      batchers[node]->close();
    }
    while (waiting_ > 0) poll(100);
    fmt::print(R"({{"sources":{},"messages":{},"events":{},"block_bytes":{},"message_bytes":{},)"
               R"("wall_s":{:.3f},"cpu_s":{:.3f},"batch_cpu_s":{:.3f},"pack_cpu_s":{:.3f},)"
               R"("memory_bytes_per_source":{}}})"
               "\n",
               sources, messages_, events, bytes_, message_bytes_, wallSeconds() - start,
               processCpuSeconds() - fill_cpu_, batch_cpu_, pack_cpu_, memory / sources);
  }

 private:
  void publishSchema() {
    const auto& schema = schema_->schemas()[0];
    while (!publisher_->sendSchema(next_number_, schema.id, schema.text)) poll(10);
    ++next_number_;
    ++waiting_;
  }

  void send(const Batch& batch) {
    const double cpu = cpuSeconds();
    const OutgoingMessage message = writer_.write(batch);
    pack_cpu_ += cpuSeconds() - cpu;
    ++messages_;
    message_bytes_ += message.value.size();
    while (waiting_ > 1000 || !publisher_->send(next_number_, message)) poll(10);
    ++next_number_;
    ++waiting_;
  }

  void poll(int milliseconds) {
    publisher_->poll(std::chrono::milliseconds(milliseconds), [this](const DeliveryReport& report) {
      --waiting_;
      if (report.outcome != DeliveryReport::Outcome::stored)
        throw std::runtime_error("not stored: " + report.problem);
    });
  }

  std::unique_ptr<Publisher> publisher_;
  std::unique_ptr<SchemaView> schema_;
  MessageWriter writer_;
  std::uint64_t next_number_ = 0;
  std::uint64_t waiting_ = 0;  // messages without a report
  std::uint64_t messages_ = 0;
  std::uint64_t bytes_ = 0;          // of event blocks
  std::uint64_t message_bytes_ = 0;  // of the messages' values
  double fill_cpu_ = 0;
  double batch_cpu_ = 0;
  double pack_cpu_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fputs("load BROKERS TOPIC SOURCES SECONDS BATCH_SECONDS\n", stderr);
    return 2;
  }
  try {
    Load(argv[1], argv[2]).run(std::stoul(argv[3]), std::stoi(argv[4]), std::stoi(argv[5]));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "load: %s\n", error.what());
    return 1;
  }
}
