// A whole life of the provider over the SDK in memory: construct, initialize, sample, deliver,
// stop, deliver the rest, destroy. What can be said of any such life, whatever went wrong in it, is
// checked here.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <exception>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "provider/provider.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_sdk.h"
#include "tests/support/options.h"
#include "tests/support/temp_tree.h"

namespace tev::test {

using events::multipath::Provider;
using events::multipath::SdkFunctions;
using events::multipath::Surroundings;

struct Life {
  bool constructed = false;
  bool initialized = false;
  std::size_t devices = 0;
  tev_multipath_sample_counts_t counts{};        // of all devices
  std::uint64_t delivered = 0;                   // device events
  std::map<std::string, unsigned> delivered_of;  // by the name that the events carry
};

class Rig {
 public:
  static constexpr int kPasses = 4;

  explicit Rig(std::initializer_list<std::pair<const char*, const char*>> entries = {})
      : options_(options({{"update", "60000"}})), buffer_(std::size_t{1} << 16) {
    for (const auto& [key, value] : entries) tev_dict_add(options_.get(), key, value);
    for (const std::string number : {"0", "1"}) {
      const std::string folder = "sys/class/infiniband/rdma" + number + "/device/";
      tree.write(folder + "uevent", "PCI_SLOT_NAME=0000:01:00." + number + "\n");
      tree.folder(folder + "net/an-interface-with-a-long-name-" + number);
    }
    sdk.add("rdma0", {"rx, received", "tx, sent, plane 0", "tx, sent, plane 1"}, {1, 2, 3});
    sdk.add("rdma1", {"rx, received", "err, errors"}, {4, 5});
    clock_.passes = kPasses;
    clock_.waits.reserve(16);
  }

  FakeSdk sdk;
  TempTree tree;  // with a /sys and a /dev of its own
  // Called around the set-up: the construction and the initialization.
  std::function<void()> before_set_up = [] {};
  std::function<void()> after_set_up = [] {};

  // Later than all that an earlier life logged: warnings are limited per process.
  void startAt(std::uint64_t realtime_usec) { clock_.realtime_usec = realtime_usec; }

  // Through `functions`, which are the fake's unless something stands in between.
  Life live(const SdkFunctions& functions) {
    Life life;
    const std::unique_ptr<tev_type_system_t, decltype(&tev_destroy_type_system)> types(
        tev_create_type_system(), tev_destroy_type_system);
    if (!types) return life;
    const Surroundings surroundings{
        .sdk = &functions, .clock = &clock_, .roots = {tree.path("sys"), tree.path("dev")}};
    std::unique_ptr<Provider> provider;
    before_set_up();
    try {
      provider = std::make_unique<Provider>(options_.get(), surroundings);
    } catch (const std::exception&) {
      after_set_up();
      return life;  // construct_event_provider() says null
    }
    life.constructed = true;
    tev_event_provider_t record{};
    record.name = "multipath_events";
    record.version = 1;
    record.context = provider.get();
    life.initialized = multipath_event_provider_initialize(&record, types.get());
    after_set_up();
    if (life.initialized) {
      while (!clock_.finished) std::this_thread::yield();
      deliver(record, types.get(), life);
    }
    EXPECT_TRUE(multipath_event_provider_stop(&record));
    deliver(record, types.get(), life);
    life.devices = provider->collector().numDevices();
    multipath_event_provider_get_sample_counts(&record, TEV_ALL_DEVICES, nullptr, &life.counts);
    return life;
  }
  Life live() { return live(sdk.functions()); }

  // Every sample that was taken was delivered or counted as lost, and every pass is accounted for.
  static void expectAccountedFor(const Life& life) {
    EXPECT_EQ(life.delivered, life.counts.taken - life.counts.lost);
    EXPECT_EQ(life.counts.taken + life.counts.failed,
              life.initialized ? kPasses * life.devices : 0);
  }

  // Each device was opened, created and started, and stopped, destroyed and closed, in that order,
  // within the life of the list, as far as `trace` got; nothing is left.
  static void expectInOrder(const std::vector<std::string>& trace) {
    static const std::map<std::string, std::pair<int, int>> kSteps = {
        {"open", {0, 1}}, {"create", {1, 2}},  {"start", {2, 3}},
        {"stop", {3, 2}}, {"destroy", {2, 1}}, {"close", {1, 0}}};
    std::map<std::string, int> states;
    int listed = 0;
    const auto at_rest = [&states] {
      for (const auto& [device, state] : states)
        if (state != 0) return false;
      return true;
    };
    for (const auto& entry : trace) {
      const auto space = entry.find(' ');
      const std::string step = entry.substr(0, space);
      if (step == "list") {
        EXPECT_EQ(listed++, 0);
      } else if (step == "unlist") {
        EXPECT_EQ(listed--, 1);
        EXPECT_TRUE(at_rest()) << "the list was given back before a device";
      } else if (const auto known = kSteps.find(step); known != kSteps.end()) {
        int& state = states[entry.substr(space)];
        EXPECT_EQ(listed, 1) << entry;
        EXPECT_EQ(state, known->second.first) << entry;
        state = known->second.second;
      }
    }
    EXPECT_EQ(listed, 0);
    EXPECT_TRUE(at_rest()) << "a device was not given back";
  }

 private:
  void deliver(tev_event_provider_t& record, tev_type_system_t* types, Life& life) {
    int result = TEV_PROGRESS_FULL;
    for (int call = 0; call < 1'000 && result == TEV_PROGRESS_FULL; ++call) {
      tev_data_serializer_t serializer{types, buffer_.data(), 64, 0};  // an event or two at a time
      result = multipath_event_provider_progress(&record, 0, &serializer);
      readBlocks(serializer, life);
    }
    EXPECT_EQ(result, TEV_PROGRESS_DONE);
  }

  static void readBlocks(const tev_data_serializer_t& serializer, Life& life) {
    const tev_schema_t* const schema = serializer.type_system->schemas[0];
    std::uint64_t at = 0;
    while (at < serializer.used) {
      const auto* const block = serializer.buffer + at;
      ASSERT_EQ(std::memcmp(block, "TEVE", 4), 0);
      ASSERT_LT(block[13], schema->num_types);
      const auto& type = *schema->types[block[13]];
      if (std::string_view(type.name).starts_with("multipath_event_device")) {
        ++life.delivered;
        const auto length = type.fields[0]->array_length;
        const std::string name(reinterpret_cast<const char*>(block + 16), length);
        ++life.delivered_of[name.c_str()];
      }
      at += 16 + type.size;
    }
    ASSERT_EQ(at, serializer.used);
  }

  FakeClock clock_;
  Options options_;
  std::vector<std::uint8_t> buffer_;
};

}  // namespace tev::test
