// The sampling pass, with and without the library.
#pragma once

#include <benchmark/benchmark.h>
#include <time.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "bench/instant_sdk.h"
#include "collector/collector.h"
#include "provider/provider.h"

namespace tev::bench {

// The samples of one second at an interval of 1 ms. With the default update, this is one batch.
inline constexpr int kPassesPerBatch = 1000;

struct DeleteDict {
  void operator()(tev_custom_options* dict) const { tev_dict_delete(dict); }
};
using Dict = std::unique_ptr<tev_custom_options, DeleteDict>;

// With these options, a buffer holds the passes of one batch and some more.
inline Dict samplingOptions() {
  Dict dict(tev_dict_create());
  tev_dict_add(dict.get(), "multipath-sample-interval-usec", "1000");
  return dict;
}

inline std::uint64_t realtimeUsec() {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec) / 1'000;
}

// The collector without its thread. The benchmark makes each pass.
class Sampler {
 public:
  explicit Sampler(const Shape& shape)
      : collector_(samplingOptions().get(), {.sdk = &instantSdk(shape)}) {
    collector_.initialize();
  }

  void pass() { collector_.samplePass(); }

  // Swaps the buffers twice, so that both halves are empty afterwards.
  void empty() {
    for (int half = 0; half < 2; ++half) {
      device_.clear();
      plane_.clear();
      collector_.getData(device_, plane_);
    }
  }

  events::multipath::Collector& collector() { return collector_; }

 private:
  events::multipath::Collector collector_;
  std::vector<events::multipath::EventBuffer*> device_;
  std::vector<events::multipath::EventBuffer*> plane_;
};

// The baseline of a pass: a bare loop without checks, for one shape.
class BareSampler {
 public:
  explicit BareSampler(const Shape& shape)
      : shape_(shape), size_(sampleSize(shape)), values_(256), devices_(shape.devices) {
    const auto texts = descriptions(shape);
    gather_.resize(shape.planes + 1);
    for (std::uint32_t i = 0; i < texts.size(); ++i) {
      const auto plane = texts[i].rfind("plane ");
      const bool of_plane = plane != std::string::npos;
      gather_[of_plane ? 1 + std::stoul(texts[i].substr(plane + 6)) : 0].push_back(i);
    }
    for (auto& device : devices_) {
      device.bytes.resize(size_.sample * (kPassesPerBatch + 1));
      device.timestamps.resize((shape.planes + 1) * (kPassesPerBatch + 1));
    }
  }

  // Uses local variables only, because the compiler must assume that every byte written may
  // change a member.
  void pass() {
    const std::scoped_lock lock(free_lock_);
    const std::uint32_t* const values = values_.data();
    const std::uint32_t planes = shape_.planes;
    for (auto& device : devices_) {
      const auto now = realtimeUsec();
      std::byte* to = device.next;
      std::uint64_t* timestamp = device.timestamps.data() + device.events;
      const auto* event_indexes = gather_.data();
      for (std::uint32_t event = 0; event <= planes; ++event) {
        *timestamp++ = now;
        std::memcpy(to, kName, kNameLength);
        to += kNameLength;
        if (event > 0) *to++ = static_cast<std::byte>(event - 1);
        const std::span indexes(*event_indexes++);
        for (const auto index : indexes) {
          std::memcpy(to, values + index, 4);
          to += 4;
        }
      }
      device.next = to;
      device.events += planes + 1;
    }
    benchmark::ClobberMemory();
  }

  // Clears the written bytes, as the collector does. The memory is then in the cache, as the
  // collector's is.
  void empty() {
    for (auto& device : devices_) {
      if (device.next)
        std::memset(device.bytes.data(), 0,
                    static_cast<std::size_t>(device.next - device.bytes.data()));
      device.next = device.bytes.data();
      device.events = 0;
    }
  }

  struct Device {
    std::vector<std::byte> bytes;
    std::vector<std::uint64_t> timestamps;
    std::byte* next = nullptr;
    std::size_t events = 0;
  };
  const std::vector<Device>& devices() const { return devices_; }

 private:
  static constexpr char kName[] = "d000";
  Shape shape_;
  SampleSize size_;
  std::mutex free_lock_;
  std::vector<std::uint32_t> values_;
  std::vector<std::vector<std::uint32_t>> gather_;
  std::vector<Device> devices_;
};

}  // namespace tev::bench
