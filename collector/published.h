#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace tev::events::multipath {

// A record that one thread publishes and any thread reads consistently, without a lock. A reader
// retries while a record is being published, so records should change rarely.
template <class Record>
class Published {
 public:
  Published() = default;
  // Copies are made only while no other thread uses the original.
  Published(const Published& other) { publish(other.read()); }
  Published& operator=(const Published& other) {
    if (this != &other) publish(other.read());
    return *this;
  }

  void publish(const Record& record) {
    Words words{};
    std::memcpy(words.data(), &record, sizeof record);
    ++version_;  // odd: the words are changing
    for (std::size_t i = 0; i < kWords; ++i) words_[i] = words[i];
    ++version_;
  }

  Record read() const {
    Words words{};
    std::uint32_t before = 0;
    do {
      before = version_;
      for (std::size_t i = 0; i < kWords; ++i) words[i] = words_[i];
    } while (before % 2 != 0 || before != version_);
    Record record{};
    std::memcpy(static_cast<void*>(&record), words.data(), sizeof record);
    return record;
  }

 private:
  static_assert(std::is_trivially_copyable_v<Record>);
  static constexpr std::size_t kWords =
      (sizeof(Record) + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t);
  using Words = std::array<std::uint64_t, kWords>;

  std::atomic<std::uint32_t> version_{0};
  std::array<std::atomic<std::uint64_t>, kWords> words_{};
};

}  // namespace tev::events::multipath
