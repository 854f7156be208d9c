#include "simulator/value_law.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "simulator/random.h"

namespace simulator {
namespace {

constexpr std::uint64_t kUsecPerSecond = 1'000'000;

// The state of one counter; `position` is the last value of a random walk.
struct MovingLaw {
  KeyedLaw keyed;
  std::uint32_t position = 0;
};

std::uint32_t valueAt(const Constant& constant, const Moment&, MovingLaw&) {
  return constant.value;
}

std::uint32_t valueAt(const Ramp& ramp, const Moment& moment, MovingLaw&) {
  // Products may wrap at 64 bits, which does not change the low 32 bits. The last product cannot
  // wrap.
  const std::uint64_t seconds = moment.elapsed_usec / kUsecPerSecond;
  const std::uint64_t rest = moment.elapsed_usec % kUsecPerSecond;
  return static_cast<std::uint32_t>(ramp.start + ramp.per_sample * moment.sample +
                                    ramp.per_second * seconds +
                                    ramp.per_second * rest / kUsecPerSecond);
}

std::uint32_t valueAt(const Sine& sine, const Moment& moment, MovingLaw&) {
  const double turns = static_cast<double>(moment.elapsed_usec) / sine.period_usec;
  const double angle = 2 * std::numbers::pi * (turns - std::floor(turns));
  const double value = sine.mean + sine.amplitude * std::sin(angle);
  return static_cast<std::uint32_t>(std::clamp(std::round(value), 0.0, double{UINT32_MAX}));
}

std::uint32_t valueAt(const RandomWalk& walk, const Moment& moment, MovingLaw& moving) {
  if (moment.sample == 0) return moving.position = walk.start;
  const std::uint64_t range = 2 * std::uint64_t{walk.step} + 1;
  const auto offset = static_cast<std::int64_t>(mix(moving.keyed.key + moment.sample) % range) -
                      std::int64_t{walk.step};
  return moving.position = static_cast<std::uint32_t>(
             std::clamp<std::int64_t>(std::int64_t{moving.position} + offset, walk.min, walk.max));
}

// A law without a valueAt() does not compile.
std::uint32_t advance(MovingLaw& moving, const Moment& moment) {
  return std::visit([&](const auto& law) { return valueAt(law, moment, moving); },
                    moving.keyed.law);
}

class LawSource : public CounterSource {
 public:
  explicit LawSource(const std::vector<KeyedLaw>& laws) {
    laws_.reserve(laws.size());
    for (const KeyedLaw& law : laws) laws_.push_back({law});
  }

  vuna_status read(const Moment& moment, std::uint32_t* values) override {
    for (MovingLaw& law : laws_) *values++ = advance(law, moment);
    return kVunaSuccess;
  }

 private:
  std::vector<MovingLaw> laws_;
};

}  // namespace

std::uint64_t counterKey(std::uint64_t seed, std::size_t device, std::size_t slot,
                         std::size_t counter) {
  return mix(mix(mix(mix(seed) ^ device) ^ slot) ^ counter);
}

std::unique_ptr<CounterSource> makeLawSource(const std::vector<KeyedLaw>& laws) {
  return std::make_unique<LawSource>(laws);
}

}  // namespace simulator
