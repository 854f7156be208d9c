// Lost samples are always counted, however slowly the host fetches, and every delivered byte is the
// byte that was sampled.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "tests/support/captured_log.h"
#include "tests/support/fake_machine.h"
#include "tests/support/local_provider.h"
#include "tests/support/options.h"

namespace tev::test {
namespace {

// The values are computed from the number of the read, so the reader need not store what was
// written.
std::uint32_t lawfulValue(std::uint64_t read, std::uint32_t counter) {
  std::uint64_t x = read * 0x9e3779b97f4a7c15 + counter * 0xbf58476d1ce4e5b9;
  x ^= x >> 29;
  return static_cast<std::uint32_t>(x * 0x94d049bb133111eb >> 32);
}

std::size_t residentBytes() {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

constexpr std::uint32_t kPlanes = 32;
constexpr std::uint32_t kDeviceCounters = 3;
constexpr std::uint32_t kPlaneCounters = 2;

// Samples without a pause, and delivers through a serializer of a few events.
class FastMotion : public testing::Test, protected FakeMachine {
 protected:
  FastMotion() : began_(clock.realtime_usec) {
    std::vector<std::string> lines = {"rx, d", "tx, d", "err, d"};
    for (std::uint32_t plane = 0; plane < kPlanes; ++plane)
      for (const std::string name : {"out", "rtt"})
        lines.push_back(name + ", d, plane " + std::to_string(plane));
    sdk.add("rdma0", lines, std::vector<std::uint32_t>(lines.size()));
    sdk.on_read = [this](auto&, auto& values) {
      for (std::uint32_t i = 0; i < values.size(); ++i) values[i] = lawfulValue(reads_, i);
      clock.realtime_usec = began_ + ++reads_;
    };
    provider_.construct(
        options({{"multipath-sample-interval-usec", "0"}, {"multipath-max-buffer-size", "100000"}})
            .get());
    EXPECT_TRUE(provider_.initialize());
  }

  void deliver() {
    provider_.drain(4'096, [this](const std::uint8_t* block, const auto&) { check(block); });
  }

  // The events of a sample are spread over the batch, the device events first: each kind is counted
  // on its own.
  void check(const std::uint8_t* block) {
    const bool of_plane = block[13] == 1;
    const auto plane = static_cast<std::uint32_t>(plane_events_ % kPlanes);
    const std::uint64_t read = of_plane ? plane_events_++ / kPlanes : device_events_++;
    std::uint8_t expected[32] = {};
    std::size_t size = 0;
    const auto put = [&](const auto& value) {
      std::memcpy(expected + size, &value, sizeof value);
      size += sizeof value;
    };
    put(began_ + read);
    std::memcpy(expected + size, block + 12, 4);  // indexes and a count, which the host has checked
    size += 4;
    put(std::array{'r', 'd', 'm', 'a', '0'});
    if (of_plane) put(static_cast<std::uint8_t>(plane));
    const std::uint32_t first = of_plane ? kDeviceCounters + plane * kPlaneCounters : 0;
    for (std::uint32_t i = 0; i < (of_plane ? kPlaneCounters : kDeviceCounters); ++i)
      put(lawfulValue(read, first + i));
    if (std::memcmp(block + 4, expected, size) != 0) ++torn_;
  }

  std::uint64_t lost() { return provider_.counts().lost; }
  std::uint64_t events() const { return device_events_ + plane_events_; }

  void endAndExpectExact() {
    provider_.stop();
    deliver();
    const auto counts = provider_.counts();
    EXPECT_EQ(torn_, 0u);
    EXPECT_EQ(counts.taken, counts.lost + device_events_);
    EXPECT_EQ(plane_events_, device_events_ * kPlanes);
    EXPECT_EQ(reads_, device_events_);  // what is lost is not read
    EXPECT_EQ(counts.failed, 0u);
  }

 private:
  CapturedLog log_{TEV_LEVEL_WARNING};
  const std::uint64_t began_;
  std::uint64_t reads_ = 0;  // the sampling thread's, until it has ended
  LocalProvider provider_{surroundings()};
  std::uint64_t device_events_ = 0;
  std::uint64_t plane_events_ = 0;
  std::uint64_t torn_ = 0;
};

TEST_F(FastMotion, WhatIsNotFetchedInTimeIsCounted) {
  for (int round = 0; round < 20; ++round) {
    const auto lost_before = lost();
    while (lost() < lost_before + 1'000) std::this_thread::yield();
    deliver();
  }
  endAndExpectExact();
}

TEST_F(FastMotion, MillionsOfEventsArriveWholeInLevelMemory) {
  const char* const wanted_text = std::getenv("ROBUSTNESS_EVENTS");
  // A tenth of them where the sanitizers slow it down.
  const std::uint64_t wanted = wanted_text ? std::strtoull(wanted_text, nullptr, 10)
                               : SANITIZED ? 1'000'000
                                           : 10'000'000;
  while (events() < wanted / 10) deliver();
  const auto resident_before = residentBytes();
  while (events() < wanted) deliver();
  const auto resident_after = residentBytes();
  endAndExpectExact();
  // The sanitizers keep what is freed.
  if (!SANITIZED) {
    EXPECT_LE(resident_after, resident_before + (std::size_t{1} << 20));
  }
  std::printf("events checked: %llu\nresident memory: %zu KiB, then %zu KiB\n",
              static_cast<unsigned long long>(events()), resident_before / 1024,
              resident_after / 1024);
}

}  // namespace
}  // namespace tev::test
