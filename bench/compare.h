// Compares a piece of work with its baseline: a bare loop that moves the same bytes. Both are timed
// alternately in the same run. The reported time is that of the work; "baseline_ns" is that of the
// bare loop; "ratio" is work divided by baseline (medians over all turns).
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

namespace tev::bench {

using SteadyClock = std::chrono::steady_clock;

template <class Work>
double nanoseconds(Work&& work, int repetitions) {
  const auto begin = SteadyClock::now();
  for (int i = 0; i < repetitions; ++i) work();
  return std::chrono::duration<double, std::nano>(SteadyClock::now() - begin).count() / repetitions;
}

inline double median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// The number of repetitions for which one turn is long enough to be measured with the clock.
template <class Work>
int repetitionsFor(Work&& work) {
  constexpr double kTurnNanoseconds = 20'000;
  work();
  const double once = std::max(1.0, nanoseconds(work, 3));
  return std::max(1, static_cast<int>(kTurnNanoseconds / once));
}

struct Compared {
  double work_ns;
  double baseline_ns;
};

// Times `work` and `baseline` alternately for as long as `state` requests, in turns of
// `repetitions`. Both must move `bytes` bytes. `prepare_work` and `prepare_baseline` run untimed
// before each turn, so that each has its own memory in the cache.
template <class Work, class Baseline, class PrepareWork, class PrepareBaseline>
Compared compare(benchmark::State& state, double bytes, Work&& work, Baseline&& baseline,
                 PrepareWork&& prepare_work, PrepareBaseline&& prepare_baseline, int repetitions) {
  std::vector<double> work_ns;
  std::vector<double> baseline_ns;
  while (state.KeepRunningBatch(repetitions)) {
    prepare_work();
    work_ns.push_back(nanoseconds(work, repetitions));
    prepare_baseline();
    baseline_ns.push_back(nanoseconds(baseline, repetitions));
    state.SetIterationTime(work_ns.back() * repetitions * 1e-9);
  }
  const Compared result{median(work_ns), median(baseline_ns)};
  state.counters["work_ns"] = result.work_ns;
  state.counters["baseline_ns"] = result.baseline_ns;
  state.counters["ratio"] = result.work_ns / result.baseline_ns;
  if (bytes > 0) state.counters["MB_per_s"] = bytes / result.work_ns * 1e3;
  return result;
}

template <class Work, class Baseline>
Compared compare(benchmark::State& state, double bytes, Work&& work, Baseline&& baseline) {
  const int repetitions = std::min(repetitionsFor(work), repetitionsFor(baseline));
  return compare(
      state, bytes, work, baseline, [] {}, [] {}, repetitions);
}

}  // namespace tev::bench
