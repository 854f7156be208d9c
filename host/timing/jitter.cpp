#include "host/timing/jitter.h"

#include <fmt/format.h>

#include <iterator>

#include "host/support/text.h"
#include "host/timing/thread_times.h"

namespace tev::host {
namespace {

// A number in microseconds, or "-" when nothing was measured.
template <class Number>
std::string cell(const Distribution& values, Number nsec, int digits) {
  if (values.count() == 0) return fmt::format("{:>11}", "-");
  return fmt::format("{:>11.{}f}", static_cast<double>(nsec) / 1e3, digits);
}

std::string intervalRow(const char* name, const Distribution& values) {
  std::string row = fmt::format("  {:<16}", name) + cell(values, values.mean(), 2);
  for (const double share : {0.5, 0.99, 0.999, 1.0}) row += cell(values, values.quantile(share), 1);
  return row + (values.count() == 0 ? fmt::format("{:>13}\n", "-")
                                    : fmt::format("{:>13.2f}\n", 1e9 / values.mean()));
}

// Each value is the mean of one update. Upper quantiles are omitted, because they would not be the
// quantiles of single passes.
std::string costRow(const char* name, const Distribution& values) {
  return fmt::format("  {:<16}{}{}{:>22}{}\n", name, cell(values, values.mean(), 2),
                     cell(values, values.quantile(0.5), 1), "", cell(values, values.max(), 1));
}

}  // namespace

JitterMeter::JitterMeter(const Projection& projection, std::uint64_t interval_usec)
    : projection_(projection), interval_usec_(interval_usec), reference_(interval_usec) {}

void JitterMeter::event(const Event& event, const Series& series) {
  if (!series_) series_ = series.number;
  if (series.number != *series_) return;
  // The interval is omitted when the real-time clock was stepped back.
  if (last_usec_ != 0 && event.timestamp_usec >= last_usec_)
    intervals_.add((event.timestamp_usec - last_usec_) * 1'000);
  last_usec_ = event.timestamp_usec;
  ++passes_;
}

JitterMeter::Reading JitterMeter::read(const RunStatus& status) {
  return {.lost_samples = status.lost_samples,
          .reference = reference_.usage(),
          .threads = pluginThreadTimes()};
}

void JitterMeter::addCosts(const Reading& now) {
  std::uint64_t total = 0;
  for (const auto& [thread, nsec] : now.threads) {
    const auto before = last_->threads.find(thread);
    if (before == last_->threads.end() || nsec < before->second) continue;
    const std::uint64_t used = nsec - before->second;
    total += used;
    auto& row = thread_costs_[thread];
    if (row.name.empty()) row.name = asPrintable(threadName(thread));
    row.costs.add(used / passes_);
  }
  costs_.add(total / passes_);
}

void JitterMeter::update(const RunStatus& status) {
  const Reading now = read(status);
  if (last_) {
    // Updates with lost samples are omitted, because passes without a sample use CPU time but
    // cannot be counted.
    if (passes_ > 0 && now.lost_samples == last_->lost_samples) addCosts(now);
    if (const auto wake_ups = now.reference.wake_ups - last_->reference.wake_ups; wake_ups > 0)
      reference_costs_.add((now.reference.cpu_nsec - last_->reference.cpu_nsec) / wake_ups);
  }
  last_ = now;
  passes_ = 0;
}

void JitterMeter::end(const RunStatus& status) {
  lost_samples_ = status.lost_samples;
}

void JitterMeter::leave() {
  reference_.stop();
}

std::string JitterMeter::report() const {
  std::string out = fmt::format("  {:<16}{:>11}{:>11}{:>11}{:>11}{:>11}{:>13}\n", "microseconds",
                                "mean", "p50", "p99", "p99.9", "max", "per second");
  out += intervalRow("interval", intervals_);
  out += intervalRow("bare loop", reference_.intervals());
  out += costRow("CPU per pass", costs_);
  if (thread_costs_.size() > 1)
    for (const auto& [thread, row] : thread_costs_) out += costRow(row.name.c_str(), row.costs);
  out += costRow("bare wake-up", reference_costs_);
  fmt::format_to(std::back_inserter(out),
                 "  {} intervals of {} us; CPU time of the plug-in's threads and of the bare loop: "
                 "means of {} and {} updates\n",
                 intervals_.count(), interval_usec_, costs_.count(), reference_costs_.count());
  if (lost_samples_ > 0)
    fmt::format_to(std::back_inserter(out),
                   "  {} samples were lost: an interval spans what is missing\n", lost_samples_);
  return out;
}

}  // namespace tev::host
