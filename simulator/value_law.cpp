#include "simulator/value_law.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "simulator/random.h"

namespace simulator {
namespace {

constexpr std::uint64_t kUsecPerSecond = 1'000'000;

// One counter on its way; `position` is a random walk's last value.
struct MovingLaw {
  KeyedLaw keyed;
  std::uint32_t position = 0;
};

std::uint32_t valueAt(const Ramp& ramp, const Moment& moment) {
  // The products wrap at 64 bits at worst, which leaves the low 32 right; the last one cannot.
  const std::uint64_t seconds = moment.elapsed_usec / kUsecPerSecond;
  const std::uint64_t rest = moment.elapsed_usec % kUsecPerSecond;
  return static_cast<std::uint32_t>(ramp.start + ramp.per_sample * moment.sample +
                                    ramp.per_second * seconds +
                                    ramp.per_second * rest / kUsecPerSecond);
}

std::uint32_t valueAt(const Sine& sine, const Moment& moment) {
  const double turns = static_cast<double>(moment.elapsed_usec) / sine.period_usec;
  const double angle = 2 * std::numbers::pi * (turns - std::floor(turns));
  const double value = sine.mean + sine.amplitude * std::sin(angle);
  return static_cast<std::uint32_t>(std::clamp(std::round(value), 0.0, double{UINT32_MAX}));
}

std::uint32_t advance(const RandomWalk& walk, std::uint64_t key, std::uint64_t sample,
                      std::uint32_t position) {
  if (sample == 0) return walk.start;
  const std::uint64_t range = 2 * std::uint64_t{walk.step} + 1;
  const auto offset =
      static_cast<std::int64_t>(mix(key + sample) % range) - std::int64_t{walk.step};
  return static_cast<std::uint32_t>(
      std::clamp<std::int64_t>(std::int64_t{position} + offset, walk.min, walk.max));
}

std::uint32_t valueAt(MovingLaw& moving, const Moment& moment) {
  const ValueLaw& law = moving.keyed.law;
  if (const auto* ramp = std::get_if<Ramp>(&law)) return valueAt(*ramp, moment);
  if (const auto* constant = std::get_if<Constant>(&law)) return constant->value;
  if (const auto* sine = std::get_if<Sine>(&law)) return valueAt(*sine, moment);
  moving.position =
      advance(*std::get_if<RandomWalk>(&law), moving.keyed.key, moment.sample, moving.position);
  return moving.position;
}

class LawSource : public CounterSource {
 public:
  explicit LawSource(const std::vector<KeyedLaw>& laws) {
    laws_.reserve(laws.size());
    for (const KeyedLaw& law : laws) laws_.push_back({law});
  }

  vuna_status read(const Moment& moment, std::uint32_t* values) override {
    for (MovingLaw& law : laws_) *values++ = valueAt(law, moment);
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
