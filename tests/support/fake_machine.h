// The parts of a machine that a collector needs: a simulated SDK, a clock in memory, and trees for
// /sys and /dev. Its tests also need options and the log.
#pragma once

#include <thread>

#include "collector/collector.h"
#include "tests/support/captured_log.h"
#include "tests/support/fake_clock.h"
#include "tests/support/options.h"
#include "tests/support/simulated_sdk.h"
#include "tests/support/temp_tree.h"

namespace tev::test {

using events::multipath::Surroundings;

struct FakeMachine {
  Surroundings surroundings() {
    return {.sdk = &sdk.functions, .clock = &clock, .roots = {tree.path("sys"), tree.path("dev")}};
  }
  // With the real clocks.
  Surroundings liveSurroundings() {
    auto live = surroundings();
    live.clock = &events::multipath::Clock::system();
    return live;
  }

  // Adds an adapter to /sys.
  void adapter(const std::string& name, const std::string& address,
               const std::vector<std::string>& interfaces) {
    const auto folder = "sys/class/infiniband/" + name + "/device/";
    tree.write(folder + "uevent", "DRIVER=x\nPCI_SLOT_NAME=" + address + "\n");
    for (const auto& interface : interfaces) tree.folder(folder + "net/" + interface);
  }

  // Lets the sampling thread, which runs already, make its passes.
  void awaitPasses() const {
    while (!clock.finished) std::this_thread::yield();
  }

  TempTree tree;
  SimulatedSdk sdk;
  FakeClock clock;
};

}  // namespace tev::test
