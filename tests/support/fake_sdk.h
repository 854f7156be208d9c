// A device SDK in memory. It answers as the test defines, records the calls, and fails on demand.
// It never writes more than it has reported.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
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
  std::vector<std::string> lines;           // the counters' descriptions
  std::vector<std::uint32_t> values;        // what a read fills in; cleared by a clearing read
  std::vector<FakeSlot> slots{FakeSlot{}};  // any beyond them are empty
  vuna_status supported = 0;
  bool listed = true;                           // else the list has a null in its place
  std::optional<std::uint32_t> max_slots{};     // reported; else as many as there are
  std::optional<std::uint32_t> num_counters{};  // declared; else as many as there are lines
  std::optional<std::uint32_t> max_counters{};  // reported; else as many as there are values
  std::optional<std::uint32_t> filled{};        // said to be filled in; else all values
  std::uint32_t algo_info_length = 32;
  std::uint32_t counter_info_length = 96;

  enum State { kClosed, kOpen, kCreated, kStarted };
  State state = kClosed;
  // The sizes that have been reported to the caller.
  std::uint32_t text_room = 0;
  std::uint32_t declared_room = 0;
  std::uint32_t values_room = 0;
};

// One call that fails.
struct Fault {
  std::string function;
  unsigned call = 1;       // the n-th call of that function, from 1
  vuna_status status = 5;  // 0: a success that delivers nothing
  bool delivers = false;   // a failure that still fills its outputs
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
  std::vector<vuna_devinfo*> list;

  // Whether every device was opened, created and started, and stopped, destroyed and closed, in
  // that order as far as it got, within the life of the list; and nothing is held any more.
  bool balanced() const;
  std::vector<std::string> misuse;  // what was out of order

  // For the functions themselves.
  static FakeSdk& current();
  const Fault* enter(const char* function);
  void step(const char* what, FakeDevice& device, FakeDevice::State from, FakeDevice::State to);
  void setListed(const char* what, bool listed);

 private:
  bool allClosed() const;

  events::multipath::SdkFunctions functions_;
  std::mutex mutex_;  // guards the counting of calls: devices may be read side by side
  bool listed_ = false;
};

// The name that the fake gives to a status; none to 0xffffffff.
std::string statusName(vuna_status status);

}  // namespace tev::test
