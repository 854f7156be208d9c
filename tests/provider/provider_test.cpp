#include "provider/provider.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>
#include <thread>

#include "provider/layout_signature.h"
#include "tests/support/captured_log.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_sdk.h"
#include "tests/support/options.h"
#include "tests/support/temp_tree.h"

namespace tev::events::multipath {
namespace {

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
      {"no field", {}, ""},
      {"one", {{"rx", "received", "uint32_t", 0, 1}}, "rxreceiveduint32_t01"},
      {"no separators", {{"a", "b", "c", 1, 12}, {"d", "", "e", 2, 0}}, "abc112de20"},
      {"a mode beyond 31 bits is negative", {{"a", "b", "c", 0xffffffff, 65535}}, "abc-165535"},
      {"a missing text ends it for good",
       {{"a", "b", "c", 0, 1}, {"d", nullptr, "e", 0, 1}, {"f", "g", "h", 0, 1}},
       "abc01d"},
      {"a missing name too", {{nullptr, "b", "c", 0, 1}}, ""},
  };
  for (const auto& row : rows) EXPECT_EQ(layoutSignature(row.fields), fnv1a(row.text)) << row.name;
}

// One event block as the host would read it.
struct Block {
  std::uint64_t timestamp = 0;
  unsigned schema = 0;
  unsigned type = 0;
  std::string event;

  bool operator==(const Block&) const = default;
};

class ProviderTest : public testing::Test {
 protected:
  static constexpr std::size_t kRoom = 1 << 20;

  ProviderTest() : types_(tev_create_type_system(), tev_destroy_type_system), buffer_(kRoom) {
    record_.name = "multipath_events";
    record_.version = 1;
  }
  ~ProviderTest() override {
    if (provider_) provider_->stop();
  }

  void construct() {
    provider_ =
        std::make_unique<Provider>(test::options({{"update", "60000"}}).get(),
                                   Surroundings{.sdk = &sdk.functions(),
                                                .clock = &clock,
                                                .roots = {tree.path("sys"), tree.path("dev")}});
  }
  bool initialize() { return provider_->initialize(&record_, types_.get()); }

  // Lets the sampling thread, which runs already, make its passes.
  void awaitPasses() {
    while (!clock.finished) std::this_thread::yield();
  }

  tev_schema_t& schema() { return *types_->schemas[0]; }
  std::vector<std::string> typeNames() {
    std::vector<std::string> names;
    for (unsigned i = 0; i < schema().num_types; ++i) names.emplace_back(schema().types[i]->name);
    return names;
  }

  // What one progress call writes into a serializer of that capacity, and its result.
  int progress(std::vector<Block>& blocks, std::uint64_t capacity = kRoom) {
    tev_data_serializer_t serializer{types_.get(), buffer_.data(), capacity, 0};
    const int result = provider_->progress(0, &serializer);
    for (std::uint64_t at = 0; at < serializer.used;) {
      Block block;
      std::memcpy(&block.timestamp, &buffer_[at + 4], 8);
      block.schema = buffer_[at + 12];
      block.type = buffer_[at + 13];
      EXPECT_EQ(std::string_view(reinterpret_cast<char*>(&buffer_[at]), 4), "TEVE");
      EXPECT_EQ(buffer_[at + 15], 1);  // one event to a block
      const auto size = schema().types[block.type]->size;
      block.event.assign(reinterpret_cast<char*>(&buffer_[at + 16]), size);
      blocks.push_back(block);
      at += 16 + size;
    }
    return result;
  }

  test::TempTree tree;
  test::FakeSdk sdk;
  test::FakeClock clock;
  test::CapturedLog log;
  tev_event_provider_t record_{};
  std::unique_ptr<tev_type_system_t, decltype(&tev_destroy_type_system)> types_;
  std::unique_ptr<Provider> provider_;
  std::vector<std::uint8_t> buffer_;
};

TEST_F(ProviderTest, DevicesOfOneLayoutShareItsTypes) {
  for (const char* name : {"rdma0", "rdma1"})
    sdk.add(name, {"rx, received", "tx, sent, plane 0"}, {1, 2});
  construct();
  ASSERT_TRUE(initialize());
  EXPECT_STREQ(schema().name, "multipath_events");
  EXPECT_EQ(typeNames(),
            (std::vector<std::string>{"multipath_event_device", "multipath_event_plane"}));
  const auto& plane = *schema().types[1];
  EXPECT_EQ(plane.size, 5u + 1 + 4);
  EXPECT_EQ(plane.fields[0]->index, 1);
  EXPECT_EQ(plane.fields[1]->index, 2);
  EXPECT_EQ(plane.fields[2]->index, 0);
  EXPECT_EQ(plane.fields[2]->offset, 6u);
  EXPECT_TRUE(log.contains(
      6, "[multipath] Registered device event type 'multipath_event_device' with 2 fields"));
  EXPECT_TRUE(log.contains(
      6, "[multipath] Registered plane event type 'multipath_event_plane' with 3 fields"));
}

