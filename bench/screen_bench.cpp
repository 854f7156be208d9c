// The cost of one redraw of "tev-host top", without the terminal library: the model takes over the
// samples of a second, and the page is drawn. All traces are full.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "bench/batch.h"
#include "bench/compare.h"
#include "host/events/decoder.h"
#include "host/events/series.h"
#include "host/screen/frame.h"
#include "host/screen/model.h"

namespace tev::bench {
namespace {

constexpr std::uint32_t kDevices = 16;
constexpr int kPassesPerSecond = 10;
constexpr host::ScreenSize kSize{200, 60};

// A recording of the model's last minutes, which goes on by a second at a time.
class Session {
 public:
  Session() {
    // The last windows are not complete, because of late samples.
    while (seconds_ < host::Trace::kMaxPoints + 5) {
      nextSecond();
      update();
    }
  }

  // Passes the samples of the next second.
  void nextSecond() {
    batch_.advance();
    host::decodeBlocks(schema_, batch_.blocks(), [&](const host::Event& event) {
      const host::Series& series = series_.of(event);
      figures_.sample(event, series);
      collector_.sample(event, series);
      health_.sample(series.device, event.timestamp_usec);
    });
    ++seconds_;
    status_.now_usec = batch_.lastUsec();
    status_.elapsed_seconds = static_cast<double>(seconds_);
    health_.update({}, status_.now_usec);
  }

  void update() { collector_.update(status_); }

  const host::ScreenModel& model() const { return collector_.model(); }

  // Whether the page has what makes it expensive.
  bool isFull() const {
    for (const host::DeviceModel& device : model().devices) {
      if (!host::worstPlane(collector_.model(), device, {})) return false;
      for (const host::FieldModel& field : device.fields)
        for (const auto& cell : field.cells)
          if (cell && cell->trace.points().size() < host::Trace::kMaxPoints) return false;
    }
    return model().devices.size() == kDevices;
  }

 private:
  const host::SchemaView schema_ = makeSchema();
  const host::Projection projection_{schema_};
  host::Figures figures_{projection_, knownKinds(), 1'000'000 / kPassesPerSecond};
  host::SeriesTable series_;
  host::HealthWatch health_{10'000'000};
  host::ModelCollector collector_{figures_};
  host::RunStatus status_ = [this] {
    host::RunStatus status;
    status.source = "bench";
    status.health = &health_;
    return status;
  }();
  Batch batch_{kDevices, kPassesPerSecond, 1'000'000 / kPassesPerSecond};
  std::uint64_t seconds_ = 0;
};

void redraw(benchmark::State& state) {
  Session session;
  if (!session.isFull()) {
    state.SkipWithError("the page is not full");
    return;
  }
  host::View view;
  view.page = state.range(0) != 0 ? host::View::Page::adapter : host::View::Page::overview;
  const host::Symbols symbols(host::SymbolSet::braille);
  std::vector<double> update_ns;
  std::vector<double> draw_ns;
  while (state.KeepRunning()) {
    session.nextSecond();
    update_ns.push_back(nanoseconds([&] { session.update(); }, 1));
    draw_ns.push_back(nanoseconds(
        [&] {
          const host::Frame frame = host::drawFrame(session.model(), view, symbols, kSize);
          benchmark::DoNotOptimize(frame.lines.data());
        },
        1));
    state.SetIterationTime((update_ns.back() + draw_ns.back()) * 1e-9);
  }
  state.counters["update_us"] = median(update_ns) * 1e-3;
  state.counters["draw_us"] = median(draw_ns) * 1e-3;
}
BENCHMARK(redraw)
    ->ArgName("adapter")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMicrosecond)
    ->UseManualTime()
    ->MinTime(0.1);

}  // namespace
}  // namespace tev::bench
