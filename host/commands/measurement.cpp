#include "host/commands/measurement.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <utility>

#include "host/commands/known_options.h"
#include "host/events/decoder.h"
#include "host/events/series.h"
#include "host/events/values.h"
#include "host/figures/track.h"
#include "host/plugin/plugin_source.h"
#include "host/support/errors.h"
#include "host/support/stop_signal.h"

namespace tev::host {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::uint64_t kBufferBytes = std::uint64_t{1} << 20;
constexpr std::uint64_t kIntervalUsec = 1000;
constexpr milliseconds kUpdate{50};
constexpr const char* kRoomMsec = "200";  // of samples, so that a late fetch loses nothing
constexpr milliseconds kPassUpdate{1};
constexpr milliseconds kLongestFetch{1500};  // a call may wait a second for a read
constexpr std::size_t kPasses = 200;
// A read can be later than its time stamp, which changes the rate of one step, but hardly the rate
// over this time.
constexpr std::uint64_t kRateUsec = 10'000;

// The log lines of the set-up were shown before, so they are not shown again.
PluginOptions quietly(PluginOptions options) {
  options.simulated = true;
  options.log_level_given = false;
  withoutClearing(options);
  setOption(options, kMaxBufferSizeKey, "0");
  return options;
}

using Counts = std::optional<std::vector<DeviceCounts>>;

// Receives what is fetched.
class Receiver {
 public:
  Receiver() = default;
  virtual ~Receiver() = default;
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  virtual void begin(const SchemaView& schema) = 0;
  virtual void event(const Event& event) = 0;
  // The end of a batch, which holds the samples since the last one. False ends the sampling.
  virtual bool endBatch(const Counts& counts) = 0;
};

// Samples with these options, and fetches at each update. Returns which reads have not returned at
// the end.
std::string sample(const PluginOptions& options, Clock::time_point end, milliseconds update,
                   Receiver& receiver) {
  SetUpFindings known;
  PluginSource source(options, kBufferBytes, &known);
  const auto is_over = [&] { return StopSignal::requests() > 0 || Clock::now() >= end; };
  const auto hangs = [&] {
    return StopSignal::requests() > 0 || Clock::now() >= end + kLongestFetch;
  };
  const BlockConsumer take = [&](Blocks blocks) {
    decodeBlocks(source.schema(), blocks, [&](const Event& event) { receiver.event(event); });
  };
  receiver.begin(source.schema());
  bool more = true;
  while (more && !is_over()) {
    StopSignal::waitUntil(std::min(end, Clock::now() + update));
    source.fetch(take, hangs);
    more = receiver.endBatch(source.counts());
  }
  std::string pending = source.pendingReads();
  if (!source.close())
    throw RunError("the plug-in did not answer" + (pending.empty() ? "" : ": " + pending));
  return pending;
}

// The steps of all counters.
class Steps final : public Receiver {
 public:
  void begin(const SchemaView& schema) override {
    for (const TypeView& type : schema.types()) {
      auto& of_type = counters_.emplace_back();
      for (const Column& column : type.columns)
        if (column.key == 0 && isCounterSized(column))
          of_type.push_back(
              {column,
               KindJudge(column.counting_mode == TEV_VALUE_DELTA ? FieldKind::increase
                                                                 : FieldKind::undecided,
                         countsBytes(column)),
               {.type = type.name, .name = column.name, .bits = bitsOf(column)}});
    }
  }

  void event(const Event& event) override {
    const Series& series = table_.of(event);
    auto& counters = counters_[event.type->number];
    if (series.number == series_.size()) {
      series_.push_back({.device = series.device, .since_usec = event.timestamp_usec});
      for (Counter& one : counters)
        series_.back().counters.push_back({Track(one.measured.bits, one.judge), {}});
    }
    Last& last = series_[series.number];
    const auto time = SampleTime::after(last.usec, event.timestamp_usec);
    const bool is_rate = event.timestamp_usec >= last.since_usec + kRateUsec;
    for (std::size_t i = 0; i < counters.size(); ++i) {
      auto& [track, mark] = last.counters[i];
      track.sample(unsignedOf(counters[i].column, event.data), time);
      if (is_rate) measure(counters[i].measured, track, std::exchange(mark, TrackMark::of(track)));
    }
    if (is_rate) last.since_usec = event.timestamp_usec;
    last.usec = event.timestamp_usec;
    ++last.samples;
  }

