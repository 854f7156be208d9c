#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <memory>
#include <thread>

#include "collector/collector.h"
#include "tests/support/captured_log.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_sdk.h"
#include "tests/support/options.h"
#include "tests/support/temp_tree.h"

namespace tev::events::multipath {
namespace {

using namespace std::chrono_literals;

struct HandOut {
  std::vector<EventBuffer*> device;
  std::vector<EventBuffer*> plane;
};

std::string bytesOf(const EventBuffer& buffer, std::size_t index) {
  return {reinterpret_cast<const char*>(buffer.at(index)), buffer.event_size};
}

std::string le32(std::uint32_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8)
    bytes.push_back(static_cast<char>((value >> shift) & 0xff));
  return bytes;
}

class Sampling : public testing::Test {
 protected:
  using Entries = std::initializer_list<std::pair<const char*, const char*>>;

  Collector& initialized(Entries entries = {}) {
    collector_ = std::make_unique<Collector>(
        test::options(entries).get(), Surroundings{.sdk = &sdk.functions(),
                                                   .clock = &clock,
                                                   .roots = {tree.path("sys"), tree.path("dev")}});
    EXPECT_TRUE(collector_->initialize());
    return *collector_;
  }

  // Runs the sampling thread for so many passes.
  void sample(int passes) {
    clock.passes = passes;
    clock.finished = false;
    collector_->start();
    while (!clock.finished) std::this_thread::sleep_for(100us);
    collector_->stop();
  }

  HandOut handOut() {
    HandOut out;
    collector_->getData(out.device, out.plane);
    return out;
  }

