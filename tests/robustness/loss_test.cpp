// No sample is lost in silence, however slowly it is fetched; and every byte that is delivered is
// the one that was sampled.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include "provider/provider.h"
#include "tests/support/captured_log.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_sdk.h"
#include "tests/support/options.h"
#include "tests/support/temp_tree.h"

namespace tev::events::multipath {
namespace {

// Values by a law: a reader needs no memory of what was written. Each read has its own number.
std::uint32_t lawfulValue(std::uint64_t read, std::uint32_t counter) {
  std::uint64_t x = read * 0x9e3779b97f4a7c15 + counter * 0xbf58476d1ce4e5b9;
  x ^= x >> 29;
  return static_cast<std::uint32_t>(x * 0x94d049bb133111eb >> 32);
}

constexpr std::uint32_t kPlanes = 32;
constexpr std::uint32_t kDeviceCounters = 3;
constexpr std::uint32_t kPlaneCounters = 2;
constexpr char kName[] = "rdma0";
constexpr std::size_t kNameSize = 5;
constexpr std::uint64_t kBegan = 1'700'000'000'000'000;

// Checks a stream of blocks against the law. The events of a sample are spread over the batch, the
// device events first: each kind is counted on its own.
class Model {
 public:
  void check(const std::uint8_t* block, unsigned type) {
    const bool of_plane = type == 1;
    const std::uint64_t read = of_plane ? plane_events_ / kPlanes : device_events_;
    const auto plane = static_cast<std::uint32_t>(plane_events_ % kPlanes);
    std::uint8_t expected[64] = {'T', 'E', 'V', 'E'};
    std::size_t size = 4;
    const auto put = [&](const auto& value) {
      std::memcpy(expected + size, &value, sizeof value);
      size += sizeof value;
    };
    put(kBegan + read);
    put(std::uint8_t{0});
    put(static_cast<std::uint8_t>(type));
    put(std::uint8_t{0});
    put(std::uint8_t{1});
    std::memcpy(expected + size, kName, kNameSize);
    size += kNameSize;
    const std::uint32_t first = of_plane ? kDeviceCounters + plane * kPlaneCounters : 0;
    if (of_plane) put(static_cast<std::uint8_t>(plane));
    for (std::uint32_t i = 0; i < (of_plane ? kPlaneCounters : kDeviceCounters); ++i)
      put(lawfulValue(read, first + i));
    if (std::memcmp(block, expected, size) != 0) ++torn_;
    ++(of_plane ? plane_events_ : device_events_);
  }

  std::uint64_t events() const { return device_events_ + plane_events_; }
  std::uint64_t samples() const { return device_events_; }
  std::uint64_t planeEvents() const { return plane_events_; }
  std::uint64_t torn() const { return torn_; }

