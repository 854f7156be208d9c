#include "collector/buffer_sizing.h"

#include "src/support/checked.h"

namespace tev::events::multipath {
namespace {

using support::checkedAdd;
using support::checkedMultiply;

constexpr std::uint64_t kSamplesWhenRatesDoNotTell = 20;
constexpr std::uint64_t kLeastSamples = 2;
constexpr std::uint64_t kManySamples = 1000;
constexpr std::uint64_t kSpareWhenMany = 100;

std::uint64_t samplesPerUpdate(std::uint64_t interval_usec, std::uint64_t update_msec) {
  const std::uint64_t samples_per_second = 1'000'000 / interval_usec;
  if (update_msec > 1000)
    return checkedMultiply(checkedAdd(update_msec, 999) / 1000, samples_per_second);
  return samples_per_second / (1000 / update_msec);
}

}  // namespace

std::uint64_t samplesPerBuffer(const Configuration& configuration, std::uint64_t sample_size) {
  if (const auto budget = configuration.max_buffer_size; budget != 0) {
    if (budget < sample_size) return kLeastSamples;
    return sample_size == 0 ? 0 : budget / sample_size;
  }
  if (configuration.sample_interval_usec == 0 || configuration.update_msec == 0)
    return kSamplesWhenRatesDoNotTell;

  const auto samples =
      samplesPerUpdate(configuration.sample_interval_usec, configuration.update_msec);
  if (samples == 0) return kSamplesWhenRatesDoNotTell;
  // Twice the samples of one update. For many samples only a few are added, to save memory.
  return samples > kManySamples ? checkedAdd(samples, kSpareWhenMany) : samples * 2;
}

}  // namespace tev::events::multipath