TEST_F(ProviderTest, TheSchemaHasTheIdentityThatReadersKnow) {
  sdk.add("twelve-chars",
          {"rx_pkts, received packets", "tx_bytes, transmitted bytes, plane 0",
           "cnp_rate, CNPs sent/received, per \"second\"", "rtt, round trip\ttime \\ us, plane 0",
           "ecn, ECN marks — réseau"},
          {1, 2, 3, 4, 5});
  construct();
  ASSERT_TRUE(initialize());
  tev_type_system_update_md5_hashes(types_.get());
  EXPECT_STREQ(schema().id_string, "ad5427b4571fff4a6a6a14ee4323e079");
}

TEST_F(ProviderTest, SeveralLayoutsAreNumberedByAscendingSignature) {
  const char* counters[] = {"a", "b", "c", "d", "e"};
  std::vector<std::pair<std::uint64_t, std::string>> expected;
  for (const char* counter : counters) {
    sdk.add(std::string("dev") + counter, {std::string(counter) + ", x"}, {1});
    expected.emplace_back(
        fnv1a(std::string("device_nameDevice Namechar04") + counter + "xuint32_t01"), counter);
  }
  sdk.add("dev2", {"a, x"}, {1});  // shares the first one's
  std::sort(expected.begin(), expected.end());
  construct();
  ASSERT_TRUE(initialize());
  ASSERT_EQ(schema().num_types, 6);
  for (std::size_t k = 0; k < expected.size(); ++k) {
    const auto& type = *schema().types[k];
    EXPECT_EQ(type.name, "multipath_event_device_" + std::to_string(k));
    EXPECT_EQ(type.fields[1]->field_name, expected[k].second);
  }
  EXPECT_STREQ(schema().types[5]->name, "multipath_event_plane");  // numbered on their own

  // Each device's events carry the type of its layout.
  awaitPasses();
  std::vector<Block> blocks;
  EXPECT_EQ(progress(blocks), TEV_PROGRESS_DONE);
  ASSERT_EQ(blocks.size(), 6u);
  for (std::size_t device = 0; device < 6; ++device) {
    const std::string counter = device < 5 ? counters[device] : "a";
    EXPECT_EQ(schema().types[blocks[device].type]->fields[1]->field_name, counter);
  }
}

// Without separators, the texts of these two layouts are the same.
TEST_F(ProviderTest, LayoutsOfOneSignatureAreStillTwoTypes) {
  sdk.add("rdma0", {"a, d", "b, e"}, {1, 2});
  sdk.add("rdma1", {"aduint32_t01b, e"}, {3});
  construct();
  ASSERT_TRUE(initialize());
  EXPECT_EQ(typeNames(),
            (std::vector<std::string>{"multipath_event_device_0", "multipath_event_device_1",
                                      "multipath_event_plane"}));
  EXPECT_EQ(schema().types[0]->size, 5u + 8);
  awaitPasses();
  std::vector<Block> blocks;
  EXPECT_EQ(progress(blocks), TEV_PROGRESS_DONE);
  EXPECT_EQ(blocks.at(0).type, 0u);
  EXPECT_EQ(blocks.at(1).type, 1u);
}

