// The simulated SDK with a scenario of the test's own.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <fstream>

#include "tests/support/environment.h"
#include "tests/support/simulated_sdk.h"
#include "tests/support/temp_tree.h"

namespace simulator_test {

using Values = std::vector<std::uint32_t>;

// The number that a call gives, the last of its arguments.
template <class Function, class... Arguments>
std::uint32_t number(Function function, Arguments... arguments) {
  std::uint32_t number = 0;
  EXPECT_EQ(function(arguments..., &number), kVunaSuccess);
  return number;
}

class SimulatorTest : public ::testing::Test {
 protected:
  // Starts the SDK anew with the scenario that a JSON text describes; in it, ' stands for ".
  void load(std::string json) {
    std::replace(json.begin(), json.end(), '\'', '"');
    loadNamed(tree.write("scenario.json", json));
  }
  void loadNamed(const std::string& scenario) {
    sdk.restart();
    sdk.trace_file = tree.write("trace", "");
    list = nullptr;
    environment.set("VUNA_SIMULATOR_SCENARIO", scenario);
    sdk.scenario = simulator::scenarioOfEnvironment();
  }

  vuna_status createList() { return vuna_devinfo_create_list(&list, &count); }

  // The context of a device of the list, opened and started on the way.
  vuna_telemetry_mp* start(std::uint32_t device = 0) {
    vuna_telemetry_mp* mp = nullptr;
    EXPECT_TRUE(list || createList() == kVunaSuccess);
    EXPECT_EQ(vuna_dev_open(list[device], &dev), kVunaSuccess);
    EXPECT_EQ(vuna_telemetry_mp_create(dev, &mp), kVunaSuccess);
    EXPECT_EQ(vuna_telemetry_mp_start(mp), kVunaSuccess);
    return mp;
  }
  static Values read(vuna_telemetry_mp* mp, std::uint32_t slot = 0, bool clear = false) {
    std::uint32_t filled = 0;
    Values values(256);
    const auto function =
        clear ? vuna_telemetry_mp_get_and_clear_counters : vuna_telemetry_mp_get_counters;
    EXPECT_EQ(function(mp, slot, &filled, values.data()), kVunaSuccess);
    values.resize(filled);
    return values;
  }
  static std::string counterText(vuna_telemetry_mp* mp, std::uint32_t slot, std::uint8_t counter) {
    char text[256] = "";
    EXPECT_EQ(vuna_telemetry_mp_get_counter_info(mp, slot, counter, text), kVunaSuccess);
    return text;
  }

  // Lines of the trace that begin with a word.
  std::vector<std::string> traced(const std::string& word) const {
    std::ifstream lines(tree.path("trace"));
    std::vector<std::string> found;
    for (std::string line; std::getline(lines, line);)
      if (line.starts_with(word + " ")) found.push_back(line);
    return found;
  }

  tev::test::TempTree tree;
  tev::test::Environment environment;
  tev::test::SimulatedSdk sdk;
  vuna_devinfo** list = nullptr;
  std::uint32_t count = 0;
  vuna_dev* dev = nullptr;
};

}  // namespace simulator_test