  bool endBatch(const Counts& counts) override {
    counts_ = counts;
    return true;
  }

  void report(Measurement& measurement) const {
    for (const auto& of_type : counters_)
      for (const Counter& counter : of_type) {
        MeasuredCounter& added = measurement.counters.emplace_back(counter.measured);
        if (added.decreases) {
          added.largest_step = 0;
          added.highest_rate = 0;
        } else if (added.highest_rate > 0) {
          added.safe_interval = longestSafeInterval(added.bits, added.highest_rate);
        }
      }
    for (const DeviceCounts& one : counts_.value_or(std::vector<DeviceCounts>{}))
      measurement.devices.push_back({one.device, 0, one.failed, one.last_failure});
    for (const Last& last : series_) {
      auto device = std::ranges::find(measurement.devices, last.device, &MeasuredDevice::name);
      if (device == measurement.devices.end())
        device = measurement.devices.insert(device, {last.device, 0, 0, {}});
      device->samples = std::max(device->samples, last.samples);
    }
  }

 private:
  struct Counter {
    Column column;
    KindJudge judge;  // its address must not change after begin()
    MeasuredCounter measured;
  };
  struct Followed {
    Track track;
    TrackMark mark;  // at `since_usec`
  };
  struct Last {
    std::string device;
    std::uint64_t samples = 0;
    std::uint64_t usec = 0;
    std::uint64_t since_usec = 0;
    std::vector<Followed> counters{};  // as in counters_
  };

  // Adds what the track has counted since the mark. A fall is an unknown step: as long as the kind
  // is not decided, it tells of a gauge.
  static void measure(MeasuredCounter& counter, const Track& track, const TrackMark& since) {
    counter.largest_step = std::max(counter.largest_step, track.largestStep());
    counter.decreases |= track.kind() == FieldKind::gauge ||
                         (track.kind() == FieldKind::undecided && track.unknownSteps() > 0);
    const std::uint64_t known_usec = track.knownUsec() - since.known_usec;
    if (known_usec < kRateUsec / 2) return;
    const auto moved = static_cast<double>(track.total() - since.total);
    counter.highest_rate =
        std::max(counter.highest_rate, moved * 1e6 / static_cast<double>(known_usec));
  }

  SeriesTable table_;
  std::vector<std::vector<Counter>> counters_;  // by the type's number
  std::deque<Last> series_;                     // by the series' number
  Counts counts_;
};

// The time stamps of passes without a pause between them.
class Passes final : public Receiver {
 public:
  void begin(const SchemaView& /*schema*/) override {}

  void event(const Event& event) override {
    const Series& series = table_.of(event);
    const auto [found, is_new] = device_of_.emplace(series.device, devices_.size());
    if (is_new) devices_.push_back({series.device, series.number, {}, 0});
    Device& device = devices_[found->second];
    if (device.series == series.number) device.stamps.push_back(event.timestamp_usec);
  }

  bool endBatch(const Counts& counts) override {
    if (devices_.empty()) return true;
    const std::size_t samples = devices_.front().stamps.size();
    const bool complete = std::ranges::all_of(
        devices_, [&](const Device& one) { return one.stamps.size() == samples; });
    for (std::size_t k = 0; k + 1 < samples; ++k) add(k, complete);
    // The next batch continues with the next pass, unless the buffers were full.
    const std::optional<std::uint64_t> lost = lostSamples(counts);
    const bool continues = complete && samples > 0 && lost && lost == lost_;
    lost_ = lost;
    for (Device& device : devices_)
      device.stamps.erase(device.stamps.begin(), device.stamps.end() - (continues ? 1 : 0));
    return passes_ < kPasses;
  }

