// A piece of work beside its floor: the bare loop that moves the same bytes, timed in turns with
// it, in the same run. The reported time is the work's; "floor_ns" is the bare loop's, "ratio"
// their quotient (medians over all turns).
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

// Repetitions that make one turn last long enough for the clock.
template <class Work>
int repetitionsFor(Work&& work) {
  constexpr double kTurnNanoseconds = 20'000;
  work();
  const double once = std::max(1.0, nanoseconds(work, 3));
  return std::max(1, static_cast<int>(kTurnNanoseconds / once));
}

struct Compared {
  double work_ns;
  double floor_ns;
};

// Times `work` against `floor` for as long as `state` asks, in turns of `repetitions`; both are to
// move `bytes` bytes. `prepare_work` and `prepare_floor` run untimed before each turn, so that
// either finds its own memory warm.
template <class Work, class Floor, class PrepareWork, class PrepareFloor>
Compared compare(benchmark::State& state, double bytes, Work&& work, Floor&& floor,
                 PrepareWork&& prepare_work, PrepareFloor&& prepare_floor, int repetitions) {
  std::vector<double> work_ns;
  std::vector<double> floor_ns;
  while (state.KeepRunningBatch(repetitions)) {
    prepare_work();
    work_ns.push_back(nanoseconds(work, repetitions));
    prepare_floor();
    floor_ns.push_back(nanoseconds(floor, repetitions));
    state.SetIterationTime(work_ns.back() * repetitions * 1e-9);
  }
  const Compared result{median(work_ns), median(floor_ns)};
  state.counters["work_ns"] = result.work_ns;
  state.counters["floor_ns"] = result.floor_ns;
  state.counters["ratio"] = result.work_ns / result.floor_ns;
  if (bytes > 0) state.counters["MB_per_s"] = bytes / result.work_ns * 1e3;
  return result;
}

template <class Work, class Floor>
Compared compare(benchmark::State& state, double bytes, Work&& work, Floor&& floor) {
  const int repetitions = std::min(repetitionsFor(work), repetitionsFor(floor));
  return compare(
      state, bytes, work, floor, [] {}, [] {}, repetitions);
}

}  // namespace tev::bench
