#include "host/jitter.h"

#include <fmt/format.h>
#include <time.h>

#include <iterator>
#include <utility>

namespace tev::host {
namespace {

std::uint64_t cpuNsec(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(time.tv_nsec);
}

void addMean(Distribution& costs, std::uint64_t before, std::uint64_t now, std::uint64_t count) {
  if (count != 0 && now >= before) costs.add((now - before) / count);
}

void appendRow(std::string& out, const char* name, const Distribution& values, bool with_rate) {
  const auto usec = [](auto nsec) { return static_cast<double>(nsec) / 1e3; };
  fmt::format_to(std::back_inserter(out), "  {:<16}{:>11.2f}{:>11.1f}{:>11.1f}{:>11.1f}{:>11.1f}",
                 name, usec(values.mean()), usec(values.quantile(0.5)), usec(values.quantile(0.99)),
                 usec(values.quantile(0.999)), usec(values.max()));
  if (with_rate && values.count() > 0)
    fmt::format_to(std::back_inserter(out), "{:>13.2f}", 1e9 / values.mean());
  out += '\n';
}

}  // namespace

JitterMeter::JitterMeter(std::unique_ptr<Formatter> formatter, std::uint64_t interval_usec)
    : formatter_(std::move(formatter)), interval_usec_(interval_usec), bare_(interval_usec) {}

void JitterMeter::event(const Event& event, const Series& series) {
  if (series.number == 0) {
    // The real-time clock may have been stepped back meanwhile.
    if (last_usec_ != 0 && event.timestamp_usec >= last_usec_)
      intervals_.add((event.timestamp_usec - last_usec_) * 1'000);
    last_usec_ = event.timestamp_usec;
    ++passes_in_window_;
  }
  formatter_->event(event, series);
}

void JitterMeter::update(const RunStatus& status) {
  const BareLoop::Usage bare = bare_.usage();
  const std::uint64_t plugin =
      cpuNsec(CLOCK_PROCESS_CPUTIME_ID) - cpuNsec(CLOCK_THREAD_CPUTIME_ID) - bare.cpu_nsec;
  // What the first window cost includes the set-up.
  if (plugin_nsec_ != 0) {
    addMean(costs_, plugin_nsec_, plugin, passes_in_window_);
    addMean(bare_costs_, bare_usage_.cpu_nsec, bare.cpu_nsec, bare.wake_ups - bare_usage_.wake_ups);
  }
  plugin_nsec_ = plugin;
  bare_usage_ = bare;
  passes_in_window_ = 0;
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
  appendRow(out, "interval", intervals_, true);
  appendRow(out, "bare loop", bare_.intervals(), true);
  appendRow(out, "CPU per pass", costs_, false);
  appendRow(out, "bare wake-up", bare_costs_, false);
  fmt::format_to(
      std::back_inserter(out),
      "  {} intervals of {} us; CPU of the plug-in's threads and of the bare loop's, mean "
      "of each of {} updates\n",
      intervals_.count(), interval_usec_, costs_.count());
  if (lost_samples_ > 0)
    fmt::format_to(std::back_inserter(out),
                   "  {} samples were lost: an interval spans what is missing\n", lost_samples_);
  return out;
}

}  // namespace tev::host
