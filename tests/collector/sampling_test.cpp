#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <limits>
#include <memory>
#include <numeric>

#include "tests/support/fake_machine.h"

namespace tev::events::multipath {
namespace {

struct HandOut {
  std::vector<EventBuffer*> device;
  std::vector<EventBuffer*> plane;
};

std::string bytesOf(const EventBuffer& buffer, std::size_t index) {
  return {reinterpret_cast<const char*>(buffer.at(index)), buffer.event_size};
}

std::string le32(std::uint32_t value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

class Sampling : public testing::Test, protected test::FakeMachine {
 protected:
  using Entries = std::initializer_list<std::pair<const char*, const char*>>;

  Collector& initialized(Entries entries = {}) {
    collector_.reset();
    sdk.restart();
    collector_ = std::make_unique<Collector>(test::options(entries).get(), surroundings());
    EXPECT_TRUE(collector_->initialize());
    return *collector_;
  }

  // Runs the sampling thread for this number of passes.
  void sample(int passes) {
    clock.passes = passes;
    clock.finished = false;
    collector_->start();
    awaitPasses();
    collector_->stop();
  }

  HandOut handOut() {
    HandOut out;
    collector_->getData(out.device, out.plane);
    return out;
  }

  test::CapturedLog log;
  std::unique_ptr<Collector> collector_;
};

TEST_F(Sampling, WritesPackedEventsWithTheSamplesTimestampAndClearsWhenAskedTo) {
  sdk.add("rdma0",
          {"tx, sent, plane 1", "rx, received", "tx, sent, plane 0", "rtt, time, plane 0",
           "err, errors", "rtt, time, plane 1"},
          {11, 22, 33, 44, 0xdeadbeef, 66});
  const std::string longer = "a-name-beyond-one-block";
  sdk.add(longer, {"rx, received"}, {7});
  initialized({{"multipath-clear-sampled-counters", "1"}});
  const auto taken_at = clock.realtime_usec;
  sample(2);

  const auto out = handOut();
  std::string name = "rdma0";
  name.resize(longer.size());
  EXPECT_EQ(out.device[0]->num_events, 2u);
  EXPECT_EQ(bytesOf(*out.device[0], 0), name + le32(22) + le32(0xdeadbeef));
  EXPECT_EQ(bytesOf(*out.device[1], 0), longer + le32(7));
  EXPECT_EQ(bytesOf(*out.plane[0], 0), name + '\0' + le32(33) + le32(44));
  EXPECT_EQ(bytesOf(*out.plane[0], 1), name + '\1' + le32(11) + le32(66));
  EXPECT_EQ(bytesOf(*out.plane[0], 3), name + '\1' + le32(0) + le32(0));
  EXPECT_EQ(
      out.plane[0]->timestamps,
      (std::vector<std::uint64_t>{taken_at, taken_at, taken_at + 1'000'000, taken_at + 1'000'000}));
  EXPECT_EQ(out.plane[1]->data, nullptr);
}

TEST_F(Sampling, PlanesUnlikeTheFirstGetOneWarning) {
  sdk.add("d", {"a, x, plane 0", "a, x, plane 255"}, {1, 2});
  initialized();
  sample(1);
  EXPECT_EQ(bytesOf(*handOut().plane[0], 255), "d\xff" + le32(2));
  EXPECT_EQ(log.count(4,
                      "[multipath] Device d: the counters of 254 of 256 planes, plane 1 the first, "
                      "are not those that the plane event has fields for, in their order: where "
                      "one is missing, the counters behind it stand under the names of others and "
                      "the last fields read zero; counters beyond the fields are cut"),
            1u);
}

TEST_F(Sampling, AHandOutTakesTheFilledHalfAndEmptiesTheOther) {
  sdk.add("d", {"rx, r", "tx, t, plane 0"}, {0xffffffff, 0xffffffff});
  initialized({{"multipath-max-buffer-size", "1"}});  // room for two samples
  sample(3);
  const auto first = handOut();
  EXPECT_EQ(first.device[0]->num_events, 2u);
  EXPECT_EQ(first.device[0]->write_offset, 0u);
  EXPECT_EQ(bytesOf(*first.device[0], 1), "d" + le32(0xffffffff));
  EXPECT_EQ(collector_->ledger(0).buffer_full, 1u);

  const auto second = handOut();  // nothing was sampled in between
  EXPECT_NE(second.device[0], first.device[0]);
  EXPECT_EQ(second.device[0]->num_events, 0u);
  // The half that was handed out first is being filled now, and is initially zero.
  const auto& emptied = *first.device[0];
  EXPECT_EQ(emptied.num_events + emptied.read_index + emptied.timestamps.size(), 0u);
  EXPECT_EQ(bytesOf(emptied, 1), std::string(emptied.event_size, '\0'));
}

TEST_F(Sampling, ARefusedReadSkipsItsDeviceWithALineInTenSecondsAndOneEachForThoseThatLast) {
  sdk.add("bad", {"x, r"}, {1});  // the first in the list: the throttled line names it alone
  sdk.add("worse", {"x, r"}, {1});
  sdk.add("good", {"x, r"}, {1});
  for (const char* name : {"bad", "worse"})
    for (unsigned call = 1; call <= 30; ++call) {
      auto fault = test::failing(test::Function::vuna_telemetry_mp_get_counters, call);
      fault.device = name;
      sdk.scenario.faults.add(fault);
    }
  initialized({{"update", "60000"}});  // one sample in a second
  log.clear();
  sample(33);
  const std::string device = "[multipath] Device ";
  const std::string throttled = "[multipath] Could not get counters for device bad: STATUS_5";
  EXPECT_EQ(
      log.texts(TEV_LEVEL_WARNING),
      (test::Texts{throttled, throttled, device + "bad delivers nothing: 11 reads failed in a row",
                   device + "worse delivers nothing: 11 reads failed in a row", throttled,
                   device + "bad delivers again after 30 failed reads",
                   device + "worse delivers again after 30 failed reads"}));
  EXPECT_EQ(handOut().device[2]->num_events, 33u);
  const auto ledger = collector_->ledger(1);
  EXPECT_EQ(ledger.read_refused, 30u);
  EXPECT_EQ(ledger.delivered, 3u);
  EXPECT_STREQ(ledger.last_failure, "STATUS_5");
  EXPECT_EQ(ledger.last_failure_usec + 1'000'000 * 3, ledger.last_good_usec);
}

TEST_F(Sampling, WhatAReadDoesNotFillIsZeroAndNeverAnotherDevices) {
  const std::vector<std::string> lines = {"x, r", "y, r", "z, r"};
  sdk.add("a", lines, {1, 2, 3});
  sdk.add("b", lines, {4});        // fills one of three
  sdk.add("c", lines, {5, 6, 7});  // says two, writes three
  sdk.add("d", lines, {8, 9, 10}).slots[0].filled_counters = 0;
  sdk.add("e", lines, {11});  // says three, writes one
  sdk.functions.vuna_telemetry_mp_get_counters = [](auto* mp, auto slot, auto* count,
                                                    auto* values) {
    const auto status = ::vuna_telemetry_mp_get_counters(mp, slot, count, values);
    if (values[0] == 5) *count = 2;
    if (values[0] == 11) *count = 3;
    return status;
  };
  initialized();
  log.clear();
  sample(2);
  const auto out = handOut();
  EXPECT_EQ(bytesOf(*out.device[1], 1), "b" + le32(4) + le32(0) + le32(0));
  EXPECT_EQ(bytesOf(*out.device[2], 1), "c" + le32(5) + le32(6) + le32(0));
  EXPECT_EQ(out.device[3]->num_events, 0u);
  EXPECT_EQ(bytesOf(*out.device[4], 1), "e" + le32(11) + le32(0) + le32(0));
  EXPECT_EQ(log.texts(TEV_LEVEL_WARNING),
            test::Texts{"[multipath] Counters populated 1 != num counters 3 for device b"});
}

// The sanitizers check the accesses to the array.
TEST_F(Sampling, TheValuesHaveRoomForWhateverADeviceFillsIn) {
  const std::vector<std::uint32_t> all(256, 5);
  sdk.add("large", {"x, r"}, all);
  sdk.add("untold", {"x, r"}, all);  // the question for its maximum fails
  sdk.add("small", {"x, r"}, {1});   // the last to answer
  sdk.scenario.faults.add(
      test::failing(test::Function::vuna_telemetry_mp_cap_get_max_num_counters, 2));
  sdk.scenario.faults.add(test::failing(test::Function::vuna_dev_as_devinfo, 9));
  sdk.functions.vuna_telemetry_mp_get_counters = [](auto*, auto, auto* count, auto* values) {
    *count = 256;
    std::fill_n(values, *count, 5);
    return kVunaSuccess;
  };
  initialized();
  EXPECT_TRUE(
      log.contains(4, "[multipath] Could not get max num counters for device untold: STATUS_5"));
  EXPECT_TRUE(log.contains(4, "[multipath] Could not get device info for device small"));
  sample(1);
  EXPECT_EQ(handOut().device[1]->num_events, 1u);
  EXPECT_EQ(collector_->ledger(0).short_reads, 1u);  // more than declared counts as well
}

TEST_F(Sampling, PassesAreDueOneIntervalAfterThePreviousWasDue) {
  sdk.add("a", {"x, r"}, {1});
  initialized({{"multipath-sample-interval-usec", "1000"}});
  // A pass takes some time, sometimes more than an interval. The real-time clock is stepped.
  const std::int64_t costs[] = {300, 900, 2'500, 100, 1'000, 50};
  std::size_t pass = 0;
  sdk.on_read = [&](auto&, auto&) {
    clock.monotonic_usec += costs[pass % 6];
    const std::uint64_t hour_usec = 3'600'000'000;
    clock.realtime_usec += pass % 2 ? hour_usec : -hour_usec;
    ++pass;
  };
  sample(6);
  // The third pass is late by 1500. The next is made immediately, without a wait, and the due
  // times restart from there. The fifth pass ends exactly when the next is due.
  EXPECT_EQ(clock.waits, (std::vector<std::int64_t>{700, 100, 900, 950, 700, 100}));
  const auto ledger = collector_->ledger(0);
  EXPECT_EQ(ledger.overrun_passes, 2u);
  EXPECT_EQ(ledger.missed_by_overrun, 1u);
  EXPECT_EQ(ledger.due, ledger.delivered + 1);
}

TEST_F(Sampling, ALateWakeUpNeitherBunchesSamplesNorMovesTheOthers) {
  sdk.add("a", {"x, r"}, {1});
  initialized({{"multipath-sample-interval-usec", "1000"}});
  clock.late_usec = {500, 0, 1'500, 0, 501, 0};
  sample(8);
  const auto times = handOut().device[0]->timestamps;
  std::vector<std::uint64_t> gaps(times.size());
  std::adjacent_difference(times.begin(), times.end(), gaps.begin());
  EXPECT_EQ(std::vector(gaps.begin() + 1, gaps.end()),
            (std::vector<std::uint64_t>{1'500, 500, 2'500, 1'000, 1'501, 1'000, 1'000}));
  const auto ledger = collector_->ledger(0);
  EXPECT_EQ(ledger.late_wakeups, 2u);
  EXPECT_EQ(ledger.missed_by_late_wakeup, 2u);
  EXPECT_EQ(ledger.due, ledger.delivered + 2);
  EXPECT_EQ(ledger.last_good_usec, times.back());
}

// The buffers that have been handed out, and the names that hosts use, must remain valid.
TEST_F(Sampling, RefusesToInitializeTwice) {
  Collector empty(test::options({}).get(), surroundings());
  empty.collectData();
  EXPECT_TRUE(log.contains(7, "[multipath] collectData called with no devices"));

  sdk.add("a", {"x, r"}, {1});
  auto& collector = initialized();
  collector.start();
  EXPECT_TRUE(collector.start());
  EXPECT_FALSE(collector.initialize());
  EXPECT_TRUE(log.contains(3, "[multipath] The collector has been initialized already"));
  EXPECT_TRUE(collector.stop());
  EXPECT_TRUE(collector.stop());
  EXPECT_FALSE(collector.initialize());
  EXPECT_EQ(sdk.reported("misuses"), 0u);
}

TEST(EventBuffers, RefuseWhatMemoryCannotHold) {
  constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();
  EXPECT_THROW(EventBuffer(0, kMax), std::length_error);
  EXPECT_THROW(EventBuffer(kMax, 2), std::length_error);
  EXPECT_THROW(EventBuffer(kMax / 4, 2), std::bad_alloc);
  EXPECT_EQ(EventBuffer(0, 10).capacity_bytes, 0u);
}

TEST_F(Sampling, TakesItsOwnFaultsAndNoneOfTheHostsSignals) {
  sdk.add("a", {"x, r"}, {1});
  sigset_t mask;
  sdk.on_read = [&](auto&, auto&) { pthread_sigmask(SIG_SETMASK, nullptr, &mask); };
  initialized();
  sample(1);
  for (const int signal : {SIGINT, SIGTERM, SIGALRM, SIGUSR1, SIGCHLD})
    EXPECT_EQ(sigismember(&mask, signal), 1) << signal;
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGSYS, SIGTRAP, SIGABRT})
    EXPECT_EQ(sigismember(&mask, fault), 0) << fault;
}

}  // namespace
}  // namespace tev::events::multipath