 private:
  std::uint64_t device_events_ = 0;
  std::uint64_t plane_events_ = 0;
  std::uint64_t torn_ = 0;
};

std::size_t residentBytes() {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// Samples without a pause, and delivers through a serializer of a few events.
class FastMotion : public testing::Test {
 protected:
  FastMotion() : types_(tev_create_type_system(), tev_destroy_type_system), buffer_(4'096) {
    std::vector<std::string> lines;
    for (const char* name : {"rx, d", "tx, d", "err, d"}) lines.emplace_back(name);
    for (std::uint32_t plane = 0; plane < kPlanes; ++plane)
      for (const char* name : {"out", "rtt"})
        lines.push_back(std::string(name) + ", d, plane " + std::to_string(plane));
    const auto count = lines.size();
    sdk_.add(kName, std::move(lines), std::vector<std::uint32_t>(count));
    sdk_.on_read = [this](test::FakeDevice& device) {
      for (std::uint32_t i = 0; i < device.values.size(); ++i)
        device.values[i] = lawfulValue(reads_, i);
      ++reads_;
      clock_.realtime_usec = kBegan + reads_;
    };
    clock_.realtime_usec = kBegan;
    tev_set_log_level(TEV_LEVEL_WARNING);
  }

  void begin() {
    provider_ =
        std::make_unique<Provider>(test::options({{"multipath-sample-interval-usec", "0"},
                                                  {"multipath-max-buffer-size", "100000"}})
                                       .get(),
                                   Surroundings{.sdk = &sdk_.functions(),
                                                .clock = &clock_,
                                                .roots = {tree_.path("sys"), tree_.path("dev")}});
    record_.name = "multipath_events";
    record_.context = provider_.get();
    ASSERT_TRUE(multipath_event_provider_initialize(&record_, types_.get()));
  }

  void deliver() {
    int result = TEV_PROGRESS_FULL;
    while (result == TEV_PROGRESS_FULL) {
      tev_data_serializer_t serializer{types_.get(), buffer_.data(), buffer_.size(), 0};
      result = multipath_event_provider_progress(&record_, 0, &serializer);
      ASSERT_NE(result, TEV_PROGRESS_FAILED);
      std::uint64_t at = 0;
      while (at < serializer.used) {
        const std::uint8_t type = buffer_[at + 13];
        ASSERT_LT(type, 2);
        model_.check(&buffer_[at], type);
        at += 16 + types_->schemas[0]->types[type]->size;
      }
      ASSERT_EQ(at, serializer.used);
    }
  }

  tev_multipath_sample_counts_t counts() {
    tev_multipath_sample_counts_t counts{};
    multipath_event_provider_get_sample_counts(&record_, TEV_ALL_DEVICES, nullptr, &counts);
    return counts;
  }

  // Once no more is sampled and all is fetched.
  void expectExact() {
    const auto now = counts();
    EXPECT_EQ(model_.torn(), 0u);
    EXPECT_EQ(now.taken, now.lost + model_.samples());
    EXPECT_EQ(model_.planeEvents(), model_.samples() * kPlanes);
    EXPECT_EQ(reads_, model_.samples());  // what is lost is not read
    EXPECT_EQ(now.failed, 0u);
  }

  test::TempTree tree_;
  test::CapturedLog log_{TEV_LEVEL_WARNING};
  test::FakeSdk sdk_;
  test::FakeClock clock_;
  tev_event_provider_t record_{};
  std::unique_ptr<tev_type_system_t, decltype(&tev_destroy_type_system)> types_;
  std::unique_ptr<Provider> provider_;
  std::vector<std::uint8_t> buffer_;
  std::uint64_t reads_ = 0;  // the sampling thread's, until it has ended
  Model model_;
};

TEST_F(FastMotion, WhatIsNotFetchedInTimeIsCounted) {
  begin();
  for (int round = 0; round < 20; ++round) {
    const auto lost_before = counts().lost;
    while (counts().lost < lost_before + 1'000) std::this_thread::yield();
    deliver();
  }
  provider_->stop();
  deliver();
  expectExact();
  EXPECT_GE(counts().lost, 20'000u);
  EXPECT_GT(model_.samples(), 20u);
}

TEST_F(FastMotion, MillionsOfEventsArriveWholeInLevelMemory) {
  const char* const wanted_text = std::getenv("ROBUSTNESS_EVENTS");
  // A tenth of them where the sanitizers slow it down.
  const std::uint64_t wanted = wanted_text ? std::strtoull(wanted_text, nullptr, 10)
                               : SANITIZED ? 1'000'000
                                           : 10'000'000;
  begin();
  while (model_.events() < wanted / 10) deliver();
  const auto resident_before = residentBytes();
  while (model_.events() < wanted) deliver();
  const auto resident_after = residentBytes();
  provider_->stop();
  deliver();
  expectExact();
  // The sanitizers keep what is freed.
  if (!SANITIZED) {
    EXPECT_LE(resident_after, resident_before + (std::size_t{1} << 20));
  }
  std::printf("events checked: %llu\nresident memory: %zu KiB, then %zu KiB\n",
              static_cast<unsigned long long>(model_.events()), resident_before / 1024,
              resident_after / 1024);
}

}  // namespace
}  // namespace tev::events::multipath
