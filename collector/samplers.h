#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "collector/event_buffer.h"
#include "collector/sampled_device.h"
#include "collector/sampler.h"

namespace tev::events::multipath {

// The samplers of a collector, at least one. They share the devices evenly: the first device
// belongs to the first sampler, the second to the second, and so on in turn.
//
// The host's thread makes all calls, in the same order as those of a Sampler.
class Samplers {
 public:
  // `threads`: the most samplers that there may be; 0: one for each device. The functions and the
  // clock must outlive this.
  Samplers(const Api& api, Clock& clock, const Sampler::Settings& settings, std::uint64_t threads);

  // Makes as many samplers as that number of devices needs. Throws std::bad_alloc.
  void makeFor(std::size_t devices);

  // Enlarges the array of values of every sampler. False when memory is short.
  bool makeRoomFor(std::size_t values);

  // Sets the devices, in the order of the list, and makes as many samplers as they need.
  void setDevices(std::vector<SampledDevice*> devices);

  void forgetDevices() noexcept;

  // Starts all threads, or none: throws std::system_error when one cannot be created.
  void start();
  void stop();
  bool isRunning() const;
  // Whether one of the threads has ended by an exception. May be called from any thread while
  // the threads run.
  bool hasFailed() const;

  // The body of the first thread.
  void run() { samplers_.front()->run(); }

  // One pass over all devices, on the caller's thread.
  void samplePass();

  // Appends, for each device in order, the buffers that were filled since the last call. Waits for
  // at most one pass. With several samplers, one that does not answer in time is left out: its
  // devices have empty buffers, and their samples come with a later swap.
  void swap(std::vector<EventBuffer*>& device_buffers, std::vector<EventBuffer*>& plane_buffers);

  // Of the thread that samples the device of this index. Any thread.
  const PassLedger& passes(std::size_t device) const { return samplerOf(device).passes(); }

 private:
  Sampler& samplerOf(std::size_t device) const { return *samplers_[device % samplers_.size()]; }
  bool swapOne(Sampler& sampler, Clock::TimePoint deadline) const;

  const Api& api_;
  Clock& clock_;
  Sampler::Settings settings_;
  std::uint64_t threads_;
  std::size_t room_ = 0;  // values that each sampler has room for
  std::vector<std::unique_ptr<Sampler>> samplers_;
  std::vector<SampledDevice*> devices_;
  EventBuffer nothing_{0, 0};  // stands for the buffers of a device that is left out
};

}  // namespace tev::events::multipath
