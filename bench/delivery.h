// The delivering side, with and without the library.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "bench/compare.h"
#include "bench/instant_sdk.h"
#include "bench/sampler.h"
#include "provider/provider.h"

namespace tev::bench {

// Lets the provider's own thread make its first pass and no other: the rest are made by the
// benchmark.
class ParkedClock final : public events::multipath::Clock {
 public:
  std::uint64_t realtimeUsec() override { return bench::realtimeUsec(); }
  TimePoint now() override { return SteadyClock::now(); }
  void waitUntil(TimePoint, std::unique_lock<std::mutex>& lock, std::condition_variable& wake,
                 const std::function<bool()>& awake) override {
    parked = true;
    wake.wait(lock, awake);
  }
  std::atomic<bool> parked{false};
};

// An initialised provider whose passes are made by hand.
class HandDriven {
 public:
  HandDriven(const Shape& shape, const tev_custom_options* options)
      : types_(tev_create_type_system(), tev_destroy_type_system),
        provider_(options, {.sdk = &instantSdk(shape), .clock = &clock_}),
        values_(256) {
    record_.name = "bench";
    record_.version = 1;
    provider_.initialize(&record_, types_.get());
    while (!clock_.parked) std::this_thread::yield();
  }
  ~HandDriven() { provider_.stop(); }
  HandDriven(const HandDriven&) = delete;
  HandDriven& operator=(const HandDriven&) = delete;

  void pass() {
    const std::scoped_lock lock(free_lock_);
    provider_.collector().samplePass(values_.data());
  }

  // Swaps the buffers and delivers nothing yet.
  void takeBatch() {
    tev_data_serializer_t none{types_.get(), nullptr, 0, 0};
    provider_.progress(0, &none);
  }

  // Everything that is pending, `room` bytes at a time.
  void deliver(std::vector<std::uint8_t>& out, std::size_t room) {
    tev_data_serializer_t serializer{types_.get(), out.data(), room, 0};
    while (provider_.progress(0, &serializer) == TEV_PROGRESS_FULL) serializer.used = 0;
    benchmark::DoNotOptimize(out.data());
  }

  events::multipath::Collector& collector() { return provider_.collector(); }

 private:
  ParkedClock clock_;
  tev_event_provider_t record_{};
  std::unique_ptr<tev_type_system_t, decltype(&tev_destroy_type_system)> types_;
  events::multipath::Provider provider_;
  std::mutex free_lock_;
  std::vector<std::uint32_t> values_;
};

// A header as the serializer writes it, and the event behind it.
inline std::uint8_t* putBlock(std::uint8_t* out, std::uint64_t timestamp, std::uint8_t type,
                              const std::byte* event, std::size_t size) {
  constexpr std::uint64_t kMagic = 0x45564554;  // "TEVE"
  const std::uint64_t words[] = {kMagic | timestamp << 32, timestamp >> 32 |
                                                               std::uint64_t{type} << 40 |
                                                               std::uint64_t{1} << 56};
  std::memcpy(out, words, sizeof words);
  std::memcpy(out + 16, event, size);
  return out + 16 + size;
}

// Batches of device events, delivered by the library and by hand.
class Delivery {
 public:
  // `room`: events that the serializer holds; 0: a whole batch.
  Delivery(const Shape& shape, std::size_t room)
      : size_(sampleSize(shape).device_event),
        room_(room == 0 ? kPassesPerBatch : room),
        work_(shape, samplingOptions().get()),
        source_(size_ * kPassesPerBatch),
        timestamps_(kPassesPerBatch),
        out_((size_ + 16) * (kPassesPerBatch + 1)) {}

  std::size_t eventSize() const { return size_; }

  void refill() {
    work_.deliver(out_, out_.size());
    for (int i = 0; i < kPassesPerBatch; ++i) work_.pass();
    work_.takeBatch();
  }
  void refillBare() { std::memset(source_.data(), 1, source_.size()); }

  void deliver() { work_.deliver(out_, room_ * (size_ + 16)); }

  void deliverBare() {
    const std::size_t size = size_;
    const std::size_t room = room_;
    const std::uint64_t* const timestamps = timestamps_.data();
    const std::byte* event = source_.data();
    std::uint8_t* out = out_.data();
    std::size_t in_buffer = 0;
    for (std::size_t i = 0; i < kPassesPerBatch; ++i, event += size) {
      if (in_buffer++ == room) {
        out = out_.data();
        in_buffer = 1;
      }
      out = putBlock(out, timestamps[i], 0, event, size);
    }
    benchmark::DoNotOptimize(out_.data());
    benchmark::ClobberMemory();
  }

 private:
  std::size_t size_;
  std::size_t room_;
  HandDriven work_;
  std::vector<std::byte> source_;
  std::vector<std::uint64_t> timestamps_;
  std::vector<std::uint8_t> out_;
};

// A swap that finds so many events in the half that comes back from the host, and the bare clearing
// of as many bytes.
class SwapWork {
 public:
  SwapWork(const Shape& shape, std::size_t capacity, std::size_t used)
      : size_(sampleSize(shape).sample),
        used_(used),
        budget_(std::to_string(capacity * size_)),
        options_(samplingOptions()),
        bytes_(capacity * size_),
        values_(256) {
    tev_dict_add(options_.get(), "multipath-max-buffer-size", budget_.c_str());
    collector_ = std::make_unique<events::multipath::Collector>(
        options_.get(), events::multipath::Surroundings{.sdk = &instantSdk(shape)});
    collector_->initialize();
  }

  void fill() {
    swap();
    for (std::size_t i = 0; i < used_; ++i) collector_->samplePass(values_.data());
    swap();
  }
  void fillBare() { std::memset(bytes_.data(), 1, used_ * size_); }

  void swap() {
    device_.clear();
    plane_.clear();
    collector_->getData(device_, plane_);
  }

  void clearBare() {
    std::memset(bytes_.data(), 0, used_ * size_);
    benchmark::ClobberMemory();
  }

 private:
  std::size_t size_;
  std::size_t used_;
  std::string budget_;
  Dict options_;
  std::vector<std::byte> bytes_;
  std::vector<std::uint32_t> values_;
  std::unique_ptr<events::multipath::Collector> collector_;
  std::vector<events::multipath::EventBuffer*> device_;
  std::vector<events::multipath::EventBuffer*> plane_;
};

}  // namespace tev::bench
