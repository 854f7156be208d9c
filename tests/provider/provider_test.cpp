#include "provider/provider.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <future>
#include <stdexcept>
#include <thread>

#include "provider/layout_signature.h"
#include "tests/support/local_provider.h"

namespace tev::events::multipath {
namespace {

using testing::ElementsAre;

TEST(LayoutSignature, HashesTheTextsOfAllFields) {
  // A mode beyond 31 bits is negative. A missing text ends it for good.
  const tev_type_field_info_t fields[] = {{"a", "b", "c", 0xffffffff, 65535},
                                          {"d", "", "e", 2, 0},
                                          {"f", nullptr, "g", 0, 1},
                                          {"h", "i", "j", 0, 1}};
  EXPECT_EQ(layoutSignature(fields), 0x1e57d78f08e839c4);  // FNV-1a of "abc-165535de20f"
}

class ProviderTest : public testing::Test, protected test::FakeMachine {
 protected:
  bool initialize() {
    provider.construct(test::options({{"update", "60000"}}).get());
    return provider.initialize();
  }

  std::vector<std::string> typeNames() const {
    std::vector<std::string> names;
    for (unsigned i = 0; i < provider.schema().num_types; ++i)
      names.emplace_back(provider.schema().types[i]->name);
    return names;
  }

  test::CapturedLog log;
  test::LocalProvider provider{surroundings()};
};

TEST_F(ProviderTest, DevicesOfOneLayoutShareItsTypes) {
  for (const char* name : {"twelve-chars", "other"})
    sdk.add(name,
            {"rx_pkts, received packets", "tx_bytes, transmitted bytes, plane 0",
             "cnp_rate, CNPs sent/received, per \"second\"", "rtt, round trip\ttime \\ us, plane 0",
             "ecn, ECN marks — réseau"},
            {1, 2, 3, 4, 5});
  ASSERT_TRUE(initialize());
  EXPECT_THAT(typeNames(), ElementsAre("multipath_event_device", "multipath_event_plane"));
  EXPECT_TRUE(log.contains(
      6, "[multipath] Registered device event type 'multipath_event_device' with 4 fields"));
  EXPECT_TRUE(log.contains(
      6, "[multipath] Registered plane event type 'multipath_event_plane' with 4 fields"));
  // The identity that readers know.
  tev_type_system_update_md5_hashes(&provider.types());
  EXPECT_STREQ(provider.schema().id_string, "ad5427b4571fff4a6a6a14ee4323e079");
}

TEST_F(ProviderTest, SeveralLayoutsAreNumberedByAscendingSignature) {
  // Without separators, the texts of the last two layouts are the same.
  const std::vector<std::string> layouts[] = {
      {"a, x"}, {"b, x"}, {"c, x"}, {"d, x"}, {"a, x"}, {"a, d", "b, e"}, {"aduint32_t01b, e"}};
  for (const auto& lines : layouts) sdk.add("rdma", lines, {1, 2});
  ASSERT_TRUE(initialize());
  awaitPasses();
  std::vector<std::string> delivered;
  provider.drain(test::Host::kRoom, [&](auto*, const auto& type) {
    delivered.push_back(type.name + std::string(" of ") + type.fields[1]->field_name);
  });
  EXPECT_THAT(delivered,
              ElementsAre("multipath_event_device_0 of a", "multipath_event_device_3 of b",
                          "multipath_event_device_5 of c", "multipath_event_device_4 of d",
                          "multipath_event_device_0 of a", "multipath_event_device_1 of a",
                          "multipath_event_device_2 of aduint32_t01b"));
  EXPECT_EQ(typeNames().back(), "multipath_event_plane");  // numbered on their own
}

TEST_F(ProviderTest, RefusalsAreLoggedAndLeaveNothingSampling) {
  EXPECT_FALSE(initialize());
  EXPECT_FALSE(initialize());
  EXPECT_EQ(log.count(6, "[multipath] Failed to initialize collector"), 1u);  // once in ten seconds

  struct Row {
    std::vector<std::string> lines;
    std::string message;
    std::vector<std::string> types;
  };
  const Row rows[] = {
      {{"x, d", "x, d", "y, d"}, "Failed to add device type multipath_event_device to schema", {}},
      {{"x, d", "plane, d, plane 0", "y, d, plane 0"},
       "Failed to add plane type multipath_event_plane to schema",
       {"multipath_event_device"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    sdk.restart();
    sdk.scenario.devices.clear();
    sdk.add("rdma0", row.lines, {1, 2, 3});
    EXPECT_FALSE(initialize());
    EXPECT_TRUE(log.contains(3, "[multipath] " + row.message));
    EXPECT_EQ(typeNames(), row.types);  // what was added stays
    tev_type_system_remove_last_schema(&provider.types());
    EXPECT_TRUE(log.contains(7, "[multipath] Cleared event field storage for all devices"));
    EXPECT_TRUE(provider.drain().empty());
    EXPECT_TRUE(sdk.balanced());  // the devices have been released
    EXPECT_EQ(sdk.reported("vuna_telemetry_mp_get_counters"), 0u);
  }

  for (int i = 0; i < TEV_MAX_SCHEMAS; ++i)
    tev_type_system_add_schema(&provider.types(), "other", 1, nullptr);
  EXPECT_FALSE(provider.initialize());
  EXPECT_TRUE(log.contains(3, "[multipath] Failed to add schema"));
  EXPECT_EQ(sdk.reported("vuna_telemetry_mp_get_counters"), 0u);

  // The next attempt of the same provider is made from scratch.
  tev_type_system_remove_last_schema(&provider.types());
  sdk.restart();
  sdk.scenario.devices.clear();
  sdk.add("rdma0", {"x, d"}, {1});
  EXPECT_TRUE(provider.initialize());
  EXPECT_FALSE(provider.initialize());
}

TEST_F(ProviderTest, ABatchIsResumedEventByEventWithoutLossOrRepetition) {
  sdk.add("rdma0", {"rx, r", "tx, t, plane 0", "tx, t, plane 1"}, {1, 2, 3});
  sdk.add("r1", {"rx, r", "err, e"}, {4, 5});
  ASSERT_TRUE(initialize());
  awaitPasses();
  std::string delivered;
  const auto take = [&](const auto* block, const auto& type) {
    const auto event = test::Host::event(block, type);
    delivered += event.device + (event.type.starts_with("multipath_event_plane") ? "/ " : " ");
  };
  const auto largest = 16 + tev_type_system_get_max_event_type_size(&provider.types());
  log.clear();
  for (const std::uint64_t too_small : {24u, 16u, 15u, 0u})
    EXPECT_EQ(provider.progress(too_small, take), TEV_PROGRESS_FULL);
  EXPECT_EQ(
      log.texts(TEV_LEVEL_WARNING),
      test::Texts{"[multipath] The serializer holds 24 bytes: 29 are needed for every event"});
  for (int event = 1; event < 4; ++event)
    EXPECT_EQ(provider.progress(largest, take), TEV_PROGRESS_FULL);
  EXPECT_EQ(provider.progress(largest, take), TEV_PROGRESS_DONE);
  EXPECT_EQ(provider.progress(largest, take), TEV_PROGRESS_DONE);  // idle, and nothing twice
  EXPECT_EQ(delivered, "rdma0 r1 rdma0/ rdma0/ ");
}

TEST_F(ProviderTest, TheEndOfASamplingThreadIsVisible) {
  sdk.add("rdma0", {"rx, r"}, {1});
  sdk.functions.vuna_telemetry_mp_get_counters = [](auto* mp, auto slot, auto* count,
                                                    auto* values) {
    static int reads = 0;
    if (++reads == 3) throw std::runtime_error("the SDK threw");
    return ::vuna_telemetry_mp_get_counters(mp, slot, count, values);
  };
  clock.passes = 10;
  ASSERT_TRUE(initialize());
  while (!log.contains(3, "[multipath] [sampling thread] failed: the SDK threw"))
    std::this_thread::yield();
  // What was sampled before is delivered first, here event by event.
  EXPECT_EQ(provider.progress(25, [](auto*, auto&) {}), TEV_PROGRESS_FULL);
  std::size_t delivered = 1;
  EXPECT_EQ(provider.progress(25, [&](auto*, auto&) { ++delivered; }), TEV_PROGRESS_FAILED);
  EXPECT_EQ(delivered, 2u);
  EXPECT_STREQ(provider.ledger().last_failure, "sampling ended: the SDK threw");
  provider.stop();
  EXPECT_EQ(provider.progress(test::Host::kRoom, [](auto*, auto&) { FAIL(); }),
            TEV_PROGRESS_FAILED);
}

TEST_F(ProviderTest, TheLedgerFitsTheCallersRecord) {
  sdk.add("rdma0", {"rx, r"}, {1});
  sdk.add("r1", {"rx, r", "tx, t, plane 0"}, {1, 2});
  clock.passes = 3;
  ASSERT_TRUE(initialize());
  awaitPasses();
  provider.drain();
  const auto all = provider.ledger();
  EXPECT_EQ(all.due, 6u);
  EXPECT_EQ(all.delivered, 6u);
  EXPECT_EQ(all.buffer_bytes, 2u * 120 * (9 + 9 + 10));
  EXPECT_EQ(all.most_used_bytes, 3u * (9 + 9 + 10));

  const char* name = nullptr;
  struct {
    tev_multipath_ledger_t known;
    std::uint64_t unknown;
  } of_a_later_version;
  of_a_later_version.unknown = 7;
  EXPECT_TRUE(multipath_event_provider_get_ledger(
      provider.get(), 1, &name, &of_a_later_version.known, sizeof of_a_later_version));
  EXPECT_STREQ(name, "r1");
  EXPECT_EQ(of_a_later_version.known.delivered, 3u);
  EXPECT_EQ(of_a_later_version.unknown, 0u);

  std::uint64_t of_an_earlier_version[] = {0, 7};
  EXPECT_TRUE(multipath_event_provider_get_ledger(
      provider.get(), 0, nullptr, reinterpret_cast<tev_multipath_ledger_t*>(of_an_earlier_version),
      sizeof of_an_earlier_version[0]));
  EXPECT_EQ(of_an_earlier_version[0], 3u);
  EXPECT_EQ(of_an_earlier_version[1], 7u);
  EXPECT_FALSE(multipath_event_provider_get_ledger(provider.get(), 2, &name, nullptr, 0));
}

TEST_F(ProviderTest, EveryListedDeviceIsDescribedAlsoAfterAFailure) {
  sdk.add("rdma0", {"rx, r"}, {1}).multipath_support = 9;
  tev_multipath_device_info_t info;
  const auto get = [&](std::uint32_t index) {
    return multipath_event_provider_get_device_info(provider.get(), index, &info, sizeof info);
  };
  EXPECT_FALSE(initialize());
  ASSERT_TRUE(get(0));
  EXPECT_EQ(info.state, TEV_DEVICE_LEFT_OUT);
  EXPECT_STREQ(info.rdma_name, "rdma0");
  EXPECT_STREQ(info.reason, "Skipping device rdma0 as it does not support MP: STATUS_9");

  sdk.add("r1", {"rx, r", "tx, t, plane 0", "ecn, e, plane 0", "tx, t, plane 1"}, {1, 2, 3, 4});
  sdk.add("r2", {"rx, r", "tx, t, plane 0"}, {1, 2});
  adapter("r1", "0000:01:00.0", {"eth1"});
  sdk.restart();
  ASSERT_TRUE(initialize());
  ASSERT_TRUE(get(1));
  EXPECT_EQ(info.state, TEV_DEVICE_SAMPLED);
  EXPECT_EQ(info.device_index, 0u);
  EXPECT_STREQ(info.name, "eth1");
  EXPECT_STREQ(info.interface_name, "eth1");
  EXPECT_STREQ(info.algorithm, sdk.scenario.devices[1].slots[0].info.c_str());
  EXPECT_EQ(info.device_counters, 1u);
  EXPECT_EQ(info.plane_counters, 2u);
  EXPECT_EQ(info.planes, 2u);
  EXPECT_EQ(info.buffer_bytes, 2 * info.buffer_samples * (8 + 2 * 13));
  EXPECT_EQ(info.memory_bytes, info.buffer_bytes + 2 * (info.buffer_samples * 3 * 8 + 2 * 16));
  EXPECT_EQ(provider.schema().types[info.plane_type]->size, 13u);
  ASSERT_TRUE(get(2));
  EXPECT_EQ(provider.schema().types[info.plane_type]->size, 9u);
  EXPECT_FALSE(get(3));
}

// The sampling thread exists in the parent only; it may hold any lock at the moment of the fork.
TEST_F(ProviderTest, AChildOfForkLeavesTheProviderToItsParent) {
  sdk.add("rdma0", {"rx, r"}, {1});
  std::promise<void> reading;
  std::promise<void> forked;
  sdk.on_read = [&, reads = 0](auto&, auto&) mutable {
    if (reads++ != 0) return;
    reading.set_value();
    forked.get_future().wait();
  };
  ASSERT_TRUE(initialize());
  reading.get_future().wait();

  const test::Texts foreign = {
      "[multipath] The provider belongs to the parent process and cannot be used here"};
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    alarm(60);
    auto* const record = provider.get();
    log.clear();
    const bool refused =
        provider.progress(test::Host::kRoom, [](auto*, auto&) {}) == TEV_PROGRESS_FAILED &&
        !multipath_event_provider_start(record) && !provider.initialize() &&
        multipath_event_provider_stop(record);
    multipath_event_provider_finalize(record);
    tev_multipath_ledger_t ledger;
    tev_multipath_device_info_t info;
    const bool read =
        multipath_event_provider_get_ledger(record, 0, nullptr, &ledger, sizeof ledger) ||
        multipath_event_provider_get_device_info(record, 0, &info, sizeof info);
    _exit(refused && !read && log.texts(3) == foreign ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  forked.set_value();
  awaitPasses();
  EXPECT_EQ(provider.drain().size(), 1u);
}

TEST(ProviderDeathTest, FinalizeWithoutStopEndsTheProcessAndSaysSo) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto run = [] {
    test::FakeMachine machine;
    machine.sdk.add("rdma0", {"rx, r"}, {1});
    tev_init_stderr_logger(TEV_LEVEL_ERROR);
    Collector collector(test::options({}).get(), machine.surroundings());
    collector.initialize();
    collector.start();
  };
  EXPECT_DEATH(run(), "finalize without stop: the process ends");
}

TEST_F(ProviderTest, EventsWithoutBytesNeverFindRoom) {
  sdk.add("", {"tx, t, plane 1"}, {1});  // no name, no device counter: a device event of no bytes
  ASSERT_TRUE(initialize());
  awaitPasses();
  EXPECT_EQ(provider.progress(test::Host::kRoom, [](auto*, auto&) { FAIL(); }), TEV_PROGRESS_FULL);
}

}  // namespace
}  // namespace tev::events::multipath