  std::optional<MeasuredPass> result() const {
    if (passes_ == 0) return std::nullopt;
    MeasuredPass pass;
    pass.passes = passes_;
    pass.mean = mean(sum_, passes_);
    pass.longest = Seconds(static_cast<double>(longest_) / 1e6);
    if (read_passes_ == 0) return pass;
    for (const Device& device : devices_)
      pass.reads.emplace_back(device.name, mean(device.sum, read_passes_));
    return pass;
  }

 private:
  struct Device {
    std::string name;
    std::size_t series;  // the one whose time stamps are used
    std::vector<std::uint64_t> stamps;
    std::uint64_t sum;  // microseconds from its reads to the next ones
  };

  static Seconds mean(std::uint64_t usec, std::size_t number) {
    return Seconds(static_cast<double>(usec) / 1e6 / static_cast<double>(number));
  }

  static std::optional<std::uint64_t> lostSamples(const Counts& counts) {
    if (!counts) return std::nullopt;
    std::uint64_t lost = 0;
    for (const DeviceCounts& one : *counts) lost += one.lost;
    return lost;
  }

  // Adds pass k. `complete`: every device has a sample of it.
  void add(std::size_t k, bool complete) {
    const auto& first = devices_.front().stamps;
    if (first[k + 1] < first[k]) return;  // the clock was stepped back
    ++passes_;
    sum_ += first[k + 1] - first[k];
    longest_ = std::max(longest_, first[k + 1] - first[k]);
    if (!complete) return;
    std::vector<std::uint64_t> stamps;
    for (const Device& device : devices_) stamps.push_back(device.stamps[k]);
    stamps.push_back(first[k + 1]);
    if (!std::ranges::is_sorted(stamps)) return;
    ++read_passes_;
    for (std::size_t d = 0; d < devices_.size(); ++d) devices_[d].sum += stamps[d + 1] - stamps[d];
  }

  SeriesTable table_;
  std::map<std::string, std::size_t> device_of_;
  std::vector<Device> devices_;  // in the order of sampling
  std::optional<std::uint64_t> lost_;
  std::size_t passes_ = 0;
  std::size_t read_passes_ = 0;
  std::uint64_t sum_ = 0;
  std::uint64_t longest_ = 0;
};

}  // namespace

Measurement measure(const PluginOptions& given, std::chrono::nanoseconds duration) {
  PluginOptions options = quietly(given);
  Measurement measurement;
  const auto end = Clock::now() + duration;

  PluginOptions busy = options;
  setOption(busy, kSampleIntervalKey, "0");
  setOption(busy, kSamplingThreadsKey, "1");
  Passes passes;
  const std::string pending = sample(busy, end - duration / 2, kPassUpdate, passes);
  if (!pending.empty()) throw RunError("the plug-in did not answer: " + pending);
  measurement.pass = passes.result();

  setOption(options, kSampleIntervalKey, std::to_string(kIntervalUsec));
  setOption(options, kUpdateKey, kRoomMsec);
  Steps steps;
  const auto start = Clock::now();
  measurement.pending_reads = sample(options, end, kUpdate, steps);
  steps.report(measurement);
  measurement.interval = Seconds(static_cast<double>(kIntervalUsec) / 1e6);
  measurement.lasted = Clock::now() - start;
  return measurement;
}

// As the plug-in shares them: the first device belongs to the first thread, and so on in turn.
Seconds longestShare(const MeasuredPass& pass, std::size_t threads) {
  std::vector<Seconds> shares(threads, Seconds::zero());
  for (std::size_t i = 0; i < pass.reads.size(); ++i) shares[i % threads] += pass.reads[i].second;
  return *std::ranges::max_element(shares);
}

}  // namespace tev::host
