// The sums over the nodes of a fleet.
#include "host/fleet/aggregate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "host/fleet/parquet_worker.h"
#include "host/fleet/stream_worker.h"
#include "tests/host/fleet/fake_bus.h"
#include "tests/host/metrics/values.h"
#include "tests/support/temp_tree.h"

namespace tev::host {
namespace {

using test::Bytes;
using test::Values;
using test::valuesOf;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr std::uint64_t kSecond = 1'000'000;
constexpr std::uint64_t kStart = 1'700'000'000 * kSecond;

class NoSink final : public Sink {
 public:
  void take(const MessageHead&, const Contents&, std::uint64_t) override {}
  void flush() override {}
};

// A worker of either kind, observed by an aggregate. The nodes have one device each.
class AggregateTest : public testing::TestWithParam<bool> {
 protected:
  AggregateTest() {
    test::SampleTypes narrow;
    narrow.add("port_0",
               {{"name", nullptr, "char", 0, 4},
                {"rx_bytes", "octets", "uint32_t", 0, 1},
                {"heat", nullptr, "float", 0, 1}},
               {"name"});
    narrow_ = bus_.publish(narrow);
    test::SampleTypes wide;
    wide.add("port_7",
             {{"name", nullptr, "char", 0, 9},
              {"rx_bytes", "octets", "uint64_t", 0, 1},
              {"a", nullptr, "uint64_t", 0, 1},
              {"a_unknown_steps", nullptr, "uint64_t", 0, 1}},
             {"name"});
    wide_ = bus_.publish(wide);
    if (GetParam())
      worker_ = std::make_unique<ParquetWorker>(folder_, RangeLimits{}, intake_, subscription_,
                                                [](auto) { return false; });
    else
      worker_ = std::make_unique<StreamWorker>(sink_, intake_, subscription_);
    worker_->observe(aggregate_);
    subscription_.join(*worker_);
  }

  void narrow(const std::string& source, std::uint64_t number, std::uint64_t second,
              std::uint32_t rx, float heat = 0, std::uint64_t run = 1) {
    const auto blocks =
        Bytes().block(kStart + second * kSecond, 0, 0, 1).text("d", 4).add(rx).add(heat);
    bus_.send({source, run}, number, 1, blocks, narrow_);
  }
  void wide(const std::string& source, std::uint64_t number, std::uint64_t second,
            std::uint64_t rx) {
    const auto blocks = Bytes()
                            .block(kStart + second * kSecond, 0, 0, 1)
                            .text("d", 9)
                            .add(rx)
                            .add(std::uint64_t{0})
                            .add(std::uint64_t{0});
    bus_.send({source, 1}, number, 1, blocks, wide_);
  }

  Values values() {
    subscription_.poll(*worker_, 1'000'000, {});
    worker_->update();
    return valuesOf(aggregate_.families());
  }
  double total() { return values().at("tev_fleet_device_rx_bytes_total"); }

  test::FakeBus bus_;
  std::string narrow_;
  std::string wide_;
  std::uint64_t now_usec_ = kStart + 10 * kSecond;
  Aggregate aggregate_{std::chrono::seconds(5), 3, [this] { return now_usec_; }};
  test::FakeSubscription subscription_{bus_};
  std::unique_ptr<FleetWorker> worker_;

