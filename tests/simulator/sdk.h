// The simulated SDK as its users have it: opened by path, called through its 27 names.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "sdk/vuna_abi.h"
#include "tests/support/temp_tree.h"

namespace simulator_test {

struct Sdk {
  Sdk() : library(dlopen(SIMULATOR, RTLD_NOW)) {
    if (!library) throw std::runtime_error(dlerror());
#define F(name, result, parameters) name = reinterpret_cast<decltype(name)>(dlsym(library, #name));
    VUNA_FUNCTIONS(F)
#undef F
    writeReport = reinterpret_cast<std::uint32_t (*)(char*, std::uint32_t)>(
        dlsym(library, "vuna_simulator_report"));
  }
  Sdk(const Sdk&) = delete;
  Sdk& operator=(const Sdk&) = delete;
  ~Sdk() {
    dlclose(library);
  }

  // The number behind a name of the report; 0 when it does not stand there.
  std::uint64_t reported(const std::string& wanted) const {
    std::string text(writeReport(nullptr, 0), '\0');
    writeReport(text.data(), static_cast<std::uint32_t>(text.size() + 1));
    std::istringstream lines(text);
    std::string name;
    for (std::uint64_t value = 0; lines >> name >> value;)
      if (name == wanted) return value;
    return 0;
  }

  void* library;
  std::uint32_t (*writeReport)(char*, std::uint32_t) = nullptr;
#define F(name, result, parameters) std::add_pointer_t<result parameters> name = nullptr;
  VUNA_FUNCTIONS(F)
#undef F
};

// One test with a scenario of its own, a trace, and the SDK loaded anew.
class SimulatorTest : public ::testing::Test {
 protected:
  SimulatorTest() { setenv("VUNA_SIMULATOR_TRACE", trace_path().c_str(), 1); }
  ~SimulatorTest() override {
    unload();
    for (const char* name : {"SCENARIO", "SEED", "SYSFS", "TRACE"})
      unsetenv((std::string("VUNA_SIMULATOR_") + name).c_str());
  }

  std::string trace_path() const { return tree.path("trace"); }

  // Loads the SDK with the scenario that a JSON text describes; in it, ' stands for ".
  void load(std::string json) {
    for (char& c : json)
      if (c == '\'') c = '"';
    loadNamed(tree.write("scenario.json", json));
  }
  void loadNamed(const std::string& scenario) {
    unload();
    list = nullptr;
    setenv("VUNA_SIMULATOR_SCENARIO", scenario.c_str(), 1);
    sdk = std::make_unique<Sdk>();
  }
  // Nothing may keep the library in the process.
  void unload() {
    sdk.reset();
    void* const still = dlopen(SIMULATOR, RTLD_NOW | RTLD_NOLOAD);
    EXPECT_EQ(still, nullptr) << "the library has not been unloaded";
    if (still) dlclose(still);
  }

  vuna_status createList() { return sdk->vuna_devinfo_create_list(&list, &count); }
  std::string refusal() {
    const vuna_status status = createList();
    return status == kVunaSuccess ? "" : sdk->vuna_error_get_name(status);
  }

  // The context of a device of the list, opened and started on the way.
  vuna_telemetry_mp* start(std::uint32_t device = 0) {
    if (!list) {
      EXPECT_EQ(refusal(), "");
    }
    vuna_telemetry_mp* mp = nullptr;
    EXPECT_EQ(sdk->vuna_dev_open(list[device], &dev), kVunaSuccess);
    EXPECT_EQ(sdk->vuna_telemetry_mp_create(dev, &mp), kVunaSuccess);
    EXPECT_EQ(sdk->vuna_telemetry_mp_start(mp), kVunaSuccess);
    return mp;
  }
  void giveBack(vuna_telemetry_mp* mp) {
    sdk->vuna_telemetry_mp_stop(mp);
    sdk->vuna_telemetry_mp_destroy(mp);
    sdk->vuna_dev_close(dev);
    sdk->vuna_devinfo_destroy_list(list);
    list = nullptr;
  }

  std::vector<std::uint32_t> read(vuna_telemetry_mp* mp, std::uint32_t slot = 0,
                                  bool clear = false) {
    std::uint32_t filled = 0;
    std::vector<std::uint32_t> values(256);
    const auto function =
        clear ? sdk->vuna_telemetry_mp_get_and_clear_counters : sdk->vuna_telemetry_mp_get_counters;
    EXPECT_EQ(function(mp, slot, &filled, values.data()), kVunaSuccess);
    values.resize(filled);
    return values;
  }

  // The number that a call gives, the last of its arguments.
  template <class... Parameters, class... Arguments>
  static std::uint32_t number(vuna_status (*function)(Parameters...), Arguments... arguments) {
    const auto unsigned_where_number = [](auto argument) {
      if constexpr (std::is_integral_v<decltype(argument)>)
        return static_cast<std::uint32_t>(argument);
      else
        return argument;
    };
    std::uint32_t number = 0;
    EXPECT_EQ(function(unsigned_where_number(arguments)..., &number), kVunaSuccess);
    return number;
  }
  std::string counterText(vuna_telemetry_mp* mp, std::uint32_t slot, std::uint8_t counter) {
    char text[256] = "";
    EXPECT_EQ(sdk->vuna_telemetry_mp_get_counter_info(mp, slot, counter, text), kVunaSuccess);
    return text;
  }

  // The SDK's log of what `body` does with it, and of its end.
  template <class Body>
  std::string logged(const Body& body) {
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = open_memstream(&text, &size);
    vuna_log_backend* backend = nullptr;
    EXPECT_EQ(sdk->vuna_log_backend_create_with_file_sdk(stream, &backend), kVunaSuccess);
    body(backend);
    unload();
    std::fclose(stream);
    std::string log(text, size);
    free(text);
    return log;
  }

  std::string trace() const { return tev::test::readAll(trace_path()); }
  // Lines of the trace that begin with a word.
  std::vector<std::string> traced(const std::string& word) const {
    std::istringstream lines(trace());
    std::vector<std::string> found;
    for (std::string line; std::getline(lines, line);)
      if (line.rfind(word + " ", 0) == 0) found.push_back(line);
    return found;
  }

  tev::test::TempTree tree;
  std::unique_ptr<Sdk> sdk;
  vuna_devinfo** list = nullptr;
  std::uint32_t count = 0;
  vuna_dev* dev = nullptr;
};

}  // namespace simulator_test
