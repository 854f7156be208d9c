#include "tests/support/simulated_sdk.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <sstream>
#include <utility>

namespace tev::test {
namespace {

SimulatedSdk* current = nullptr;
std::atomic<bool> unlisted_early{false};  // a list was destroyed while a device was open

// The values of one started context.
class Values final : public simulator::CounterSource {
 public:
  Values(std::string device, std::vector<std::uint32_t> values)
      : device_(std::move(device)), values_(std::move(values)) {}

  vuna_status read(const simulator::Moment&, std::uint32_t* values) override {
    if (current->on_read) current->on_read(device_, values_);
    std::copy(values_.begin(), values_.end(), values);
    return kVunaSuccess;
  }

 private:
  const std::string device_;
  std::vector<std::uint32_t> values_;
};

}  // namespace

SimulatedSdk::SimulatedSdk() {
  current = this;
  unlisted_early = false;
#define TEV_POINTER(name, result, parameters) functions.name = ::name;
  VUNA_FUNCTIONS(TEV_POINTER)
#undef TEV_POINTER
  functions.vuna_devinfo_destroy_list = [](auto** list) {
    if (current->reported("opens") != current->reported("closes")) unlisted_early = true;
    return ::vuna_devinfo_destroy_list(list);
  };
  for (const vuna_status status : {0u, 5u, 9u, kVunaSlotEmpty, kVunaSlotInvalid})
    scenario.status_names[status] = "STATUS_" + std::to_string(status);
}

SimulatedSdk::~SimulatedSdk() {
  current = nullptr;
}

simulator::Device& SimulatedSdk::add(const std::string& name, const std::vector<std::string>& lines,
                                     std::vector<std::uint32_t> values) {
  simulator::Slot slot{.algo_id = 100, .minor_version = 2, .info = "algorithm"};
  for (const auto& line : lines) slot.counters.push_back({line, true});
  slot.counters.resize(std::max(lines.size(), values.size()), {"", true});
  slot.declared_counters = static_cast<std::uint32_t>(lines.size());
  slot.filled_counters = static_cast<std::uint32_t>(values.size());
  values.resize(slot.counters.size());
  slot.make_source = [name, values] { return std::make_unique<Values>(name, values); };

  simulator::Device device{.ibdev_name = name, .slots = {slot}};
  simulator::deriveMaxima(device);
  device.max_counter_info_len = 96;
  device.max_num_counters = slot.filled_counters;
  scenario.devices.push_back(std::move(device));
  return scenario.devices.back();
}

std::uint64_t SimulatedSdk::reported(const std::string& wanted) {
  std::istringstream lines(sdk().report());
  std::string name;
  for (std::uint64_t value = 0; lines >> name >> value;)
    if (name == wanted) return value;
  return 0;
}

// A device must be closed even if its opening reported a failure.
bool SimulatedSdk::balanced() {
  return sdk().released() && reported("opens") == reported("closes") && reported("misuses") == 0 &&
         !unlisted_early;
}

simulator::Sdk& SimulatedSdk::sdk() {
  return sdk_ ? *sdk_ : sdk_.emplace(scenario, trace_file.c_str());
}

}  // namespace tev::test

simulator::Sdk& simulator::Sdk::instance() {
  return tev::test::current->sdk();
}
