#include "provider/provider.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <future>
#include <stdexcept>
#include <thread>

#include "provider/layout_signature.h"
#include "tests/support/captured_log.h"
#include "tests/support/fake_machine.h"
#include "tests/support/local_provider.h"
#include "tests/support/options.h"

namespace tev::events::multipath {
namespace {

using testing::ElementsAre;

std::uint64_t fnv1a(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char byte : text) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
  return hash;
}

TEST(LayoutSignature, HashesTheTextsOfAllFields) {
  struct Row {
    const char* name;
    std::vector<tev_type_field_info_t> fields;
    const char* text;
  };
  const Row rows[] = {
      {"no separators", {{"a", "b", "c", 1, 12}, {"d", "", "e", 2, 0}}, "abc112de20"},
      {"a mode beyond 31 bits is negative", {{"a", "b", "c", 0xffffffff, 65535}}, "abc-165535"},
      {"a missing text ends it for good",
       {{"a", "b", "c", 0, 1}, {"d", nullptr, "e", 0, 1}, {"f", "g", "h", 0, 1}},
       "abc01d"},
  };
  for (const auto& row : rows) EXPECT_EQ(layoutSignature(row.fields), fnv1a(row.text)) << row.name;
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

  // The types of what the first pass brought.
  std::vector<std::string> deliveredTypes() {
    awaitPasses();
    std::vector<std::string> types;
    for (const auto& event : provider.drain()) types.push_back(event.type);
    return types;
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
  const auto& plane = *provider.schema().types[1];
  EXPECT_EQ(plane.size, 12u + 1 + 2 * 4);
  EXPECT_EQ(plane.fields[0]->index, 1);
  EXPECT_EQ(plane.fields[1]->index, 2);
  EXPECT_EQ(plane.fields[2]->index, 0);
  EXPECT_TRUE(log.contains(
      6, "[multipath] Registered device event type 'multipath_event_device' with 4 fields"));
  EXPECT_TRUE(log.contains(
      6, "[multipath] Registered plane event type 'multipath_event_plane' with 4 fields"));
  // The identity that readers know.
  tev_type_system_update_md5_hashes(&provider.types());
  EXPECT_STREQ(provider.schema().id_string, "ad5427b4571fff4a6a6a14ee4323e079");
}

TEST_F(ProviderTest, SeveralLayoutsAreNumberedByAscendingSignature) {
  std::vector<std::pair<std::uint64_t, std::string>> expected;
  for (const std::string counter : {"a", "b", "c", "d", "e"}) {
    sdk.add("dev" + counter, {counter + ", x"}, {1});
    expected.emplace_back(fnv1a("device_nameDevice Namechar04" + counter + "xuint32_t01"), counter);
  }
  sdk.add("dev2", {"a, x"}, {1});  // shares the first one's
  std::sort(expected.begin(), expected.end());
  ASSERT_TRUE(initialize());
  std::map<std::string, std::string> type_of;
  for (std::size_t k = 0; k < expected.size(); ++k) {
    const auto& type = *provider.schema().types[k];
    EXPECT_EQ(type.name, "multipath_event_device_" + std::to_string(k));
    EXPECT_EQ(type.fields[1]->field_name, expected[k].second);
    type_of[expected[k].second] = type.name;
  }
  EXPECT_EQ(typeNames().back(), "multipath_event_plane");  // numbered on their own
  EXPECT_THAT(deliveredTypes(), ElementsAre(type_of["a"], type_of["b"], type_of["c"], type_of["d"],
                                            type_of["e"], type_of["a"]));
}

// Without separators, the texts of these two layouts are the same.
TEST_F(ProviderTest, LayoutsOfOneSignatureAreStillTwoTypes) {
  sdk.add("rdma0", {"a, d", "b, e"}, {1, 2});
  sdk.add("rdma1", {"aduint32_t01b, e"}, {3});
  ASSERT_TRUE(initialize());
  EXPECT_EQ(provider.schema().types[0]->size, 5u + 8);
  EXPECT_THAT(deliveredTypes(),
              ElementsAre("multipath_event_device_0", "multipath_event_device_1"));
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
  for (int attempt = 0; attempt < 2; ++attempt) {
    log.clear();
    EXPECT_FALSE(provider.initialize());
    EXPECT_TRUE(log.contains(3, "[multipath] Failed to add schema"));
  }
  EXPECT_EQ(sdk.reported("vuna_telemetry_mp_get_counters"), 0u);

  // The next attempt of the same provider is made from scratch.
  tev_type_system_remove_last_schema(&provider.types());
  sdk.restart();
  sdk.scenario.devices.clear();
  sdk.add("rdma0", {"x, d"}, {1});
  EXPECT_TRUE(provider.initialize());
  EXPECT_FALSE(provider.initialize());
  EXPECT_TRUE(log.contains(3, "[multipath] The collector has been initialized already"));
}

TEST_F(ProviderTest, ABatchIsResumedEventByEventWithoutLossOrRepetition) {
  sdk.add("rdma0", {"rx, r", "tx, t, plane 0", "tx, t, plane 1"}, {1, 2, 3});
  sdk.add("r1", {"rx, r", "err, e"}, {4, 5});
  sdk.on_read = [](auto&, auto& values) {
    for (auto& value : values) value += 10;
  };
  clock.passes = 3;
  const auto began = clock.realtime_usec;
  ASSERT_TRUE(initialize());
  awaitPasses();

  std::vector<std::string> delivered;
  const auto take = [&](const auto* block, const auto& type) {
    const auto event = test::Host::event(block, type);
    const bool of_plane = event.type.starts_with("multipath_event_plane");
    const auto plane = of_plane ? "/" + std::to_string(event.bytes[5]) : "";
    const auto value = static_cast<std::uint8_t>(event.bytes[of_plane ? 6 : 5]);
    delivered.push_back(event.device + plane + "=" + std::to_string(value) + " after " +
                        std::to_string((event.timestamp - began) / 1'000'000) + " s");
  };
  const auto largest = 16 + tev_type_system_get_max_event_type_size(&provider.types());
  log.clear();
  for (const std::uint64_t too_small : {24u, 16u, 15u, 0u})
    EXPECT_EQ(provider.progress(too_small, take), TEV_PROGRESS_FULL);
  EXPECT_EQ(
      log.texts(TEV_LEVEL_WARNING),
      test::Texts{"[multipath] The serializer holds 24 bytes: 29 are needed for every event"});
  for (int event = 1; event < 12; ++event)
    EXPECT_EQ(provider.progress(largest, take), TEV_PROGRESS_FULL);
  EXPECT_EQ(provider.progress(largest, take), TEV_PROGRESS_DONE);
  EXPECT_EQ(provider.progress(largest, take), TEV_PROGRESS_DONE);  // idle, and nothing twice

  EXPECT_THAT(delivered,
              ElementsAre("rdma0=11 after 0 s", "rdma0=21 after 1 s", "rdma0=31 after 2 s",
                          "r1=14 after 0 s", "r1=24 after 1 s", "r1=34 after 2 s",
                          "rdma0/0=12 after 0 s", "rdma0/1=13 after 0 s", "rdma0/0=22 after 1 s",
                          "rdma0/1=23 after 1 s", "rdma0/0=32 after 2 s", "rdma0/1=33 after 2 s"));
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

  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    alarm(60);
    auto* const record = provider.get();
    log.clear();
    const bool refused =
        provider.progress(test::Host::kRoom, [](auto*, auto&) {}) == TEV_PROGRESS_FAILED &&
        !multipath_event_provider_start(record) && !provider.initialize();
    const bool stopped = multipath_event_provider_stop(record);
    multipath_event_provider_finalize(record);
    tev_multipath_ledger_t ledger;
    const bool read =
        multipath_event_provider_get_ledger(record, 0, nullptr, &ledger, sizeof ledger);
    const bool logged_once =
        log.count(3,
                  "[multipath] The provider belongs to the parent process and cannot be used "
                  "here") == 1;
    _exit(refused && stopped && !read && logged_once ? 0 : 1);
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
  for (int call = 0; call < 2; ++call)
    EXPECT_EQ(provider.progress(test::Host::kRoom, [](auto*, auto&) { FAIL(); }),
              TEV_PROGRESS_FULL);
  EXPECT_TRUE(log.contains(3, "schema multipath_events type index 0 size is zero"));
}

}  // namespace
}  // namespace tev::events::multipath
