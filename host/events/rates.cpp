#include "host/events/rates.h"

#include "tev/schema.h"

namespace tev::host {
namespace {

constexpr std::int64_t kRange32 = std::int64_t{1} << 32;

// `moved` is signed, modulo 2^64. Nothing when no time has passed.
std::optional<double> ratePerSecond(std::uint64_t moved, std::uint64_t from_usec,
                                    std::uint64_t to_usec) {
  if (to_usec <= from_usec) return std::nullopt;
  return static_cast<double>(static_cast<std::int64_t>(moved)) * 1e6 /
         static_cast<double>(to_usec - from_usec);
}

}  // namespace

std::int64_t stepBetween(std::uint64_t before, std::uint64_t now, unsigned bits,
                         std::int64_t step_before) {
  const auto step = static_cast<std::int64_t>(now - before);
  if (bits == 64 || step >= 0) return step;  // 64-bit arithmetic wraps by itself
  const bool fell_far = -step > kRange32 / 4;
  const bool next_in_line = step_before > step + kRange32 / 2;
  return fell_far || next_in_line ? step + kRange32 : step;
}

std::int64_t CounterTrack::stepTo(std::uint64_t value) const {
  if (counting_mode_ == TEV_VALUE_DELTA) return static_cast<std::int64_t>(value);
  if (counting_mode_ == TEV_VALUE_RUNNING_SUM && bits_ == 32)
    return static_cast<std::uint32_t>(value - value_);
  return stepBetween(value_, value, bits_, step_);
}

void CounterTrack::sample(std::uint64_t value, std::uint64_t timestamp_usec) {
  if (started_) {
    step_ = stepTo(value);
    total_ += static_cast<std::uint64_t>(step_);
    trend_->step(step_);
  } else {
    started_ = true;
    first_usec_ = window_usec_ = timestamp_usec;
  }
  value_ = value;
  timestamp_usec_ = timestamp_usec;
}

void CounterTrack::endWindow() {
  if (const auto rate = ratePerSecond(total_ - window_total_, window_usec_, timestamp_usec_)) {
    per_second_ = rate;
    window_usec_ = timestamp_usec_;
    window_total_ = total_;
  }
}

std::optional<double> CounterTrack::perSecondOfAll() const {
  return ratePerSecond(total_, first_usec_, timestamp_usec_);
}

}  // namespace tev::host
