#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "collector/event_buffer.h"

namespace tev::events::multipath {

// The event storage of one device: the sampling thread fills one half while the host reads the
// other.
class DoubleBuffer {
 public:
  // The device events and the plane events of the same samples.
  struct Half {
    std::shared_ptr<EventBuffer> device;
    std::shared_ptr<EventBuffer> plane;

    std::uint64_t usedBytes() const { return device->write_offset + plane->write_offset; }
    std::uint64_t capacityBytes() const { return device->capacity_bytes + plane->capacity_bytes; }
  };

  // Allocate both halves, each for this number of events of this size. Throw what EventBuffer
  // throws.
  void makeDeviceBuffers(std::uint64_t event_size, std::uint64_t max_events) {
    for (auto& half : halves_) half.device = std::make_shared<EventBuffer>(event_size, max_events);
  }
  void makePlaneBuffers(std::uint64_t event_size, std::uint64_t max_events) {
    for (auto& half : halves_) half.plane = std::make_shared<EventBuffer>(event_size, max_events);
  }

  const Half& filling() const { return halves_[first_is_filling_ ? 0 : 1]; }
  const Half& handedOut() const { return halves_[first_is_filling_ ? 1 : 0]; }

  // Returns the half that has been filled, for the host to read. The other half is emptied and
  // filled from now on.
  const Half& swap() noexcept {
    const Half& filled = filling();
    filled.device->rewind();
    filled.plane->rewind();
    handedOut().device->clear();
    handedOut().plane->clear();
    first_is_filling_ = !first_is_filling_;
    return filled;
  }

  // Of both halves. May be called from any thread.
  std::uint64_t capacityBytes() const {
    return halves_[0].capacityBytes() + halves_[1].capacityBytes();
  }
  // What both halves allocate. May be called from any thread.
  std::uint64_t memoryBytes() const {
    const auto of = [](const Half& half) {
      return half.device->memoryBytes() + half.plane->memoryBytes();
    };
    return of(halves_[0]) + of(halves_[1]);
  }
  // The number of samples that one half holds. May be called from any thread.
  std::uint64_t maxSamples() const { return halves_[0].device->max_events; }

 private:
  std::array<Half, 2> halves_;
  bool first_is_filling_ = true;
};

}  // namespace tev::events::multipath
