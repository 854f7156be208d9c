#include "host/fleet/aggregate.h"

#include <algorithm>
#include <utility>

#include "host/events/byte_counters.h"
#include "host/events/values.h"
#include "host/fleet/sink.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::uint64_t kMostAheadUsec = 60'000'000;  // of a node's clock
constexpr std::size_t kSourceBytes = 1500;            // without its series; measured
constexpr std::size_t kSeriesBytes = 500;             // without its tracks; measured
constexpr char kOtherKinds[] = "other";

struct Named {
  const char* name;
  MetricType type;
  const char* help;
};
constexpr Named kEvents{"tev_fleet_events_total", MetricType::counter,
                        "Events that were taken, by the kind of their type."};
constexpr Named kSources{"tev_fleet_sources", MetricType::gauge,
                         "Nodes that are followed: those of the worker's partitions."};
constexpr Named kRecentSources{"tev_fleet_recent_sources", MetricType::gauge,
                               "Nodes of which a message was read lately."};
constexpr Named kDevices{"tev_fleet_devices", MetricType::gauge,
                         "Devices of the nodes that are followed."};
constexpr Named kRecentDevices{"tev_fleet_recent_devices", MetricType::gauge,
                               "Devices of the nodes of which a message was read lately."};
constexpr Named kAge{"tev_fleet_newest_event_age_seconds", MetricType::gauge,
                     "Time since the newest event, by the node's clock."};
constexpr Named kForgotten{"tev_fleet_forgotten_sources_total", MetricType::counter,
                           "Nodes that had to make room for others."};
constexpr Named kLeftOutEvents{"tev_fleet_left_out_events_total", MetricType::counter,
                               "Events of nodes that have too many series, which are in no sum."};
constexpr Named kLeftOutFields{"tev_fleet_left_out_fields", MetricType::gauge,
                               "Fields that have no metrics, because others have their names."};
constexpr Named kFull{"tev_fleet_fields_are_full", MetricType::gauge,
                      "1 when there are too many fields, and others are left out, else 0."};

MetricFamily family(const Named& named) {
  return {named.name, named.help, named.type, {}};
}

template <class Value>
MetricFamily family(const Named& named, Value value) {
  return {named.name, named.help, named.type, {{nullptr, static_cast<double>(value)}}};
}

}  // namespace

std::uint64_t Aggregate::now() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(since).count());
}

Aggregate::Aggregate(std::chrono::seconds recent, std::size_t most_sources, Clock clock)
    : recent_usec_(static_cast<std::uint64_t>(std::chrono::microseconds(recent).count())),
      most_sources_(most_sources),
      clock_(std::move(clock)),
      fields_(recent, names_) {
  for (const Named& one : {kEvents, kSources, kRecentSources, kDevices, kRecentDevices, kAge,
                           kForgotten, kLeftOutEvents, kLeftOutFields, kFull})
    names_.claim(one.name, "the state of the fleet");
}

void Aggregate::taken(std::int32_t partition, const MessageHead& head, const Contents& contents,
                      std::uint64_t skipped) {
  const Plan& plan = planOf(contents.schema);
  Source& source = sourceOf(partition, head.run, plan);
  const std::uint64_t now_usec = clock_();
  source.seen_usec = now_usec;
  forEachEvent(head, contents, skipped, [&](const Event& event, std::uint64_t) {
    if (event.timestamp_usec <= now_usec + kMostAheadUsec)
      newest_usec_ = std::max(newest_usec_, event.timestamp_usec);
    take(source, event);
  });
  while (sources_.size() > most_sources_ || (bytes_ > kMostBytes && !sources_.empty())) {
    forget(std::prev(sources_.end()));
    ++forgotten_;
  }
}

// What is remembered of a partition says nothing when it comes back: another worker has counted.
void Aggregate::revoked(std::int32_t partition) {
  for (auto source = sources_.begin(); source != sources_.end();)
    source = source->partition == partition ? forget(source) : std::next(source);
}

const Aggregate::Plan& Aggregate::planOf(const std::shared_ptr<const FleetSchema>& schema) {
  const auto known = plans_.find(schema.get());
  if (known != plans_.end()) return known->second;
  plan_bytes_ += schema->bytes;
  if (plan_bytes_ > SchemaCache::kMostBytes) {
    while (!sources_.empty()) forget(sources_.begin());
    plans_.clear();
    plan_bytes_ = schema->bytes;
  }
  Plan& plan = plans_[schema.get()];
  plan.schema = schema;
  for (const TypeView& type : schema->view.types()) {
    TypePlan& added = plan.types.emplace_back();
    added.events = eventsOf(asPrintable(kindOf(type)));
    for (const Column& column : type.columns)
      if (FieldSum* const sum = fields_.of(type, column))
        (isCounterSized(column) ? added.tracked : added.numbers).push_back({&column, sum});
  }
  return plan;
}

