// A device SDK in memory: answers as the test sets it up, notes what is asked of it, fails on
// demand.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "collector/api.h"

namespace tev::test {

struct FakeSlot {
  vuna_status id_status = 0;
  vuna_status enable_status = 0;
  std::uint8_t algo_enabled = 1;
  std::uint8_t counters_enabled = 1;
};

struct FakeDevice {
  std::string name;
  std::vector<std::string> lines;     // the counters' descriptions
  std::vector<std::uint32_t> values;  // what a read fills in; cleared by a clearing read
  std::vector<FakeSlot> slots{FakeSlot{}};
  vuna_status supported = 0;
  std::optional<std::uint32_t> max_slots{};     // reported; else as many as there are
  std::optional<std::uint32_t> num_counters{};  // declared; else as many as there are lines
  std::optional<std::uint32_t> max_counters{};  // reported; else as many as there are values
  std::optional<std::uint32_t> filled{};        // said to be filled in; else all values
  std::uint32_t algo_info_length = 32;
  std::uint32_t counter_info_length = 96;
  std::string algo_info = "fake algorithm";
};

// One call that goes wrong.
struct Fault {
  std::string function;
  unsigned call = 1;       // the n-th call of that function, from 1
  vuna_status status = 5;  // 0: a success that delivers nothing
  bool delivers = false;   // a failure that fills its outputs all the same
};

// One at a time: the SDK's functions have no argument to find it by.
class FakeSdk {
 public:
  FakeSdk();
  ~FakeSdk();
  FakeSdk(const FakeSdk&) = delete;
  FakeSdk& operator=(const FakeSdk&) = delete;

  FakeDevice& add(std::string name, std::vector<std::string> lines,
                  std::vector<std::uint32_t> values);
  const events::multipath::SdkFunctions& functions() const { return functions_; }

  // Opens, creations and starts with their opposites, in the order of the calls: "open rdma0".
  std::vector<std::string> trace;
  std::map<std::string, unsigned> calls;  // per function
  std::vector<Fault> faults;
  std::function<void(FakeDevice&)> on_read;

  std::vector<FakeDevice> devices;  // not to grow once the list has been made

  // Whether everything that was opened, created, started or listed has been given back.
  bool balanced() const;
  // What was used without being held, or given back twice.
  std::vector<std::string> misuse;

  // For the functions themselves.
  static FakeSdk& current();
  const Fault* enter(const char* function);
  void acquire(const char* what, FakeDevice* device);
  void giveBack(const char* what, const char* undoes, FakeDevice* device);

 private:
  events::multipath::SdkFunctions functions_;
  std::mutex mutex_;  // guards the counting of calls: devices may be read side by side
  std::multiset<std::string> held_;
};

// The name that the fake gives to a status.
std::string statusName(vuna_status status);

}  // namespace tev::test
