// The simulated SDK as its users have it: opened by path, called through its 27 names.
#pragma once

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "sdk/vuna_abi.h"
#include "tests/support/environment.h"
#include "tests/support/temp_tree.h"

namespace simulator_test {

using Values = std::vector<std::uint32_t>;

struct Sdk {
  Sdk() : library(dlopen(SIMULATOR, RTLD_NOW)) {
    if (!library) throw std::runtime_error(dlerror());
#define F(name, result, parameters) name = reinterpret_cast<decltype(name)>(dlsym(library, #name));
    VUNA_FUNCTIONS(F)
#undef F
  }
  Sdk(const Sdk&) = delete;
  Sdk& operator=(const Sdk&) = delete;
  ~Sdk() {
    dlclose(library);
  }

  // What the simulator counted: lines of a name and a number.
  std::string report() const {
    auto* const write = reinterpret_cast<std::uint32_t (*)(char*, std::uint32_t)>(
        dlsym(library, "vuna_simulator_report"));
    std::string text(write(nullptr, 0), '\0');
    write(text.data(), static_cast<std::uint32_t>(text.size() + 1));
    return text;
  }

  void* library;
#define F(name, result, parameters) std::add_pointer_t<result parameters> name = nullptr;
  VUNA_FUNCTIONS(F)
#undef F
};

// One test with a scenario of its own, a trace, and the SDK loaded anew.
class SimulatorTest : public ::testing::Test {
 protected:
  SimulatorTest() { environment.set("VUNA_SIMULATOR_TRACE", tree.path("trace")); }
  ~SimulatorTest() override { unload(); }

  // Loads the SDK with the scenario that a JSON text describes; in it, ' stands for ".
  void load(std::string json) {
    std::replace(json.begin(), json.end(), '\'', '"');
    loadNamed(tree.write("scenario.json", json));
  }
  void loadNamed(const std::string& scenario) {
    unload();
    tree.write("trace", "");
    list = nullptr;
    environment.set("VUNA_SIMULATOR_SCENARIO", scenario);
    sdk = std::make_unique<Sdk>();
  }
  // Nothing may keep the library in the process.
  void unload() {
    sdk.reset();
    EXPECT_EQ(dlopen(SIMULATOR, RTLD_NOW | RTLD_NOLOAD), nullptr);
  }

  vuna_status createList() { return sdk->vuna_devinfo_create_list(&list, &count); }
  std::string refusal() {
    const vuna_status status = createList();
    return status == kVunaSuccess ? "" : sdk->vuna_error_get_name(status);
  }

  // The context of a device of the list, opened and started on the way.
  vuna_telemetry_mp* start(std::uint32_t device = 0) {
    vuna_telemetry_mp* mp = nullptr;
    EXPECT_TRUE(list || createList() == kVunaSuccess);
    EXPECT_EQ(sdk->vuna_dev_open(list[device], &dev), kVunaSuccess);
    EXPECT_EQ(sdk->vuna_telemetry_mp_create(dev, &mp), kVunaSuccess);
    EXPECT_EQ(sdk->vuna_telemetry_mp_start(mp), kVunaSuccess);
    return mp;
  }
  Values read(vuna_telemetry_mp* mp, std::uint32_t slot = 0, bool clear = false) {
    std::uint32_t filled = 0;
    Values values(256);
    const auto function =
        clear ? sdk->vuna_telemetry_mp_get_and_clear_counters : sdk->vuna_telemetry_mp_get_counters;
    EXPECT_EQ(function(mp, slot, &filled, values.data()), kVunaSuccess);
    values.resize(filled);
    return values;
  }

  // The number that a call gives, the last of its arguments.
  template <class Function, class... Arguments>
  static std::uint32_t number(Function function, Arguments... arguments) {
    std::uint32_t number = 0;
    EXPECT_EQ(function(arguments..., &number), kVunaSuccess);
    return number;
  }
  std::string counterText(vuna_telemetry_mp* mp, std::uint32_t slot, std::uint8_t counter) {
    char text[256] = "";
    EXPECT_EQ(sdk->vuna_telemetry_mp_get_counter_info(mp, slot, counter, text), kVunaSuccess);
    return text;
  }

  // Lines of the trace that begin with a word.
  std::vector<std::string> traced(const std::string& word) const {
    std::istringstream lines(tev::test::readAll(tree.path("trace")));
    std::vector<std::string> found;
    for (std::string line; std::getline(lines, line);)
      if (line.starts_with(word + " ")) found.push_back(line);
    return found;
  }

  tev::test::TempTree tree;
  tev::test::Environment environment;
  std::unique_ptr<Sdk> sdk;
  vuna_devinfo** list = nullptr;
  std::uint32_t count = 0;
  vuna_dev* dev = nullptr;
};

}  // namespace simulator_test
