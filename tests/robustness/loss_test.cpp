// Lost samples are always counted, however slowly the host fetches, and every delivered byte is the
// byte that was sampled.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "tests/support/local_provider.h"

namespace tev::test {
namespace {

std::size_t residentKib() {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

constexpr std::uint32_t kPlanes = 32;
constexpr std::uint32_t kCounters = 2;  // of the device, and of each plane

// What a counter has at a read; nothing needs to be stored for the comparison.
std::uint32_t valueAt(std::uint64_t read, std::uint64_t counter) {
  return static_cast<std::uint32_t>((read * 100 + counter) * 0x9e3779b1);
}

// Samples without a pause, and delivers through a serializer of a few events.
TEST(FastMotion, MillionsOfEventsArriveWholeAndTheRestIsCounted) {
  const char* const wanted_text = std::getenv("ROBUSTNESS_EVENTS");
  // A tenth of them where the sanitizers slow it down.
  const std::uint64_t wanted = wanted_text ? std::strtoull(wanted_text, nullptr, 10)
                               : SANITIZED ? 1'000'000
                                           : 10'000'000;
  const CapturedLog log(TEV_LEVEL_WARNING);
  FakeMachine machine;
  std::vector<std::string> lines = {"rx, d", "tx, d"};
  for (std::uint32_t plane = 0; plane < kPlanes; ++plane)
    for (const std::string name : {"out", "rtt"})
      lines.push_back(name + ", d, plane " + std::to_string(plane));
  machine.sdk.add("rdma0", lines, std::vector<std::uint32_t>(lines.size()));
  const std::uint64_t began = machine.clock.realtime_usec;
  std::uint64_t reads = 0;  // the sampling thread's, until it has ended
  machine.sdk.on_read = [&](auto&, auto& values) {
    for (std::uint32_t i = 0; i < values.size(); ++i) values[i] = valueAt(reads, i);
    machine.clock.realtime_usec = began + ++reads;
  };
  LocalProvider provider(machine.surroundings());
  provider.construct(
      options({{"multipath-sample-interval-usec", "0"}, {"multipath-max-buffer-size", "100000"}})
          .get());
  ASSERT_TRUE(provider.initialize());

  std::uint64_t device_events = 0;
  std::uint64_t plane_events = 0;
  std::uint64_t torn = 0;
  // The events of a sample are spread over the batch, the device events first: each kind is counted
  // on its own.
  const auto deliver = [&] {
    provider.drain(4'096, [&](const std::uint8_t* block, const auto&) {
      const bool of_plane = block[13] == 1;
      const std::uint64_t plane = plane_events % kPlanes;
      const std::uint64_t read = of_plane ? plane_events++ / kPlanes : device_events++;
      const std::uint64_t time = began + read;
      torn += std::memcmp(block + 4, &time, sizeof time) != 0;
      torn += of_plane && block[16 + 5] != plane;
      std::uint32_t values[kCounters];
      std::memcpy(values, block + 16 + 5 + of_plane, sizeof values);
      for (std::uint64_t i = 0; i < kCounters; ++i)
        torn += values[i] != valueAt(read, of_plane ? kCounters * (1 + plane) + i : i);
    });
  };
  for (std::uint64_t lost = 1'000; lost <= 20'000; lost += 1'000) {  // a host that fetches late
    while (provider.counts().lost < lost) std::this_thread::yield();
    deliver();
  }
  while (plane_events < wanted / 10) deliver();
  const auto resident_before = residentKib();
  while (plane_events < wanted) deliver();
  const auto resident_after = residentKib();
  provider.stop();
  deliver();
  const auto counts = provider.counts();
  EXPECT_EQ(torn, 0u);
  EXPECT_EQ(counts.taken, counts.lost + device_events);
  EXPECT_EQ(plane_events, device_events * kPlanes);
  EXPECT_EQ(reads, device_events);  // what is lost is not read
  EXPECT_EQ(counts.failed, 0u);
  // The sanitizers keep what is freed.
  if (!SANITIZED) {
    EXPECT_LE(resident_after, resident_before + 1024);
  }
  const std::size_t events = device_events + plane_events;
  std::printf("events checked: %zu\nresident memory: %zu KiB, then %zu KiB\n", events,
              resident_before, resident_after);
}

}  // namespace
}  // namespace tev::test