TEST_F(ProviderTest, ARefusedTypeFailsWithoutSampling) {
  struct Row {
    std::vector<std::string> lines;
    const char* message;
    std::vector<std::string> types;
  };
  const Row rows[] = {
      {{"x, d", "x, d", "y, d"},
       "[multipath] Failed to add device type multipath_event_device to schema",
       {}},
      {{"x, d", "plane, d, plane 0", "y, d, plane 0"},
       "[multipath] Failed to add plane type multipath_event_plane to schema",
       {"multipath_event_device"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    types_.reset(tev_create_type_system());
    sdk.devices.clear();
    sdk.add("rdma0", row.lines, {1, 2, 3});
    construct();
    EXPECT_FALSE(initialize());
    EXPECT_TRUE(log.contains(3, row.message));
    EXPECT_EQ(typeNames(), row.types);  // what was added stays
    EXPECT_EQ(sdk.calls["vuna_telemetry_mp_get_counters"], 0u);
    EXPECT_TRUE(log.contains(7, "[multipath] Cleared event field storage for all devices"));
    std::vector<Block> blocks;
    EXPECT_EQ(progress(blocks), TEV_PROGRESS_DONE);
    provider_.reset();
    EXPECT_TRUE(sdk.balanced());
  }
}

TEST_F(ProviderTest, AFullTypeSystemAndAMissingDeviceAreRefusals) {
  construct();
  EXPECT_FALSE(initialize());
  EXPECT_TRUE(log.contains(6, "[multipath] Failed to initialize collector"));
  EXPECT_FALSE(initialize());
  EXPECT_EQ(log.count(6, "[multipath] Failed to initialize collector"), 1u);  // once in ten seconds

  sdk.add("rdma0", {"x, d"}, {1});
  for (int i = 0; i < TEV_MAX_SCHEMAS; ++i)
    tev_type_system_add_schema(types_.get(), "other", 1, nullptr);
  construct();
  EXPECT_FALSE(initialize());
  EXPECT_TRUE(log.contains(3, "[multipath] Failed to add schema"));
}

TEST_F(ProviderTest, ABatchIsResumedEventByEventWithoutLossOrRepetition) {
  sdk.add("rdma0", {"rx, r", "tx, t, plane 0", "tx, t, plane 1"}, {1, 2, 3});
  sdk.add("r1", {"rx, r", "err, e"}, {4, 5});
  sdk.on_read = [](test::FakeDevice& dev) {
    for (auto& value : dev.values) value += 10;
  };
  clock.passes = 3;
  const auto began = clock.realtime_usec;
  construct();
  ASSERT_TRUE(initialize());
  awaitPasses();

  const auto name_of = [](const Block& block) { return block.event.substr(0, 5); };
  std::vector<Block> blocks;
  std::vector<int> results;
  const auto largest = tev_type_system_get_max_event_type_size(types_.get());
  do {
    results.push_back(progress(blocks, 16 + largest));
  } while (results.back() == TEV_PROGRESS_FULL && results.size() < 100);

  // Two devices, three passes: six device events, then the six plane events of the first device.
  ASSERT_EQ(blocks.size(), 12u);
  EXPECT_EQ(results.back(), TEV_PROGRESS_DONE);
  EXPECT_EQ(std::count(results.begin(), results.end(), TEV_PROGRESS_FULL), 11);
  for (std::size_t i = 0; i < 12; ++i) {
    const auto pass = i < 6 ? i % 3 : (i - 6) / 2;
    EXPECT_EQ(name_of(blocks[i]), i / 3 == 1 ? std::string("r1\0\0\0", 5) : "rdma0") << i;
    EXPECT_EQ(blocks[i].timestamp, began + pass * 1'000'000) << i;
    std::uint32_t counter = 0;
    std::memcpy(&counter, blocks[i].event.data() + (i < 6 ? 5 : 6), 4);
    const std::uint32_t first_value = i < 3 ? 1u : i < 6 ? 4u : 2u + i % 2;
    EXPECT_EQ(counter, first_value + 10 * (pass + 1)) << i;
    if (i >= 6) {
      EXPECT_EQ(blocks[i].event[5], static_cast<char>(i % 2)) << i;
    }
  }

  blocks.clear();
  EXPECT_EQ(progress(blocks), TEV_PROGRESS_DONE);  // idle again, and nothing twice
  EXPECT_TRUE(blocks.empty());
}

TEST_F(ProviderTest, ASerializerBelowOneEventKeepsTheBatch) {
  sdk.add("rdma0", {"rx, r"}, {1});
  construct();
  ASSERT_TRUE(initialize());
  awaitPasses();
  std::vector<Block> blocks;
  for (const std::uint64_t capacity : {0u, 15u, 16u, 16u + 8u})
    EXPECT_EQ(progress(blocks, capacity), TEV_PROGRESS_FULL);
  EXPECT_TRUE(blocks.empty());
  EXPECT_EQ(progress(blocks, 16 + 9), TEV_PROGRESS_DONE);
  EXPECT_EQ(blocks.size(), 1u);
}

TEST_F(ProviderTest, EventsWithoutBytesNeverFindRoom) {
  sdk.add("", {"tx, t, plane 1"}, {1});  // no name, no device counter: a device event of no bytes
  construct();
  ASSERT_TRUE(initialize());
  awaitPasses();
  std::vector<Block> blocks;
  EXPECT_EQ(progress(blocks), TEV_PROGRESS_FULL);
  EXPECT_EQ(progress(blocks), TEV_PROGRESS_FULL);
  EXPECT_TRUE(blocks.empty());
  EXPECT_TRUE(log.contains(3, "schema multipath_events type index 0 size is zero"));
}

}  // namespace
}  // namespace tev::events::multipath
