// A complete run of the provider with the simulated SDK: construct, initialize, sample, deliver,
// stop, deliver the rest, destroy. This file checks the properties that hold in every run, whatever
// failed in it.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/support/fake_machine.h"
#include "tests/support/local_provider.h"
#include "tests/support/options.h"

namespace tev::test {

struct Life {
  bool constructed = false;
  bool initialized = false;
  std::size_t devices = 0;
  tev_multipath_sample_counts_t counts{};        // of all devices
  std::uint64_t delivered = 0;                   // device events
  std::map<std::string, unsigned> delivered_of;  // by the name that the events carry
};

class Rig : public FakeMachine {
 public:
  static constexpr unsigned kPasses = 4;

  Rig() : options_(options({{"update", "60000"}})) {
    adapter("rdma0", "0000:01:00.0", {"an-interface-with-a-long-name-0"});
    adapter("rdma1", "0000:01:00.1", {"an-interface-with-a-long-name-1"});
    sdk.add("rdma0", {"rx, received", "tx, sent, plane 0", "tx, sent, plane 1"}, {1, 2, 3});
    sdk.add("rdma1", {"rx, received", "err, errors"}, {4, 5});
    clock.passes = kPasses;
    clock.waits.reserve(16);
  }

  // Called around the set-up: the construction and the initialization.
  std::function<void()> before_set_up = [] {};
  std::function<void()> after_set_up = [] {};

  Life live() {
    constexpr std::uint64_t kRoom = 64;  // of an event or two
    Life life;
    LocalProvider provider(surroundings());
    const auto take = [&life](const auto* block, const auto& type) {
      const auto event = Host::event(block, type);
      if (!event.type.starts_with("multipath_event_device")) return;
      ++life.delivered;
      ++life.delivered_of[event.device];
    };
    before_set_up();
    try {
      provider.construct(options_.get());
      life.constructed = true;
      life.initialized = provider.initialize();
    } catch (const std::exception&) {
      // construct_event_provider() says null
    }
    after_set_up();
    if (!life.constructed) return life;
    if (life.initialized) {
      awaitPasses();
      provider.drain(kRoom, take);
    }
    provider.stop();
    provider.drain(kRoom, take);
    life.devices = provider.collector().numDevices();
    life.counts = provider.counts();

    // Every sample that was taken was delivered or counted as lost, and every pass has its sample.
    EXPECT_EQ(life.delivered, life.counts.taken - life.counts.lost);
    EXPECT_EQ(life.counts.taken + life.counts.failed,
              life.initialized ? kPasses * life.devices : 0);
    return life;
  }

 private:
  Options options_;
};

}  // namespace tev::test
