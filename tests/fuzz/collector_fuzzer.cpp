// Input: the options, the devices of the SDK, and the calls that fail. Beyond the end of the input,
// devices are normal, so that short inputs also reach sampling.
#include <malloc.h>

#include <algorithm>
#include <iterator>
#include <set>

#include "tests/fuzz/fuzz.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_sdk.h"
#include "tests/support/local_provider.h"
#include "tests/support/options.h"

namespace {

using tev::test::check;

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

tev::test::FakeDevice deviceFrom(Input& input) {
  tev::test::FakeDevice device;
  device.name = input.text("rdma");
  device.listed = input.byte(0) != 0xff;
  device.supported = input.status();
  device.slots.resize(input.byte(1) % 4);
  for (auto& slot : device.slots)
    slot = {.id_status = input.status(),
            .enable_status = input.status(),
            .algo_enabled = input.byte(1),
            .counters_enabled = input.byte(1)};
  device.max_slots = input.number(device.slots.size());
  device.algo_info_length = input.number(32);
  device.counter_info_length = input.number(64);
  device.lines.resize(input.byte(3) % 40);
  for (std::size_t i = 0; i < device.lines.size(); ++i)
    device.lines[i] =
        input.text("c" + std::to_string(i / 2) + ", text, plane " + std::to_string(i % 2));
  device.num_counters = input.number(device.lines.size());
  device.max_counters = input.number(device.lines.size());
  device.filled = input.number(device.lines.size());
  // All values that may be filled in, limited to save time.
  device.values.assign(std::min(std::max(*device.num_counters, *device.max_counters), 100'000u),
                       0x5a5a5a5a);
  return device;
}

tev::test::Fault faultFrom(Input& input) {
  static const std::string kFunctions[] = {
#define TEV_NAME(name, result, parameters) #name,
      VUNA_FUNCTIONS(TEV_NAME)
#undef TEV_NAME
  };
  static const std::set<std::string> kReleases = {"vuna_devinfo_destroy_list", "vuna_dev_close",
                                                  "vuna_telemetry_mp_stop",
                                                  "vuna_telemetry_mp_destroy"};
  tev::test::Fault fault{.function = kFunctions[input.byte(0) % std::size(kFunctions)],
                         .call = 1u + input.byte(0) % 16,
                         .status = input.status(),
                         .delivers = input.byte(0) % 2 != 0};
  if (kReleases.contains(fault.function)) fault.delivers = true;
  // A start must not report success without being done.
  if (fault.function == "vuna_telemetry_mp_start" && fault.status == 0) fault.delivers = true;
  return fault;
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
          std::map<std::string, unsigned>& calls) {
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
  check(counts.taken + counts.failed == counts.lost + calls["vuna_telemetry_mp_get_counters"] +
                                            calls["vuna_telemetry_mp_get_and_clear_counters"],
        "each sample was read, or lost");
  check(!complete || counts.taken == counts.lost + delivered, "and was delivered, or lost");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tev::test::formatMessages();
  // Large buffers come directly from the kernel, which is fast when they are not used.
  [[maybe_unused]] static const int set = mallopt(M_MMAP_THRESHOLD, 1 << 20);
  Input input(data, size);
  tev::test::FakeSdk sdk;
  tev::test::FakeClock clock;
  clock.passes = 4;
  const auto options = optionsFrom(input);
  sdk.devices.resize(input.byte(2) % 5);
  for (auto& device : sdk.devices) device = deviceFrom(input);
  while (!input.ended()) sdk.faults.push_back(faultFrom(input));
  {
    tev::test::LocalProvider provider(
        {.sdk = &sdk.functions(), .clock = &clock, .roots = {"/nonexistent", "/nonexistent"}});
    live(provider, options.get(), sdk.calls);
  }
  check(sdk.balanced(), "everything is released, once and in order");
  return 0;
}
