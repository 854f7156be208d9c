#include "host/jitter.h"

#include <fmt/format.h>

#include <iterator>
#include <utility>

#include "host/clock_reading.h"

namespace tev::host {
namespace {

// In microseconds; nothing measured is no zero.
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

// Means of updates: their extremes say little, their upper quantiles nothing.
std::string costRow(const char* name, const Distribution& values) {
  return fmt::format("  {:<16}{}{}{:>22}{}\n", name, cell(values, values.mean(), 2),
                     cell(values, values.quantile(0.5), 1), "", cell(values, values.max(), 1));
}

}  // namespace

JitterMeter::JitterMeter(std::unique_ptr<Formatter> formatter, std::uint64_t interval_usec)
    : formatter_(std::move(formatter)), interval_usec_(interval_usec), bare_(interval_usec) {}

void JitterMeter::event(const Event& event, const Series& series) {
  if (!series_) series_ = series.number;
  if (series.number == *series_) {
    // The real-time clock may have been stepped back meanwhile.
    if (last_usec_ != 0 && event.timestamp_usec >= last_usec_)
      intervals_.add((event.timestamp_usec - last_usec_) * 1'000);
    last_usec_ = event.timestamp_usec;
    ++passes_;
  }
  formatter_->event(event, series);
}

JitterMeter::Reading JitterMeter::read(const RunStatus& status) {
  Reading reading{.lost_samples = status.lost_samples, .bare = bare_.usage()};
  // In this order: what is taken away has been read before.
  const std::uint64_t others = nowNsec(CLOCK_THREAD_CPUTIME_ID) + reading.bare.cpu_nsec;
  reading.plugin_nsec = nowNsec(CLOCK_PROCESS_CPUTIME_ID) - others;
  return reading;
}

void JitterMeter::update(const RunStatus& status) {
  const Reading now = read(status);
  if (last_) {
    // The cost of passes whose samples were lost cannot be told from that of the others.
    if (passes_ > 0 && now.lost_samples == last_->lost_samples)
      costs_.add((now.plugin_nsec - last_->plugin_nsec) / passes_);
    if (const auto wake_ups = now.bare.wake_ups - last_->bare.wake_ups; wake_ups > 0)
      bare_costs_.add((now.bare.cpu_nsec - last_->bare.cpu_nsec) / wake_ups);
  }
  last_ = now;
  passes_ = 0;
  formatter_->update(status);
}

void JitterMeter::end(const RunStatus& status) {
  lost_samples_ = status.lost_samples;
  formatter_->end(status);
}

void JitterMeter::leave() {
  bare_.stop();
  formatter_->leave();
}

std::string JitterMeter::report() const {
  std::string out = fmt::format("  {:<16}{:>11}{:>11}{:>11}{:>11}{:>11}{:>13}\n", "microseconds",
                                "mean", "p50", "p99", "p99.9", "max", "per second");
  out += intervalRow("interval", intervals_);
  out += intervalRow("bare loop", bare_.intervals());
  out += costRow("CPU per pass", costs_);
  out += costRow("bare wake-up", bare_costs_);
  fmt::format_to(std::back_inserter(out),
                 "  {} intervals of {} us; CPU time of the plug-in's threads and of the bare loop: "
                 "means of {} and {} updates\n",
                 intervals_.count(), interval_usec_, costs_.count(), bare_costs_.count());
  if (lost_samples_ > 0)
    fmt::format_to(std::back_inserter(out),
                   "  {} samples were lost: an interval spans what is missing\n", lost_samples_);
  return out;
}

}  // namespace tev::host
