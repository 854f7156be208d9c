#include "collector/samplers.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace tev::events::multipath {
namespace {

// How long a swap waits for several samplers: an interval and 10 ms, from 20 ms to a second.
Clock::Duration patience(std::uint64_t interval_usec) {
  using std::chrono::milliseconds;
  constexpr Clock::TimePoint kStart{};
  const auto interval = after(kStart, interval_usec) - kStart;
  return std::clamp<Clock::Duration>(interval, milliseconds(10), milliseconds(990)) +
         milliseconds(10);
}

std::string threadName(std::size_t sampler, std::size_t samplers) {
  return samplers == 1 ? "tev-multipath" : "tev-sampler-" + std::to_string(sampler);
}

}  // namespace

Samplers::Samplers(const Api& api, Clock& clock, const Sampler::Settings& settings,
                   std::uint64_t threads)
    : api_(api), clock_(clock), settings_(settings), threads_(threads) {
  makeFor(0);
}

void Samplers::makeFor(std::size_t devices) {
  const std::size_t most = threads_ == 0 ? devices : std::min<std::uint64_t>(threads_, devices);
  const std::size_t wanted = std::max<std::size_t>(most, 1);
  if (samplers_.size() > wanted) samplers_.resize(wanted);
  while (samplers_.size() < wanted) {
    samplers_.push_back(std::make_unique<Sampler>(api_, clock_, settings_));
    if (!samplers_.back()->makeRoomFor(room_)) throw std::bad_alloc();
  }
}

bool Samplers::makeRoomFor(std::size_t values) {
  for (const auto& sampler : samplers_)
    if (!sampler->makeRoomFor(values)) return false;
  room_ = std::max(room_, values);
  return true;
}

void Samplers::setDevices(std::vector<SampledDevice*> devices) {
  devices_ = std::move(devices);
  makeFor(devices_.size());
  std::vector<std::vector<SampledDevice*>> shares(samplers_.size());
  for (std::size_t i = 0; i < devices_.size(); ++i)
    shares[i % shares.size()].push_back(devices_[i]);
  for (std::size_t i = 0; i < shares.size(); ++i) samplers_[i]->setDevices(std::move(shares[i]));
}

void Samplers::forgetDevices() noexcept {
  devices_.clear();
  samplers_.resize(1);
  samplers_.front()->setDevices({});
}

void Samplers::start() {
  if (isRunning()) return;
  // Only several samplers need a common grid.
  std::optional<Clock::TimePoint> origin;
  if (samplers_.size() > 1) origin = clock_.now();
  try {
    for (std::size_t i = 0; i < samplers_.size(); ++i)
      samplers_[i]->start(threadName(i, samplers_.size()), origin);
  } catch (...) {
    stop();
    throw;
  }
}

void Samplers::stop() {
  for (const auto& sampler : samplers_) sampler->requestStop();
  for (const auto& sampler : samplers_) sampler->stop();
}

bool Samplers::isRunning() const {
  return std::any_of(samplers_.begin(), samplers_.end(),
                     [](const auto& sampler) { return sampler->isRunning(); });
}

bool Samplers::hasFailed() const {
  return std::any_of(samplers_.begin(), samplers_.end(),
                     [](const auto& sampler) { return sampler->hasFailed(); });
}

void Samplers::samplePass() {
  for (const auto& sampler : samplers_) sampler->samplePass();
}

bool Samplers::swapOne(Sampler& sampler, Clock::TimePoint deadline) const {
  if (samplers_.size() > 1) return sampler.trySwap(deadline);
  sampler.swap();
  return true;
}

void Samplers::swap(std::vector<EventBuffer*>& device_buffers,
                    std::vector<EventBuffer*>& plane_buffers) {
  const std::size_t first_device = device_buffers.size();
  const std::size_t first_plane = plane_buffers.size();
  device_buffers.reserve(first_device + devices_.size());
  plane_buffers.reserve(first_plane + devices_.size());
  // The code after this line must not throw.
  device_buffers.resize(first_device + devices_.size(), &nothing_);
  plane_buffers.resize(first_plane + devices_.size(), &nothing_);

  const auto deadline = std::chrono::steady_clock::now() + patience(settings_.interval_usec);
  if (samplers_.size() > 1)
    for (const auto& sampler : samplers_) sampler->requestSwap();
  for (std::size_t sampler = 0; sampler < samplers_.size(); ++sampler) {
    if (!swapOne(*samplers_[sampler], deadline)) continue;
    for (std::size_t i = sampler; i < devices_.size(); i += samplers_.size()) {
      const auto& half = devices_[i]->buffers.handedOut();
      device_buffers[first_device + i] = half.device.get();
      plane_buffers[first_plane + i] = half.plane.get();
    }
  }
}

}  // namespace tev::events::multipath