 private:
  test::TempTree tree_;
  SchemaCache schemas_{bus_, std::chrono::milliseconds(0)};
  Intake intake_{schemas_};
  RangeFolder folder_{tree_.path("f"), "t", false};
  NoSink sink_;
};

INSTANTIATE_TEST_SUITE_P(Workers, AggregateTest, testing::Bool());

TEST_P(AggregateTest, AddsUpNodesOfSeveralLayoutsWithoutRepeats) {
  narrow("a", 0, 0, 100, 20);
  narrow("a", 1, 1, 150, -7);
  bus_.log.push_back(bus_.log.back());
  narrow("a", 2, 2, 160, 30);
  wide("b", 0, 0, std::uint64_t{1} << 40);
  wide("b", 1, 2, (std::uint64_t{1} << 40) + 1000);
  bus_.log.push_back({"not a batch", {}, {}});
  EXPECT_THAT(
      values(),
      UnorderedElementsAre(
          Pair("tev_fleet_device_rx_bytes_total", 1060),
          Pair("tev_fleet_device_rx_bytes_unknown_steps_total", 0),
          Pair("tev_fleet_device_rx_bytes_peak_per_second", 50),
          Pair("tev_fleet_device_heat_recent_min", -7),
          Pair("tev_fleet_device_heat_recent_max", 30),
          Pair("tev_fleet_events_total kind=device", 5), Pair("tev_fleet_sources", 2),
          Pair("tev_fleet_recent_sources", 2), Pair("tev_fleet_devices", 2),
          Pair("tev_fleet_recent_devices", 2), Pair("tev_fleet_newest_event_age_seconds", 8),
          Pair("tev_fleet_forgotten_sources_total", 0), Pair("tev_fleet_left_out_events_total", 0),
          Pair("tev_fleet_left_out_fields", 1),  // 'a_unknown_steps'
          Pair("tev_fleet_fields_are_full", 0)));
  now_usec_ += 6 * kSecond;
  wide("b", 2, 4, (std::uint64_t{1} << 40) + 1001);  // confirms the rate before
  const Values later = values();
  EXPECT_EQ(later.at("tev_fleet_device_rx_bytes_peak_per_second"), 500);
  EXPECT_FALSE(later.contains("tev_fleet_device_heat_recent_max"));
  EXPECT_EQ(later.at("tev_fleet_recent_sources"), 1);
}

TEST_P(AggregateTest, ABeginningIsNotAStepAndATotalNeverFalls) {
  narrow("a", 0, 0, 1000);
  narrow("a", 1, 1, 1100);
  EXPECT_EQ(total(), 100);
  narrow("a", 0, 2, 9'000'000, 0, 2);  // the node's next run
  narrow("a", 1, 3, 9'000'001, 0, 2);
  EXPECT_EQ(total(), 101);
  narrow("a", 2, 4, 5, 0, 2);  // the adapter was reset
  EXPECT_EQ(total(), 101);
  EXPECT_EQ(values().at("tev_fleet_device_rx_bytes_unknown_steps_total"), 1);
  // Another worker has the partition for a while. What this one had not written is read again.
  const double counted_again = GetParam() ? 101 : 0;
  subscription_.leave();
  EXPECT_EQ(valuesOf(aggregate_.families()).at("tev_fleet_sources"), 0);
  subscription_.join(*worker_);
  narrow("a", 3, 5, 7, 0, 2);
  narrow("a", 4, 6, 9, 0, 2);
  EXPECT_EQ(total(), 101 + counted_again + (GetParam() ? 4 : 2));
}

TEST_P(AggregateTest, ItsSizeHasLimitsAndDoesNotDependOnTheNodes) {
  narrow("n0", 0, 0, 1);
  narrow("n0", 1, 1, 2);
  const std::size_t metrics = values().size();
  const std::size_t memory = aggregate_.memory();
  for (int i = 1; i < 20; ++i) narrow("n" + std::to_string(i), 0, 2, 1);
  const Values many = values();
  EXPECT_EQ(many.size(), metrics);
  EXPECT_EQ(many.at("tev_fleet_sources"), 3);
  EXPECT_EQ(many.at("tev_fleet_forgotten_sources_total"), 17);
  EXPECT_EQ(aggregate_.memory(), 3 * memory);
  Bytes blocks;
  for (std::uint32_t i = 0; i < Aggregate::kMostSeries + 9; ++i) {
    if (i % 200 == 0)
      blocks.block(
          kStart, 0, 0,
          static_cast<std::uint8_t>(std::min<std::size_t>(200, Aggregate::kMostSeries + 9 - i)));
    blocks.text(std::to_string(i), 9)
        .add(std::uint64_t{0})
        .add(std::uint64_t{0})
        .add(std::uint64_t{0});
  }
  bus_.send({"wild", 1}, 0, Aggregate::kMostSeries + 9, blocks, wide_);
  EXPECT_EQ(values().at("tev_fleet_left_out_events_total"), 9);
}

}  // namespace
}  // namespace tev::host
