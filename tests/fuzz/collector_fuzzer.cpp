// Input: the options, the devices of the SDK, and the calls that fail. Beyond the end of the input,
// devices are normal, so that short inputs also reach sampling.
#include <malloc.h>

#include <algorithm>
#include <iterator>

#include "simulator/value_law.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/local_provider.h"

namespace {

using tev::test::check;
using tev::test::Function;
using tev::test::SimulatedSdk;

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool ended() const { return at_ == size_; }
  std::uint8_t byte(std::uint8_t otherwise) { return ended() ? otherwise : data_[at_++]; }

  // Usually the correct value.
  vuna_status status() {
    const auto answer = byte(0);
    return answer < 0xe0 ? 0 : answer == 0xff ? 0xffffffff : answer - 0xe0 + 1u;
  }

  // Small numbers unchanged; instead of large numbers, those near limits.
  std::uint32_t number(std::size_t otherwise) {
    static constexpr std::uint32_t kEdges[] = {
        0, 63, 64, 127, 128, 255, 256, 257, 1'000, 65'535, 65'536, 0x7fffffff, 0xffffffff};
    const auto answer = byte(static_cast<std::uint8_t>(otherwise));
    return answer < 0xf0 ? answer : kEdges[std::min<std::size_t>(answer - 0xf0, 12)];
  }

  // Up to the end of a line.
  std::string text(std::string otherwise) {
    if (ended()) return otherwise;
    const auto* const end = std::find(data_ + at_, data_ + size_, '\n');
    std::string text(data_ + at_, end);
    at_ = std::min(at_ + text.size() + 1, size_);
    return text;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

tev::test::Options optionsFrom(Input& input) {
  static constexpr const char* kNumbers[] = {
      "1000", "0", "1", "2147483648", "9223372036854775808", "18446744073709551615", "-1", "x%n"};
  auto options = tev::test::options({});
  for (const char* key : {"multipath-sample-interval-usec", "multipath-max-buffer-size", "update",
                          "multipath-clear-sampled-counters"})
    if (const auto which = input.byte(0); which != 0)
      tev_dict_add(options.get(), key, kNumbers[which % std::size(kNumbers)]);
  const auto devices = input.text("");
  if (!devices.empty()) tev_dict_add(options.get(), "multipath-devices", devices.c_str());
  return options;
}

// For each device of the SDK's list, whether there is a null in its place.
std::vector<bool> unlisted;

simulator::Device deviceFrom(Input& input) {
  simulator::Device device{.ibdev_name = input.text("rdma"), .unterminated_name = true, .slots{}};
  unlisted.push_back(input.byte(0) == 0xff);
  device.multipath_support = input.status();
  device.slots.resize(input.byte(1) % 4);
  for (auto& slot : device.slots)
    slot = {.id_status = input.status(),
            .enable_status = input.status(),
            .algo_enabled = input.byte(1) != 0,
            .counters_enabled = input.byte(1) != 0,
            .info = "algorithm",
            .unterminated = true};
  device.max_algo_slots = input.number(device.slots.size());
  device.max_algo_info_len = input.number(32);
  device.max_counter_info_len = input.number(64);
  std::vector<simulator::Counter> counters(input.byte(3) % 40);
  for (std::size_t i = 0; i < counters.size(); ++i)
    counters[i].text =
        input.text("c" + std::to_string(i / 2) + ", text, plane " + std::to_string(i % 2));
  const auto declared = input.number(counters.size());
  device.max_num_counters = input.number(counters.size());
  const auto filled = input.number(counters.size());
  // All counters that may be filled in, limited to save time.
  const std::size_t most = std::min(std::max(declared, device.max_num_counters), 2'000u);
  counters.resize(std::max(counters.size(), most));
  const std::vector<simulator::KeyedLaw> laws(counters.size(),
                                              {simulator::Constant{0x5a5a5a5a}, 0});
  for (auto& slot : device.slots) {
    slot.counters = counters;
    slot.declared_counters = declared;
    slot.filled_counters = filled;
    slot.make_source = [laws] { return simulator::makeLawSource(laws); };
  }
  return device;
}

simulator::Fault faultFrom(Input& input) {
  simulator::Fault fault;
  fault.function = static_cast<Function>(input.byte(0) % simulator::kFunctionCount);
  fault.call = 1u + input.byte(0) % 16;
  fault.status = input.status();
  // A start must not report success without being done.
  if (input.byte(0) % 2 != 0 || releases(fault.function) ||
      (fault.function == Function::vuna_telemetry_mp_start && fault.status == 0))
    fault.deliver = simulator::Fault::Deliver::result;
  return fault;
}

vuna_status createList(vuna_devinfo*** list, std::uint32_t* count) {
  const auto status = vuna_devinfo_create_list(list, count);
  for (std::uint32_t i = 0; i < *count; ++i)
    if (unlisted[i]) (*list)[i] = nullptr;
  return status;
}

// Fetches all available events. False when an event has no bytes, because it then never fits.
bool fetch(tev::test::LocalProvider& provider, std::uint64_t& device_events) {
  for (;;) {
    bool any = false;
    const int result =
        provider.progress(tev::test::LocalProvider::kRoom, [&](const auto*, const auto& type) {
          any = true;
          device_events += std::string(type.name).starts_with("multipath_event_device");
        });
    check(result != TEV_PROGRESS_FAILED, "progress does not fail");
    if (result == TEV_PROGRESS_DONE) return true;
    if (!any) return false;
  }
}

void live(tev::test::LocalProvider& provider, const tev_custom_options* options,
          SimulatedSdk& sdk) {
  try {
    provider.construct(options);
  } catch (const std::exception&) {
    return;  // construct_event_provider() returns null: an option is not a number
  }
  if (provider.initialize()) {
    std::uint64_t largest_event = 0;
    for (const auto& device : provider.collector().devices())
      for (const auto* const layout : {&device.sampled.device_layout, &device.sampled.plane_layout})
        largest_event = std::max(largest_event, layout->size());
    check(tev_type_system_get_max_event_type_size(&provider.types()) <= largest_event,
          "no type is larger than what is sampled");
  }
  std::uint64_t delivered = 0;
  bool complete = fetch(provider, delivered);
  provider.stop();
  complete = complete && fetch(provider, delivered) && fetch(provider, delivered);
  const auto counts = provider.counts();
  check(
      counts.taken + counts.failed == counts.lost + sdk.reported("vuna_telemetry_mp_get_counters") +
                                          sdk.reported("vuna_telemetry_mp_get_and_clear_counters"),
      "each sample was read, or lost");
  check(!complete || counts.taken == counts.lost + delivered, "and was delivered, or lost");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const tev::test::CapturedLog formatted;
  // Large buffers come directly from the kernel, which is fast when they are not used.
  [[maybe_unused]] static const int set = mallopt(M_MMAP_THRESHOLD, 1 << 20);
  Input input(data, size);
  SimulatedSdk sdk;
  sdk.functions.vuna_devinfo_create_list = createList;
  tev::test::FakeClock clock;
  clock.passes = 4;
  const auto options = optionsFrom(input);
  unlisted.clear();
  sdk.scenario.devices.resize(input.byte(2) % 5);
  for (auto& device : sdk.scenario.devices) device = deviceFrom(input);
  while (!input.ended()) sdk.scenario.faults.add(faultFrom(input));
  {
    tev::test::LocalProvider provider(
        {.sdk = &sdk.functions, .clock = &clock, .roots = {"/nonexistent", "/nonexistent"}});
    live(provider, options.get(), sdk);
  }
  check(sdk.balanced(), "everything is released, once and in order");
  return 0;
}