  test::TempTree tree;
  test::FakeSdk sdk;
  test::FakeClock clock;
  test::CapturedLog log;
  std::unique_ptr<Collector> collector_;
};

TEST_F(Sampling, WritesPackedEventsWithTheSamplesTimestamp) {
  sdk.add("rdma0",
          {"tx, sent, plane 1", "rx, received", "tx, sent, plane 0", "rtt, time, plane 0",
           "err, errors", "rtt, time, plane 1"},
          {11, 22, 33, 44, 0xdeadbeef, 66});
  sdk.add("longer-name", {"rx, received"}, {7});
  initialized();
  const auto taken_at = clock.realtime_usec;
  sample(2);

  const auto out = handOut();
  ASSERT_EQ(out.device.size(), 2u);
  const std::string name("rdma0\0\0\0\0\0\0", 11);
  EXPECT_EQ(out.device[0]->num_events, 2u);
  EXPECT_EQ(bytesOf(*out.device[0], 0), name + le32(22) + le32(0xdeadbeef));
  EXPECT_EQ(bytesOf(*out.device[1], 1), "longer-name" + le32(7));
  ASSERT_EQ(out.plane[0]->num_events, 4u);
  EXPECT_EQ(bytesOf(*out.plane[0], 0), name + '\0' + le32(33) + le32(44));
  EXPECT_EQ(bytesOf(*out.plane[0], 3), name + '\1' + le32(11) + le32(66));
  EXPECT_EQ(
      out.plane[0]->timestamps,
      (std::vector<std::uint64_t>{taken_at, taken_at, taken_at + 1'000'000, taken_at + 1'000'000}));
  EXPECT_EQ(out.plane[1]->capacity_bytes, 0u);
  EXPECT_EQ(out.plane[1]->data, nullptr);
}

// Adjacent counters are copied as one run: every order must come out the same as one by one.
TEST_F(Sampling, PutsCountersWhereTheLayoutSaysInAnyOrder) {
  const std::uint32_t count = 24;
  for (std::uint32_t seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE(seed);
    sdk.devices.clear();
    std::vector<std::string> lines;
    std::vector<std::uint32_t> values;
    std::string device = "d";
    std::vector<std::string> planes(3, "d");
    for (std::uint32_t p = 0; p < 3; ++p) planes[p].push_back(static_cast<char>(p));
    std::uint32_t state = seed;
    std::size_t in_plane[3] = {};
    for (std::uint32_t i = 0; i < count; ++i) {
      state = state * 1664525 + 1013904223;
      const auto kind = (state >> 20) % (seed % 2 ? 4 : 2);  // few kinds make long runs
      values.push_back(state);
      if (kind == 3) {
        lines.push_back("c" + std::to_string(i) + ", d");
        device += le32(state);
      } else {
        lines.push_back("p" + std::to_string(in_plane[kind]++) + ", d, plane " +
                        std::to_string(kind));
        planes[kind] += le32(state);
      }
    }
    sdk.add("d", lines, values);
    initialized();
    sample(1);
    const auto out = handOut();
    EXPECT_EQ(bytesOf(*out.device[0], 0), device);
    const auto size = out.plane[0]->event_size;
    for (std::size_t p = 0; p < out.plane[0]->num_events; ++p) {
      planes[p].resize(size, '\0');  // shorter planes read zero, longer ones are cut
      EXPECT_EQ(bytesOf(*out.plane[0], p), planes[p]) << p;
    }
  }
}

TEST_F(Sampling, PlanesUnlikeTheFirstAreFittedToItWithOneWarning) {
  sdk.add("d",
          {"a, x, plane 0", "b, x, plane 0", "a, x, plane 1", "a, x, plane 2", "b, x, plane 2",
           "c, x, plane 2"},
          {1, 2, 3, 4, 5, 6});
  auto& collector = initialized();
  unsigned long count = 0;
  const std::unique_ptr<tev_type_field_info_t[]> fields(collector.getPlaneEventFields(0, count));
  EXPECT_EQ(count, 4u);  // name, plane, a, b: c is no field
  sample(1);
  const auto out = handOut();
  EXPECT_EQ(bytesOf(*out.plane[0], 1), std::string("d\1", 2) + le32(3) + le32(0));
  EXPECT_EQ(bytesOf(*out.plane[0], 2), std::string("d\2", 2) + le32(4) + le32(5));
  const auto warnings = log.texts(TEV_LEVEL_WARNING);
  EXPECT_EQ(
      std::count_if(warnings.begin(), warnings.end(),
                    [](const auto& text) { return text.find("has fields for") != text.npos; }),
      1);
}

TEST_F(Sampling, PlaneZeroIsWarnedOfToo) {
  // The fields are named in the order in which the counters first appear, which is plane 1's here.
  sdk.add("d", {"b, x, plane 1", "a, x, plane 1", "a, x, plane 0", "b, x, plane 0"}, {1, 2, 3, 4});
  initialized();
  EXPECT_TRUE(log.contains(
      4,
      "[multipath] Device d: the counters of 1 of 2 planes, plane 0 the first, are not those that "
      "the plane event has fields for, in their order: what they lack reads zero, what they have "
      "beyond is cut"));
}

TEST_F(Sampling, NamesThatRepeatInAPlaneDescribeNoMoreThanThereIs) {
  sdk.add("d", {"a, x, plane 0", "a, x, plane 0"}, {1, 2});
  auto& collector = initialized();
  unsigned long count = 0;
  const std::unique_ptr<tev_type_field_info_t[]> fields(collector.getPlaneEventFields(0, count));
  EXPECT_EQ(count, 3u);
  sample(1);
  EXPECT_EQ(bytesOf(*handOut().plane[0], 0), std::string("d\0", 2) + le32(1) + le32(2));
}

TEST_F(Sampling, PlanesUpTo256AreSampled) {
  sdk.add("d", {"a, x, plane 0", "a, x, plane 255"}, {1, 2});
  initialized();
  sample(1);
  const auto out = handOut();
  ASSERT_EQ(out.plane[0]->num_events, 256u);
  EXPECT_EQ(bytesOf(*out.plane[0], 255), std::string("d\xff") + le32(2));
  EXPECT_EQ(bytesOf(*out.plane[0], 254), std::string("d\xfe") + le32(0));
}

TEST_F(Sampling, FullBuffersDropSamplesUnreadUntilTheNextHandOut) {
  sdk.add("d", {"rx, r", "tx, t, plane 0", "tx, t, plane 1"}, {1, 2, 3});
  initialized({{"multipath-max-buffer-size", "1"}});  // room for two samples
  sample(5);
  EXPECT_EQ(sdk.calls["vuna_telemetry_mp_get_counters"], 2u);
  const auto out = handOut();
  EXPECT_EQ(out.device[0]->num_events, 2u);
  EXPECT_EQ(out.plane[0]->num_events, 4u);
  auto counts = collector_->sampleCounts(0);
  EXPECT_EQ(counts.taken, 5u);
  EXPECT_EQ(counts.lost, 3u);

  sample(1);
  EXPECT_EQ(handOut().device[0]->num_events, 1u);
  counts = collector_->sampleCounts(0);
  EXPECT_EQ(counts.taken, 6u);
  EXPECT_EQ(counts.lost, 3u);
}

TEST_F(Sampling, AHandOutTakesTheFilledHalfAndEmptiesTheOther) {
  sdk.add("d", {"rx, r", "tx, t, plane 0"}, {0xffffffff, 0xffffffff});
  initialized({{"update", "10000"}});
  sample(3);
  const auto first = handOut();
  EXPECT_EQ(first.device[0]->num_events, 3u);
  EXPECT_EQ(first.device[0]->write_offset, 0u);
  EXPECT_EQ(bytesOf(*first.device[0], 2), "d" + le32(0xffffffff));

  const auto second = handOut();  // nothing was sampled in between
  EXPECT_NE(second.device[0], first.device[0]);
  EXPECT_EQ(second.device[0]->num_events, 0u);
  // What was handed out first is being filled now, and starts out zero.
  EXPECT_EQ(first.device[0]->num_events, 0u);
  EXPECT_EQ(first.device[0]->read_index, 0u);
  EXPECT_TRUE(first.device[0]->timestamps.empty());
  for (std::size_t i = 0; i < first.device[0]->capacity_bytes; ++i)
    ASSERT_EQ(std::to_integer<int>(first.device[0]->data.get()[i]), 0) << i;
}

TEST_F(Sampling, AReadThatFailsSkipsTheDeviceWithAWarningInTenSeconds) {
  sdk.add("bad", {"rx, r"}, {1});
  sdk.add("good", {"rx, r"}, {2});
  for (unsigned call = 1; call <= 60; call += 2)
    sdk.faults.push_back({.function = "vuna_telemetry_mp_get_counters", .call = call});
  // Later than what any test before has left in the process-wide time of the last warning.
  clock.realtime_usec = 1'900'000'000'000'000;
  initialized({{"update", "20000"}});  // one sample in a second
  sample(12);
  const auto out = handOut();
  EXPECT_EQ(out.device[0]->num_events, 0u);
  EXPECT_EQ(out.device[1]->num_events, 12u);
  EXPECT_EQ(collector_->sampleCounts(0).failed, 12u);
  EXPECT_EQ(log.count(4, "[multipath] Could not get counters for device bad: STATUS_5"), 2u);
}

TEST_F(Sampling, WhatAReadDoesNotFillIsZeroAndNeverAnotherDevices) {
  sdk.add("a", {"x, r", "y, r", "z, r"}, {1, 2, 3});
  sdk.add("b", {"x, r", "y, r", "z, r"}, {4});  // fills one of three
  sdk.devices[1].max_counters = 3;
  auto& c = sdk.add("c", {"x, r", "y, r", "z, r"}, {5, 6, 7});
  c.filled = 2;  // says two, writes three
  clock.realtime_usec = 1'910'000'000'000'000;
  initialized();
  sample(2);
  const auto out = handOut();
  EXPECT_EQ(bytesOf(*out.device[1], 1), "b" + le32(4) + le32(0) + le32(0));
  EXPECT_EQ(bytesOf(*out.device[2], 1), "c" + le32(5) + le32(6) + le32(0));
  EXPECT_EQ(log.count(4, "[multipath] Counters populated 1 != num counters 3 for device b"), 1u);
  EXPECT_EQ(log.count(4, "[multipath] Counters populated 2 != num counters 3 for device c"), 0u);
}

TEST_F(Sampling, AnEmptyReadLeavesNoEventAndNoMessage) {
  sdk.add("a", {"x, r"}, {1}).filled = 0;
  initialized();
  log.clear();
  sample(2);
  EXPECT_EQ(handOut().device[0]->num_events, 0u);
  EXPECT_TRUE(log.texts(TEV_LEVEL_WARNING).empty());
}

TEST_F(Sampling, ClearsCountersOnlyWhenAskedTo) {
  sdk.add("a", {"x, r"}, {9});
  initialized({{"multipath-clear-sampled-counters", "1"}});
  sample(2);
  const auto out = handOut();
  EXPECT_EQ(bytesOf(*out.device[0], 0), "a" + le32(9));
  EXPECT_EQ(bytesOf(*out.device[0], 1), "a" + le32(0));
  EXPECT_EQ(sdk.calls["vuna_telemetry_mp_get_counters"], 0u);
}

TEST_F(Sampling, TheValuesHaveRoomForTheLargestDevice) {
  auto& small = sdk.add("small", {"x, r"}, {1});
  small.max_counters = 1;
  sdk.add("large", std::vector<std::string>(256, "x, r"), std::vector<std::uint32_t>(256, 5));
  sdk.devices[1].max_counters = 256;
  std::swap(sdk.devices[0], sdk.devices[1]);  // the last to answer is the smallest
  initialized();
  sample(1);
  EXPECT_EQ(handOut().device[0]->num_events, 1u);  // the sanitizers watch the rest
  sdk.faults = {{.function = "vuna_telemetry_mp_cap_get_max_num_counters", .call = 3},
                {.function = "vuna_dev_as_devinfo", .call = sdk.calls["vuna_dev_as_devinfo"] + 2}};
  sample(1);
  EXPECT_TRUE(
      log.contains(4, "[multipath] Could not get max num counters for device large: STATUS_5"));
  EXPECT_TRUE(log.contains(4, "[multipath] Could not get device info for device small"));
}

TEST_F(Sampling, PassesAreDueOneIntervalAfterThePreviousWasDue) {
  sdk.add("a", {"x, r"}, {1});
  initialized({{"multipath-sample-interval-usec", "1000"}});
  // A pass takes some time, now and then more than an interval; the real-time clock is stepped.
  const std::int64_t costs[] = {300, 900, 2'500, 100, 1'000, 50};
  std::size_t pass = 0;
  sdk.on_read = [&](test::FakeDevice&) {
    clock.monotonic_usec += costs[pass % 6];
    const std::uint64_t hour_usec = 3'600'000'000;
    clock.realtime_usec += pass % 2 ? hour_usec : -hour_usec;
    ++pass;
  };
  sample(6);
  // The third pass is late by 1500: the next is made at once, without a wait, and due times start
  // anew from there. The fifth ends just when the next is due.
  EXPECT_EQ(clock.waits, (std::vector<std::int64_t>{700, 100, 900, 950, 700, 100}));
}

TEST_F(Sampling, IntervalsBeyondTheClockWaitForever) {
  const auto now = Clock::TimePoint(5s);
  EXPECT_EQ(after(now, std::numeric_limits<std::uint64_t>::max()), Clock::kNever);
  EXPECT_EQ(after(now, 9'223'372'036'854'775), Clock::kNever);
  EXPECT_EQ(after(now, 1), now + 1us);
}

TEST_F(Sampling, WithoutDevicesTheThreadHasNothingToDo) {
  const Collector empty(test::options({}).get(), Surroundings{.sdk = &sdk.functions()});
  const_cast<Collector&>(empty).collectData();
  EXPECT_TRUE(log.contains(7, "[multipath] collectData called with no devices"));
}

// What has been handed out, and the names that hosts hold, must stay.
TEST_F(Sampling, RefusesToInitializeTwice) {
  sdk.add("a", {"x, r"}, {1});
  auto& collector = initialized();
  collector.start();
  EXPECT_TRUE(collector.start());
  EXPECT_FALSE(collector.initialize());
  EXPECT_EQ(collector.numDevices(), 1u);
  EXPECT_TRUE(collector.stop());
  EXPECT_TRUE(collector.stop());
  EXPECT_FALSE(collector.initialize());
  EXPECT_TRUE(sdk.misuse.empty());
}

TEST(EventBuffers, RefuseWhatMemoryCannotHold) {
  constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();
  const auto message = [](std::uint64_t size, std::uint64_t events) -> std::string {
    try {
      const EventBuffer buffer(size, events);
    } catch (const std::length_error& error) {
      return error.what();
    } catch (const std::bad_alloc&) {
      return "bad_alloc";
    }
    return "made";
  };
  EXPECT_EQ(message(24, kMax), "vector::reserve");
  EXPECT_EQ(message(0, kMax), "vector::reserve");
  EXPECT_EQ(message(kMax, 2), "size exceeds 64 bits");
  EXPECT_EQ(message(kMax / 4, 2), "bad_alloc");
  EXPECT_EQ(message(0, 10), "made");
}

using CollectorDeathTest = Sampling;

TEST_F(CollectorDeathTest, DestroyingItWhileItSamplesEndsTheProcess) {
  sdk.add("a", {"x, r"}, {1});
  EXPECT_DEATH(
      {
        initialized();
        collector_->start();
        collector_.reset();
      },
      "");
}

// With the machine's clocks: what the thread and the host do to each other.
class LiveSampling : public Sampling {
 protected:
  Collector& live(const char* interval_usec) {
    collector_ = std::make_unique<Collector>(
        test::options({{"multipath-sample-interval-usec", interval_usec}, {"update", "10"}}).get(),
        Surroundings{.sdk = &sdk.functions(), .roots = {tree.path("sys"), tree.path("dev")}});
    EXPECT_TRUE(collector_->initialize());
    return *collector_;
  }
};

// Every event carries the number of its read: torn, repeated and misplaced events all show.
TEST_F(LiveSampling, HandsOutWholeSamplesInOrderAtFullSpeed) {
  sdk.add("a", {"x, r", "y, r, plane 0", "y, r, plane 1"}, {0, 0, 0});
  sdk.on_read = [](test::FakeDevice& dev) {
    for (auto& value : dev.values) ++value;
  };
  live("0");
  collector_->start();
  std::uint32_t expected = 1;
  std::uint64_t delivered = 0;
  while (delivered < 2'000) {
    const auto out = handOut();
    const auto& device = *out.device[0];
    const auto& plane = *out.plane[0];
    ASSERT_EQ(plane.num_events, device.num_events * 2);
    for (std::size_t i = 0; i < device.num_events; ++i, ++expected, ++delivered) {
      ASSERT_EQ(bytesOf(device, i), "a" + le32(expected));
      ASSERT_EQ(bytesOf(plane, 2 * i + 1), std::string("a\1", 2) + le32(expected));
    }
  }
  collector_->stop();
  delivered += handOut().device[0]->num_events;
  const auto counts = collector_->sampleCounts(0);
  EXPECT_EQ(counts.taken, delivered + counts.lost);
}

TEST_F(LiveSampling, StopsAtOnceWhateverTheInterval) {
  sdk.add("a", {"x, r"}, {1});
  for (const char* interval : {"60000000", "18446744073709551615", "0"}) {
    SCOPED_TRACE(interval);
    live(interval);
    for (int i = 0; i < 20; ++i) {
      ASSERT_TRUE(collector_->start());
      std::this_thread::sleep_for(i % 2 ? 1ms : 0ms);
      ASSERT_TRUE(collector_->stop());  // a lost wake-up would hang here
    }
  }
}

TEST_F(LiveSampling, TakesNoneOfTheHostsSignals) {
  sdk.add("a", {"x, r"}, {1});
  sigset_t mask;
  sigemptyset(&mask);
  std::atomic<bool> seen{false};
  sdk.on_read = [&](test::FakeDevice&) {
    if (!seen) pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    seen = true;
  };
  live("1000");
  collector_->start();
  while (!seen) std::this_thread::sleep_for(100us);
  collector_->stop();
  for (const int signal : {SIGINT, SIGTERM, SIGALRM, SIGUSR1, SIGCHLD})
    EXPECT_EQ(sigismember(&mask, signal), 1) << signal;
}

}  // namespace
}  // namespace tev::events::multipath
