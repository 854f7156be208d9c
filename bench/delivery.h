// The delivery of events, with and without the library.
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
#include "src/serializer/block_writer.h"

namespace tev::bench {

// A clock that stops the provider's own thread after its first pass. The benchmark makes all other
// passes.
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

// An initialised provider whose passes are made by the benchmark.
class HandDriven {
 public:
  HandDriven(const Shape& shape, const tev_custom_options* options)
      : types_(tev_create_type_system(), tev_destroy_type_system),
        provider_(options, {.sdk = &instantSdk(shape), .clock = &clock_}) {
    record_.name = "bench";
    record_.version = 1;
    provider_.initialize(&record_, types_.get());
    while (!clock_.parked) std::this_thread::yield();
  }
  ~HandDriven() { provider_.stop(); }
  HandDriven(const HandDriven&) = delete;
  HandDriven& operator=(const HandDriven&) = delete;

  void pass() { provider_.collector().samplePass(); }

  // Swaps the buffers without delivering anything.
  void takeBatch() {
    tev_data_serializer_t none{types_.get(), nullptr, 0, 0};
    provider_.progress(0, &none);
  }

  // Delivers all pending events, `room` bytes at a time.
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
};

// Writes a header, followed by the event.
inline std::uint8_t* putBlock(std::uint8_t* out, std::uint64_t timestamp, std::uint8_t type,
                              const std::byte* event, std::size_t size) {
  common::writeBlockHeader(out, timestamp, common::blockHeaderTail(0, type), 1);
  std::memcpy(out + TEV_EVENT_BLOCK_HEADER_SIZE, event, size);
  return out + TEV_EVENT_BLOCK_HEADER_SIZE + size;
}

// Batches of device events, delivered by the library and by a bare loop.
class Delivery {
 public:
  // `room`: events that the serializer holds; 0: a whole batch.
  Delivery(const Shape& shape, std::size_t room)
      : size_(sampleSize(shape).device_event),
        room_(room == 0 ? kPassesPerBatch : room),
        work_(shape, samplingOptions().get()),
        source_(size_ * kPassesPerBatch),
        timestamps_(kPassesPerBatch),
        out_((size_ + TEV_EVENT_BLOCK_HEADER_SIZE) * (kPassesPerBatch + 1)) {}

  std::size_t eventSize() const { return size_; }

  void refill() {
    work_.deliver(out_, out_.size());
    for (int i = 0; i < kPassesPerBatch; ++i) work_.pass();
    work_.takeBatch();
  }
  void refillBare() { std::memset(source_.data(), 1, source_.size()); }

  void deliver() { work_.deliver(out_, room_ * (size_ + TEV_EVENT_BLOCK_HEADER_SIZE)); }

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

// A swap of the buffers, and as its baseline the clearing of the same number of bytes. The half
// that the host returns contains the given number of events.
class SwapWork {
 public:
  SwapWork(const Shape& shape, std::size_t capacity, std::size_t used)
      : size_(sampleSize(shape).sample),
        used_(used),
        budget_(std::to_string(capacity * size_)),
        options_(samplingOptions()),
        bytes_(capacity * size_) {
    tev_dict_add(options_.get(), "multipath-max-buffer-size", budget_.c_str());
    collector_ = std::make_unique<events::multipath::Collector>(
        options_.get(), events::multipath::Surroundings{.sdk = &instantSdk(shape)});
    collector_->initialize();
  }

  void fill() {
    swap();
    for (std::size_t i = 0; i < used_; ++i) collector_->samplePass();
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
  std::unique_ptr<events::multipath::Collector> collector_;
  std::vector<events::multipath::EventBuffer*> device_;
  std::vector<events::multipath::EventBuffer*> plane_;
};

}  // namespace tev::bench
