// The host's side of a provider: its type system, and code that reads the delivered events.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/owned.h"
#include "tev/event_provider.h"

namespace tev::test {

struct Event {
  std::uint64_t timestamp = 0;
  std::string type;
  std::string device;
  std::string bytes;  // all of the event
};

class Host {
 public:
  static constexpr std::size_t kRoom = 1 << 16;

  explicit Host(tev_event_provider_t* provider)
      : provider_(provider), types_(tev_create_type_system()), buffer_(kRoom) {}
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  tev_event_provider_t* operator->() const { return provider_; }
  tev_event_provider_t* get() const { return provider_; }
  tev_type_system_t& types() const { return *types_; }
  const tev_schema_t& schema() const { return *types_->schemas[0]; }

  bool initialize() { return provider_->initialize(provider_, types_.get()); }

  // One call, with room for so many bytes, and its result. `take` gets every block and the type of
  // the event in it.
  template <class Take>
  int progress(std::uint64_t room, const Take& take) {
    tev_data_serializer_t serializer{types_.get(), buffer_.data(), room, 0};
    const int result = provider_->progress(provider_, 0, &serializer);
    std::uint64_t at = 0;
    while (at < serializer.used) {
      const std::uint8_t* const block = &buffer_[at];
      expect(std::memcmp(block, "TEVE", 4) == 0 && block[12] == 0 && block[15] == 1);
      expect(block[13] < schema().num_types);
      const auto& type = *schema().types[block[13]];
      take(block, type);
      at += 16 + type.size;
    }
    expect(at == serializer.used);
    return result;
  }

  // Fetches all available events.
  template <class Take>
  void drain(std::uint64_t room, const Take& take) {
    int result = TEV_PROGRESS_FULL;
    while (result == TEV_PROGRESS_FULL) result = progress(room, take);
    expect(result == TEV_PROGRESS_DONE);
  }
  std::vector<Event> drain(std::uint64_t room = kRoom) {
    std::vector<Event> events;
    drain(room, [&](const auto* block, const auto& type) { events.push_back(event(block, type)); });
    return events;
  }

  // Drains until this number of events has been received.
  std::vector<Event> await(std::size_t count) {
    std::vector<Event> events;
    while (events.size() < count)
      for (auto& event : drain()) events.push_back(std::move(event));
    return events;
  }

  static Event event(const std::uint8_t* block, const tev_type_definition_t& type) {
    Event event;
    event.type = type.name;
    std::memcpy(&event.timestamp, block + 4, sizeof event.timestamp);
    event.bytes.assign(reinterpret_cast<const char*>(block + 16), type.size);
    event.device = event.bytes.substr(0, type.fields[0]->array_length);
    event.device.resize(std::min(event.device.find('\0'), event.device.size()));
    return event;
  }

 private:
  static void expect(bool holds) {
    if (!holds) throw std::logic_error("not what a host expects of a provider");
  }

  tev_event_provider_t* provider_;
  Owned<tev_type_system_t, tev_destroy_type_system> types_;
  std::vector<std::uint8_t> buffer_;
};

}  // namespace tev::test
