// The state of the simulated SDK: the scenario, the existing handles, and the calls of its user.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "simulator/functions.h"
#include "simulator/handles.h"
#include "simulator/log.h"
#include "simulator/scenario.h"
#include "simulator/trace.h"

namespace simulator {

// The object and the slot that a call concerns. Parts that its arguments do not identify are empty.
struct Subject {
  const void* handle = nullptr;  // a device description, a device or a context
  std::optional<std::uint32_t> slot;
  std::optional<std::uint32_t> counter;
};

// Any thread may call. Invalid handles are recognised without being dereferenced. Their use is
// refused and counted as misuse.
class Sdk {
 public:
  // The object that the SDK's functions use. The code that links them defines this function. In
  // the exported library, the object is created by the first call after the library was loaded, and
  // destroyed when it is unloaded.
  static Sdk& instance();

  // `trace`: the file of the trace; null or empty: no trace.
  Sdk(Scenario scenario, const char* trace);
  // An SDK that lists no devices, because its scenario cannot be played.
  Sdk(const ScenarioError& refusal, const char* trace);
  Sdk(const Sdk&) = delete;
  Sdk& operator=(const Sdk&) = delete;
  ~Sdk();

  // Bookkeeping around each call. `watched` is false for most calls, and `enter` and `leave` are
  // then not needed. If there is a fault, the caller plays it.
  void count(Function function) {
    calls_[indexOf(function)].fetch_add(1, std::memory_order_relaxed);
  }
  bool watched(Function function) const { return trace_.on() || scenario_.faults.any(function); }
  struct Entry {
    const Fault* fault = nullptr;
    const std::string* device = nullptr;
  };
  Entry enter(Function function, const Subject& subject);
  void leave(Function function, const Subject& subject, const Entry& entry,
             const char* result) const;

  const char* statusName(
      vuna_status status) const;  // static, or lives until the library is unloaded
  Log& log() { return log_; }
  std::string report() const;
  // Whether everything that must be released has been released.
  bool released() const;

  // The existing device of a description. Null when the description is invalid, which is counted
  // as misuse.
  const vuna_devinfo* info(Function function, const vuna_devinfo* devinfo);
  std::shared_ptr<vuna_telemetry_mp> context(Function function, vuna_telemetry_mp* mp);

  // Stores a size that was reported to the user of a description or context.
  void tell(const void* handle, ToldSize size, std::uint32_t value);

  // `unowned`: the call will report a failure; see handles.h.
  vuna_status createList(vuna_devinfo*** list, std::uint32_t* count, bool unowned);
  vuna_status destroyList(vuna_devinfo** list);
  vuna_status open(vuna_devinfo* devinfo, vuna_dev** dev, bool unowned);
  vuna_status close(vuna_dev* dev);
  vuna_devinfo* asDevinfo(vuna_dev* dev);
  vuna_status create(vuna_dev* dev, vuna_telemetry_mp** mp, bool unowned);
  vuna_status destroy(vuna_telemetry_mp* mp);
  vuna_status start(vuna_telemetry_mp* mp, bool unowned);
  vuna_status stop(vuna_telemetry_mp* mp);

  vuna_status misuse(const char* function, const std::string* device, const char* what,
                     vuna_status status);
  vuna_status misuse(Function function, const std::string* device, const char* what,
                     vuna_status status) {
    return misuse(nameOf(function), device, what, status);
  }

 private:
  struct List {
    std::vector<std::unique_ptr<vuna_devinfo>> infos;
    std::vector<vuna_devinfo*> array;  // terminated by a null
    bool unowned;
  };
  struct Totals {
    std::atomic<std::uint64_t> lists_created{0}, lists_destroyed{0}, opens{0}, closes{0},
        creates{0}, destroys{0}, starts{0}, stops{0}, misuses{0};
  };

  const vuna_devinfo* findInfo(const void* handle) const;
  const std::string* nameOfDevice(const void* handle) const;
  void retire(std::shared_ptr<void> handle) noexcept;

  Scenario scenario_;
  std::string refusal_;  // why the scenario cannot be played; empty when it can
  Trace trace_;
  Log log_;
  Totals totals_;
  std::array<std::atomic<std::uint64_t>, kFunctionCount> calls_{};

  // Guards the members below and the counts of the scenario's faults. A context's mutex may be
  // locked while this one is held, never the reverse.
  mutable std::mutex mutex_;
  std::unordered_map<const void*, std::shared_ptr<List>> lists_;
  std::unordered_map<const void*, const vuna_devinfo*> listed_infos_;
  std::unordered_map<const void*, std::shared_ptr<vuna_dev>> devs_;
  std::unordered_map<const void*, std::shared_ptr<vuna_telemetry_mp>> contexts_;
  // Released handles, kept for some time so that their addresses are not reused immediately.
  std::deque<std::shared_ptr<void>> retired_;
};

}  // namespace simulator
