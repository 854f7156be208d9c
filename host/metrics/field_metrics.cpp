#include "host/metrics/field_metrics.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/events/values.h"
#include "host/metrics/field_names.h"
#include "host/support/log.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::uint64_t kUsecPerSecond = 1'000'000;
constexpr char kDeviceLabel[] = "device";

bool isCounting(FieldKind kind) {
  return kind == FieldKind::counter || kind == FieldKind::increase;
}

// The labels of a type's series, in the order of the key.
std::vector<std::string> labelNamesOf(const TypeView& type) {
  std::vector<std::string> names;
  MetricNames claimed;
  for (const Column& key : type.keys) {
    names.push_back(names.empty() ? kDeviceLabel : labelName(key.name));
    claimed.claim(names.back(), fmt::format("the key field '{}' of {}", asPrintable(key.name),
                                            asPrintable(type.name)));
  }
  return names;
}

}  // namespace

FieldMetrics::FieldMetrics(const Figures& figures, std::chrono::seconds peak, MetricNames& names)
    : figures_(figures), peak_(peak) {
  const Projection& projection = figures.projection();
  for (const TypeView& type : projection.schema().types()) {
    fields_.emplace_back();
    label_names_.push_back(labelNamesOf(type));
    for (const Column& column : projection.columns(type))
      if (column.key == 0 && column.count == 1 && !isText(column)) addField(type, column, names);
  }
}

void FieldMetrics::addField(const TypeView& type, const Column& column, MetricNames& names) {
  Field field{.column = &column, .track = figures_.trackOf(type, column)};
  const FieldKind kind = field.track < 0
                             ? FieldKind::gauge
                             : figures_.kindOf(type, static_cast<std::size_t>(field.track));
  const FieldNames words = namesOf(type, column);
  const std::string name = "tev_" + words.word;
  const std::string& head = words.head;
  const auto add = [&](const std::string& full, MetricType metric, const std::string& help) {
    return family(full, metric, help, words.owner, names);
  };
  if (kind != FieldKind::gauge) {
    field.total =
        add(totalName(name), MetricType::counter,
            words.described + ": increase since the start of tev-host, without unknown steps.");
    field.unknown_steps = add(name + "_unknown_steps_total", MetricType::counter,
                              head + ": steps from one sample to the next that are not known.");
    field.peak = add(name + "_peak_per_second", MetricType::gauge,
                     fmt::format("{}: highest rate of any single sample, per second, over the last "
                                 "{} seconds.",
                                 head, peak_.count()));
  }
  // By its name, a field with "_total" at its end is a counter, unless the user says that it is
  // not.
  const bool is_total = kind != FieldKind::gauge && name == totalName(name);
  if (!isCounting(kind) && !is_total) {
    field.value = add(name, MetricType::gauge, words.described + ": the last sample.");
    field.smallest =
        add(name + "_recent_min", MetricType::gauge,
            fmt::format("{}: smallest sample of the last {} seconds.", head, peak_.count()));
    field.largest =
        add(name + "_recent_max", MetricType::gauge,
            fmt::format("{}: largest sample of the last {} seconds.", head, peak_.count()));
  }
  fields_[type.number].push_back(field);
}

std::size_t FieldMetrics::family(const std::string& name, MetricType type, const std::string& help,
                                 const std::string& owner, MetricNames& names) {
  names.claim(name, owner);
  const auto [found, is_new] = number_of_.emplace(name, families_.size());
  if (is_new) families_.push_back({name, help, type, {}});
  return found->second;
}

void FieldMetrics::add(SeriesState& added, const Series& series) {
  const std::size_t type = series.type->number;
  Labels labels;
  for (std::size_t i = 0; i < label_names_[type].size(); ++i)
    labels.emplace_back(label_names_[type][i], i == 0 ? series.device : series.keys[i - 1]);
  added.series = &series;
  const auto seconds = static_cast<std::size_t>(peak_.count());
  std::vector<std::string> left_out;
  for (const Field& field : fields_[type]) {
    State& state = added.fields.emplace_back(seconds);
    for (const std::size_t number : {field.total, field.value})
      if (number != kNone) state.is_published &= published_.emplace(number, labels).second;
    if (!state.is_published) left_out.push_back(asPrintable(field.column->name));
  }
  added.labels = std::make_shared<const Labels>(std::move(labels));
  if (!left_out.empty())
    Log::instance().say(
        fmt::format("tev-host: --prometheus: of {}, these are left out, because {} has fields of "
                    "their names in another type: {}",
                    asPrintable(series.type->name), series.device, commaSeparated(left_out)));
}

void FieldMetrics::sample(const Event& event, const Series& series) {
  if (series.number >= series_.size()) series_.resize(series.number + 1);
  SeriesState& state = series_[series.number];
  if (!state.series) add(state, series);
  const SeriesFigures& figures = figures_.of(series);
  const std::uint64_t second = event.timestamp_usec / kUsecPerSecond;
  auto one = state.fields.begin();
  for (const Field& field : fields_[series.type->number]) {
    State& now = *one++;
    const Track* const track =
        field.track < 0 ? nullptr : &figures.tracks[static_cast<std::size_t>(field.track)];
    if (track && track->counts()) {
      if (now.last_rate && !figures.after_slow_read) now.largest.add(second, *now.last_rate);
      now.last_rate.reset();
      if (track->step() == StepState::known) now.last_rate = track->perUsec() * 1e6;
    } else if (!track || track->kind() == FieldKind::gauge) {
      now.value = track ? static_cast<double>(track->value()) : numberOf(*field.column, event.data);
      now.largest.add(second, now.value);
      now.smallest.add(second, -now.value);
    }
  }
}

void FieldMetrics::publish(const Field& field, const SeriesState& series, State& state,
                           std::uint64_t second, std::vector<MetricFamily>& families) const {
  const auto add = [&](std::size_t number, double value) {
    families[number].metrics.push_back({series.labels, value});
  };
  const Track* const track =
      field.track < 0 ? nullptr
                      : &figures_.of(*series.series).tracks[static_cast<std::size_t>(field.track)];
  if (track && track->counts()) {
    // A step that turns out to be unknown is taken back. The total then waits until it is reached
    // again, because a fall would mean that the program was started anew.
    state.total = std::max(state.total, track->total());
    state.unknown_steps = std::max(state.unknown_steps, track->unknownSteps());
    add(field.total, static_cast<double>(state.total));
    add(field.unknown_steps, static_cast<double>(state.unknown_steps));
    if (const auto peak = state.largest.at(second)) add(field.peak, *peak);
  } else if (field.value != kNone && (!track || track->kind() == FieldKind::gauge)) {
    add(field.value, state.value);
    if (const auto smallest = state.smallest.at(second)) add(field.smallest, -*smallest);
    if (const auto largest = state.largest.at(second)) add(field.largest, *largest);
  }
}

std::vector<MetricFamily> FieldMetrics::families(std::uint64_t now_usec,
                                                 const std::set<std::string>& devices) {
  std::vector<MetricFamily> families = families_;
  for (SeriesState& series : series_) {
    if (!series.series || !devices.contains(series.series->device)) continue;
    auto state = series.fields.begin();
    for (const Field& field : fields_[series.series->type->number])
      if (State& now = *state++; now.is_published)
        publish(field, series, now, now_usec / kUsecPerSecond, families);
  }
  return families;
}

}  // namespace tev::host
