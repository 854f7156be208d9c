// Input: the answers of the device SDK, in the order in which it is asked, the options first. An
// input that has ended answers as a plain device would, so that short ones get far.
#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "provider/provider.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/options.h"

namespace {

using tev::events::multipath::Provider;
using tev::events::multipath::SdkFunctions;
using tev::events::multipath::Surroundings;
using tev::test::check;

class Answers {
 public:
  Answers(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool ended() const { return at_ == size_; }
  std::uint8_t byte(std::uint8_t otherwise) { return ended() ? otherwise : data_[at_++]; }

  // Mostly as it should be.
  vuna_status status() {
    const auto answer = byte(0);
    return answer < 0xe0 ? 0 : answer == 0xff ? 0xffffffff : answer - 0xe0 + 1u;
  }

  // Small numbers as they are; of large ones, those around which something changes.
  std::uint32_t number(std::uint8_t otherwise) {
    static constexpr std::uint32_t kEdges[] = {
        0, 63, 64, 127, 128, 255, 256, 257, 1'000, 65'535, 65'536, 0x7fffffff, 0xffffffff};
    const auto answer = byte(otherwise);
    return answer < 0xf0 ? answer : kEdges[std::min<std::size_t>(answer - 0xf0, 12)];
  }

  // Up to the end of a line, and no more than `room` bytes; one that fills it all has no NUL.
  void text(char* out, std::size_t room, const char* otherwise) {
    if (ended()) {
      std::memcpy(out, otherwise, std::min(room, std::strlen(otherwise) + 1));
      return;
    }
    std::size_t length = 0;
    while (length < room && !ended()) {
      const auto character = data_[at_++];
      if (character == '\n') break;
      out[length++] = static_cast<char>(character);
    }
    if (length < room) out[length] = '\0';
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

// A device, and all handles to it at once: what is asked tells which is meant.
struct Device {
  enum State { kClosed, kOpen, kCreated, kStarted };
  State state = kClosed;
  std::uint32_t info_length = 0;
  std::uint32_t counter_length = 0;
  std::uint32_t max_counters = 0;
  std::uint32_t num_counters = 0;

  void step(State from, State to) {
    check(state == from, "opened, created, started and back, each once and in order");
    state = to;
  }
};

struct World {
  Answers answers;
  std::vector<Device> devices;
  std::vector<vuna_devinfo*> list;
  bool listed = false;
  std::uint64_t samples = 0;  // reads that brought something
};
World* world = nullptr;

template <class Handle>
Device& at(const Handle* handle) {
  check(handle != nullptr, "only handles that were given");
  return *const_cast<Device*>(reinterpret_cast<const Device*>(handle));
}

// The output first, the status after it: a failure may have delivered all the same.
template <class Value>
vuna_status give(Value* out, std::uint8_t otherwise) {
  *out = static_cast<Value>(world->answers.number(otherwise));
  return world->answers.status();
}

struct Sdk {
  static const char* vuna_error_get_name(vuna_status status) {
    return status == 0xffffffff ? nullptr : "%s%n failed";
  }
  static vuna_status vuna_log_backend_create_with_file_sdk(std::FILE*, vuna_log_backend**) {
    return 1;  // once per process: the same for every input
  }
  static vuna_status vuna_log_backend_set_sdk_level(vuna_log_backend*, std::uint32_t) { return 0; }
  static vuna_status vuna_devinfo_get_ibdev_name(const vuna_devinfo* info, char* name,
                                                 std::uint32_t length) {
    check(at(info).state == Device::kOpen, "an open device is asked for its name");
    world->answers.text(name, length, "rdma");
    return world->answers.status();
  }
  static vuna_status vuna_devinfo_create_list(vuna_devinfo*** list, std::uint32_t* count) {
    const std::size_t devices = world->answers.byte(2) % 5;
    world->devices.resize(devices);
    for (auto& device : world->devices)
      world->list.push_back(
          world->answers.byte(0) == 0xff ? nullptr : reinterpret_cast<vuna_devinfo*>(&device));
    const auto shape = world->answers.byte(0);
    const auto status = world->answers.status();
    *list = shape == 0xff ? nullptr : world->list.data();
    *count = static_cast<std::uint32_t>(devices);
    world->listed = status == 0 && *list;
    return status;
  }
  static vuna_status vuna_devinfo_destroy_list(vuna_devinfo** list) {
    check(world->listed && list == world->list.data(), "the list is given back once");
    for (const auto& device : world->devices)
      check(device.state == Device::kClosed, "all devices are closed before");
    world->listed = false;
    return world->answers.status();
  }
  static vuna_status vuna_dev_open(vuna_devinfo* info, vuna_dev** dev) {
    auto& device = at(info);
    const auto status = world->answers.status();
    if (world->answers.byte(0) == 0xff) return status;  // no handle, whatever the status
    device.step(Device::kClosed, Device::kOpen);
    *dev = reinterpret_cast<vuna_dev*>(&device);
    return status;
  }
  static vuna_status vuna_dev_close(vuna_dev* dev) {
    at(dev).step(Device::kOpen, Device::kClosed);
    return world->answers.status();
  }
  static vuna_devinfo* vuna_dev_as_devinfo(vuna_dev* dev) {
    return world->answers.byte(0) == 0xff ? nullptr : reinterpret_cast<vuna_devinfo*>(&at(dev));
  }
  static vuna_status vuna_telemetry_mp_cap_is_supported(const vuna_devinfo*) {
    return world->answers.status();
  }
  static vuna_status vuna_telemetry_mp_create(vuna_dev* dev, vuna_telemetry_mp** mp) {
    const auto status = world->answers.status();
    if (status != 0 || world->answers.byte(0) == 0xff) return status;
    at(dev).step(Device::kOpen, Device::kCreated);
    *mp = reinterpret_cast<vuna_telemetry_mp*>(&at(dev));
    return 0;
  }
  static vuna_status vuna_telemetry_mp_destroy(vuna_telemetry_mp* mp) {
    at(mp).step(Device::kCreated, Device::kOpen);
    return world->answers.status();
  }
  static vuna_status vuna_telemetry_mp_start(vuna_telemetry_mp* mp) {
    const auto status = world->answers.status();
    if (status == 0) at(mp).step(Device::kCreated, Device::kStarted);
    return status;
  }
  static vuna_status vuna_telemetry_mp_stop(vuna_telemetry_mp* mp) {
    at(mp).step(Device::kStarted, Device::kCreated);
    return world->answers.status();
  }
  static vuna_status vuna_telemetry_mp_cap_get_max_algo_slots(const vuna_devinfo*,
                                                              std::uint32_t* out) {
    return give(out, 1);
  }
  static vuna_status vuna_telemetry_mp_get_algo_id(vuna_telemetry_mp*, std::uint32_t slot,
                                                   std::uint32_t* out) {
    check(slot < 256, "slots are 8-bit numbers");
    return give(out, 7);
  }
  static vuna_status vuna_telemetry_mp_get_algo_major_version(vuna_telemetry_mp*, std::uint32_t,
                                                              std::uint32_t* out) {
    return give(out, 1);
  }
  static vuna_status vuna_telemetry_mp_get_algo_minor_version(vuna_telemetry_mp*, std::uint32_t,
                                                              std::uint32_t* out) {
    return give(out, 2);
  }
  static vuna_status vuna_telemetry_mp_get_algo_enable_status(vuna_telemetry_mp*, std::uint32_t,
                                                              std::uint8_t* algo,
                                                              std::uint8_t* counters) {
    *algo = world->answers.byte(1);
    return give(counters, 1);
  }
  static vuna_status vuna_telemetry_mp_cap_get_max_algo_info_len(const vuna_devinfo* info,
                                                                 std::uint32_t* out) {
    const auto status = give(out, 32);
    at(info).info_length = *out;
    return status;
  }
  static vuna_status vuna_telemetry_mp_get_algo_info(vuna_telemetry_mp* mp, std::uint32_t,
                                                     char* out) {
    world->answers.text(out, at(mp).info_length, "algorithm");
    return world->answers.status();
  }
  static vuna_status vuna_telemetry_mp_get_num_counters(vuna_telemetry_mp* mp, std::uint32_t,
                                                        std::uint32_t* out) {
    const auto status = give(out, 3);
    at(mp).num_counters = *out;
    return status;
  }
  static vuna_status vuna_telemetry_mp_cap_get_max_counter_info_len(const vuna_devinfo* info,
                                                                    std::uint32_t* out) {
    const auto status = give(out, 64);
    at(info).counter_length = *out;
    return status;
  }
  static vuna_status vuna_telemetry_mp_get_counter_info(vuna_telemetry_mp* mp, std::uint32_t,
                                                        std::uint8_t counter, char* out) {
    const std::string plain =
        "c" + std::to_string(counter / 2) + ", text, plane " + std::to_string(counter % 2);
    world->answers.text(out, at(mp).counter_length, plain.c_str());
    return world->answers.status();
  }
  static vuna_status vuna_telemetry_mp_cap_get_max_num_counters(const vuna_devinfo* info,
                                                                std::uint32_t* out) {
    const auto status = give(out, 3);
    at(info).max_counters = status == 0 ? *out : 0;
    return status;
  }
  // Fills all that there is promised to be room for, up to a limit of time.
  static vuna_status vuna_telemetry_mp_get_counters(vuna_telemetry_mp* mp, std::uint32_t,
                                                    std::uint32_t* count, std::uint32_t* values) {
    const auto& device = at(mp);
    check(device.state == Device::kStarted, "only a started device is read");
    const auto room = std::max(device.max_counters, device.num_counters);
    std::fill_n(values, std::min(room, 100'000u), 0x5a5a5a5a);
    const auto status = give(count, 3);
    if (status == 0 && *count != 0) ++world->samples;
    return status;
  }
  static vuna_status vuna_telemetry_mp_get_and_clear_counters(vuna_telemetry_mp* mp,
                                                              std::uint32_t slot,
                                                              std::uint32_t* count,
                                                              std::uint32_t* values) {
    return vuna_telemetry_mp_get_counters(mp, slot, count, values);
  }

  static SdkFunctions functions() {
    SdkFunctions table;
#define TEV_ANSWER(name, result, parameters) table.name = name;
    VUNA_FUNCTIONS(TEV_ANSWER)
#undef TEV_ANSWER
    return table;
  }
};

tev::test::Options optionsFrom(Answers& answers) {
  static constexpr const char* kNumbers[] = {
      "1000", "0", "1", "2147483648", "9223372036854775808", "18446744073709551615", "-1", "x%n"};
  auto options = tev::test::options({});
  const auto choose = [&](const char* key) {
    if (const auto which = answers.byte(0); which != 0)
      tev_dict_add(options.get(), key, kNumbers[which % std::size(kNumbers)]);
  };
  choose("multipath-sample-interval-usec");
  choose("multipath-max-buffer-size");
  choose("update");
  choose("multipath-clear-sampled-counters");
  char devices[32];
  answers.text(devices, sizeof devices - 1, "");
  devices[sizeof devices - 1] = '\0';
  if (*devices) tev_dict_add(options.get(), "multipath-devices", devices);
  return options;
}

// Waits for nothing: any interval is over at once. Four passes, or with an interval of zero as many
// as the host leaves time for.
class FuzzClock final : public tev::events::multipath::Clock {
 public:
  // A minute from one look to the next: no warning is held back.
  std::uint64_t realtimeUsec() override { return realtime_usec_ += 60'000'000; }
  TimePoint now() override { return now_; }
  void waitUntil(TimePoint due, std::unique_lock<std::mutex>& lock, std::condition_variable& wake,
                 const std::function<bool()>& awake) override {
    if (++passes_ < 4)
      now_ = due == kNever ? now_ : due;
    else
      wake.wait(lock, awake);
  }

 private:
  std::uint64_t realtime_usec_ = 0;
  TimePoint now_{};
  int passes_ = 0;
};

class Delivery {
 public:
  Delivery(tev_event_provider_t& record, tev_type_system_t& types)
      : record_(record), types_(types), buffer_(1 << 16) {}

  // All that there is now. False when an event has no bytes, and so never finds room.
  bool fetch() {
    for (;;) {
      tev_data_serializer_t serializer{&types_, buffer_.data(), buffer_.size(), 0};
      const int result = multipath_event_provider_progress(&record_, 0, &serializer);
      check(result != TEV_PROGRESS_FAILED, "progress does not fail");
      read(serializer);
      if (result == TEV_PROGRESS_DONE) return true;
      if (serializer.used == 0) return false;
    }
  }
  std::uint64_t deviceEvents() const { return device_events_; }

 private:
  void read(const tev_data_serializer_t& serializer) {
    std::uint64_t position = 0;
    while (position < serializer.used) {
      const auto* const block = serializer.buffer + position;
      check(std::memcmp(block, "TEVE", 4) == 0 && block[12] == 0, "blocks follow each other");
      const auto& schema = *types_.schemas[0];
      check(block[13] < schema.num_types, "a type of the schema");
      const tev_type_definition_t& type = *schema.types[block[13]];
      device_events_ += std::string(type.name).starts_with("multipath_event_device");
      position += 16 + type.size;
    }
    check(position == serializer.used, "the last block is whole");
  }

  tev_event_provider_t& record_;
  tev_type_system_t& types_;
  std::vector<std::uint8_t> buffer_;
  std::uint64_t device_events_ = 0;
};

void live(Provider& provider, tev_type_system_t& types) {
  tev_event_provider_t record{};
  record.name = "multipath_events";
  record.context = &provider;
  const bool initialized = multipath_event_provider_initialize(&record, &types);
  Delivery delivery(record, types);
  if (initialized) {
    std::uint64_t largest_event = 0;
    for (const auto& device : provider.collector().devices())
      for (const auto& buffer : {device.halves[0].device, device.halves[0].plane})
        largest_event = std::max(largest_event, buffer->event_size);
    check(tev_type_system_get_max_event_type_size(&types) <= largest_event,
          "no type is larger than what is sampled");
  }
  bool complete = delivery.fetch();
  multipath_event_provider_stop(&record);
  complete = complete && delivery.fetch() && delivery.fetch();
  tev_multipath_sample_counts_t counts{};
  multipath_event_provider_get_sample_counts(&record, TEV_ALL_DEVICES, nullptr, &counts);
  check(counts.taken == counts.lost + world->samples, "taken is what was read, and what was lost");
  check(!complete || counts.taken == counts.lost + delivery.deviceEvents(),
        "taken is what was delivered, and what was lost");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tev::test::formatMessages();
  // Large buffers straight from the kernel, where what is not used costs no time.
  [[maybe_unused]] static const int set = mallopt(M_MMAP_THRESHOLD, 1 << 20);
  World now{.answers = {data, size}, .devices = {}, .list = {}};
  world = &now;
  const auto options = optionsFrom(now.answers);
  static const SdkFunctions functions = Sdk::functions();
  FuzzClock clock;
  const std::unique_ptr<tev_type_system_t, decltype(&tev_destroy_type_system)> types(
      tev_create_type_system(), tev_destroy_type_system);
  try {
    Provider provider(options.get(), Surroundings{.sdk = &functions,
                                                  .clock = &clock,
                                                  .roots = {"/nonexistent", "/nonexistent"}});
    live(provider, *types);
  } catch (const std::exception&) {
    // construct_event_provider() says null: an option that is no number
  }
  check(!now.listed, "the list is given back");
  for (const auto& device : now.devices)
    check(device.state == Device::kClosed, "every device is given back");
  return 0;
}