std::uint64_t* Aggregate::eventsOf(const std::string& kind) {
  const bool is_other = events_.size() >= kMostKinds && !events_.contains(kind);
  return &events_[is_other ? kOtherKinds : kind];
}

Aggregate::Source& Aggregate::sourceOf(std::int32_t partition, const RunId& run, const Plan& plan) {
  const auto known = by_name_.find(run.source);
  if (known == by_name_.end()) return begin(partition, run, plan);
  Source& source = *known->second;
  if (source.partition != partition || source.run != run.start || source.plan != &plan) {
    forget(known->second);
    return begin(partition, run, plan);
  }
  sources_.splice(sources_.begin(), sources_, known->second);
  return source;
}

Aggregate::Source& Aggregate::begin(std::int32_t partition, const RunId& run, const Plan& plan) {
  Source& source = sources_.emplace_front();
  source.name = run.source;
  source.partition = partition;
  source.run = run.start;
  source.plan = &plan;
  source.bytes = kSourceBytes;
  bytes_ += source.bytes;
  by_name_.emplace(source.name, sources_.begin());
  return source;
}

Aggregate::Sources::iterator Aggregate::forget(Sources::iterator source) {
  bytes_ -= source->bytes;
  devices_ -= source->devices.size();
  by_name_.erase(source->name);
  return sources_.erase(source);
}

void Aggregate::take(Source& source, const Event& event) {
  const TypePlan& plan = source.plan->types[event.type->number];
  ++*plan.events;
  const bool has_room = source.bytes < kMostBytesOfSource;
  const Series* const series = source.table.of(event, has_room ? kMostSeries : 0);
  if (!series) {
    ++left_out_;
    return;
  }
  SeriesState& state = stateOf(source, *series);
  const SampleTime time =
      SampleTime::after(state.last_usec, state.step_usec, 0, event.timestamp_usec);
  if (state.last_usec > 0) state.step_usec = time.elapsed_usec;
  state.last_usec = event.timestamp_usec;
  auto track = state.tracks.begin();
  for (const auto& [column, sum] : plan.tracked)
    sum->sample(*track++, unsignedOf(*column, event.data), time);
  for (const auto& [column, sum] : plan.numbers) sum->sample(numberOf(*column, event.data));
}

Aggregate::SeriesState& Aggregate::stateOf(Source& source, const Series& series) {
  if (series.number < source.series.size()) return source.series[series.number];
  SeriesState& added = source.series.emplace_back();
  const TypePlan& plan = source.plan->types[series.type->number];
  added.tracks.reserve(plan.tracked.size());
  for (const auto& [column, sum] : plan.tracked)
    added.tracks.push_back(sum->newTrack(bitsOf(*column)));
  if (source.devices.insert(series.device).second) ++devices_;
  const std::size_t bytes = kSeriesBytes + added.tracks.size() * sizeof(Track);
  source.bytes += bytes;
  bytes_ += bytes;
  return added;
}

std::optional<double> Aggregate::ageSeconds(std::uint64_t now_usec) const {
  if (newest_usec_ == 0) return std::nullopt;
  return static_cast<double>(now_usec - std::min(now_usec, newest_usec_)) / 1e6;
}

std::vector<MetricFamily> Aggregate::families() {
  const std::uint64_t now_usec = clock_();
  std::vector<MetricFamily> families = fields_.families(now_usec);
  MetricFamily& events = families.emplace_back(family(kEvents));
  for (const auto& [kind, count] : events_)
    events.metrics.push_back(
        {std::make_shared<const Labels>(Labels{{"kind", kind}}), static_cast<double>(count)});
  std::size_t recent_sources = 0;
  std::size_t recent_devices = 0;
  for (const Source& source : sources_) {
    if (source.seen_usec + recent_usec_ < now_usec) break;
    ++recent_sources;
    recent_devices += source.devices.size();
  }
  families.push_back(family(kSources, sources_.size()));
  families.push_back(family(kRecentSources, recent_sources));
  families.push_back(family(kDevices, devices_));
  families.push_back(family(kRecentDevices, recent_devices));
  if (const auto age = ageSeconds(now_usec)) families.push_back(family(kAge, *age));
  families.push_back(family(kForgotten, forgotten_));
  families.push_back(family(kLeftOutEvents, left_out_));
  families.push_back(family(kLeftOutFields, fields_.leftOut()));
  families.push_back(family(kFull, fields_.isFull()));
  return families;
}

}  // namespace tev::host
