#include "host/screen/model.h"

#include <algorithm>
#include <cmath>
#include <ranges>
#include <utility>

namespace tev::host {
namespace {

constexpr std::uint64_t kSpanUsec = 1'000'000;   // of the readings
constexpr std::uint64_t kGraceUsec = 1'000'000;  // for late samples of a window
constexpr double kFadeUsec = 20e6;               // of the score of a field
constexpr double kScoreStep = 0.25;              // fields with smaller differences keep their order

// The field that stands for the others need not change for a difference as small as this.
constexpr double kNearlyAsLarge = 0.9;

void add(DeviceFigure& figure, const Reading& reading) {
  const double before = figure.amount.value_or(0);
  if (!reading.counts())
    figure.amount = std::max(before, static_cast<double>(reading.value));
  else if (reading.per_second && !figure.has_unknown)
    figure.amount = before + *reading.per_second;
  figure.is_uncertain |= reading.is_uncertain;
  figure.has_unknown |= reading.has_unknown;
  if (figure.has_unknown) figure.amount.reset();
}

}  // namespace

bool FieldModel::hasMoved() const {
  return std::ranges::any_of(cells,
                             [](const auto& cell) { return cell && cell->reading.has_moved; });
}

std::optional<DeviceFigure> figureOf(const FieldModel& field) {
  std::optional<DeviceFigure> device;
  std::optional<DeviceFigure> planes;
  for (const auto& cell : field.cells) {
    if (!cell || cell->reading.kind == FieldKind::undecided) continue;
    auto& figure = cell->is_plane ? planes : device;
    if (!figure) figure.emplace();
    add(*figure, cell->reading);
  }
  const bool planes_are_known = planes && planes->amount;
  return planes_are_known || !device ? planes : device;
}

const FieldModel* DeviceModel::field(const std::string& wanted) const {
  const auto found = std::ranges::find(fields, wanted, &FieldModel::name);
  return found == fields.end() ? nullptr : &*found;
}

std::size_t DeviceModel::planes() const {
  return static_cast<std::size_t>(
      std::ranges::count_if(series, [](const Series* one) { return isPlane(*one); }));
}

const DeviceModel* ScreenModel::device(const std::string& name) const {
  const auto found = std::ranges::find(devices, name, &DeviceModel::name);
  return found == devices.end() ? nullptr : &*found;
}

ModelCollector::ModelCollector(const Figures& figures)
    : figures_(figures),
      recent_(figures, kSpanUsec),
      windows_(
          figures, Trace::kStepUsec,
          {[this](const SeriesWindow& window) { addWindow(window); }, [](const DeviceWindow&) {}}) {
}

void ModelCollector::sample(const Event& event, const Series& series) {
  if (series.number >= places_.size()) places_.resize(series.number + 1);
  if (!places_[series.number].is_known) place(series);
  windows_.sample(event, series);
}

DeviceModel& ModelCollector::deviceNamed(const std::string& name) {
  const auto found = std::ranges::find(model_.devices, name, &DeviceModel::name);
  if (found != model_.devices.end()) return *found;
  return model_.devices.emplace_back(DeviceModel{name, {}, {}, {}, {}});
}

void ModelCollector::place(const Series& series) {
  DeviceModel& device = deviceNamed(series.device);
  Place& place = places_[series.number];
  place.is_known = true;
  place.device = static_cast<std::size_t>(&device - model_.devices.data());
  place.series = device.series.size();
  device.series.push_back(&series);
  for (FieldModel& field : device.fields) field.cells.emplace_back();

  const auto columns = figures_.columns(*series.type);
  for (std::size_t track = 0; track < columns.size(); ++track) {
    const std::string& name = columns[track]->name;
    if (std::ranges::find(model_.fields, name) == model_.fields.end())
      model_.fields.push_back(name);
    auto field = std::ranges::find(device.fields, name, &FieldModel::name);
    if (field == device.fields.end())
      field = device.fields.insert(
          field, {name, std::vector<std::optional<CellModel>>(device.series.size()), {}});
    field->cells[place.series] = CellModel{track, isPlane(series), {}, {}};
    place.fields.push_back(static_cast<std::size_t>(field - device.fields.begin()));
  }
}

void ModelCollector::addWindow(const SeriesWindow& window) {
  const Place& place = places_[window.series->series->number];
  DeviceModel& device = model_.devices[place.device];
  for (std::size_t track = 0; track < place.fields.size(); ++track)
    device.fields[place.fields[track]].cells[place.series]->trace.add(window, track);
}

void ModelCollector::refresh(const RunStatus& status) {
  model_.source = status.source;
  model_.elapsed_seconds = status.elapsed_seconds;
  model_.now_usec = status.now_usec;
  model_.notes = status.notes;
  for (const DeviceHealth& health : status.health->devices())
    deviceNamed(health.counts.device).health = health;
}

void ModelCollector::update(const RunStatus& status) {
  constexpr std::uint64_t kPatience = Trace::kStepUsec + kGraceUsec;
  if (status.now_usec > kPatience) windows_.complete(status.now_usec - kPatience);
  recent_.update(status.now_usec);
  refresh(status);
  for (DeviceModel& device : model_.devices) read(device);
  rank();
  for (DeviceModel& device : model_.devices) findWorst(device);
}

void ModelCollector::read(DeviceModel& device) {
  if (std::ranges::none_of(device.series, [this](auto* one) { return recent_.isFresh(*one); }))
    return;
  for (FieldModel& field : device.fields) {
    Comparison comparison;
    for (std::size_t i = 0; i < device.series.size(); ++i) {
      if (!field.cells[i]) continue;
      CellModel& cell = *field.cells[i];
      const Series& series = *device.series[i];
      cell.reading = recent_.of(series, cell.track);
      const Reading& reading = cell.reading;
      if (cell.is_plane && reading.kind != FieldKind::undecided)
        comparison.add(
            {.plane = &series,
             .kind = reading.kind,
             .amount = static_cast<double>(reading.counts() ? reading.increase : reading.value),
             .has_unknown = reading.has_unknown,
             .is_uncertain = reading.is_uncertain});
    }
    comparison.finish();
    field.comparison.reset();
    if (!comparison.planes.empty()) field.comparison = std::move(comparison);
  }
}

// Orders the fields by the largest significant difference of any device. A difference that is over
// fades slowly.
void ModelCollector::rank() {
  const std::uint64_t elapsed = model_.now_usec > ranked_usec_
                                    ? model_.now_usec - std::exchange(ranked_usec_, model_.now_usec)
                                    : 0;
  const double fade = std::exp(-static_cast<double>(elapsed) / kFadeUsec);
  for (auto& [name, score] : scores_) score *= fade;
  for (const DeviceModel& device : model_.devices) {
    for (const FieldModel& field : device.fields) {
      double& score = scores_[field.name];
      if (field.comparison && field.comparison->stands_out)
        score = std::max(score, field.comparison->imbalance - 1);
    }
  }
  std::ranges::stable_sort(model_.fields, std::ranges::greater(), [&](const std::string& name) {
    return std::floor(scores_[name] / kScoreStep);
  });
}

void ModelCollector::findWorst(DeviceModel& device) {
  const FieldModel* worst = nullptr;
  const auto differs = [&](const FieldModel* field) {
    return field && field->comparison && field->comparison->stands_out;
  };
  if (device.health.state == DeviceState::sampling) {
    for (const std::string& name : model_.fields) {
      if (chosen_field_ && name != *chosen_field_) continue;
      const FieldModel* const field = device.field(name);
      if (!differs(field)) continue;
      if (!worst || worst->comparison->imbalance < kNearlyAsLarge * field->comparison->imbalance)
        worst = field;
    }
  }
  if (!worst) {
    device.worst.reset();
    return;
  }
  const Comparison& comparison = *worst->comparison;
  WorstPlane found;
  found.field = worst->name;
  found.plane = headingOf(*comparison.planes[comparison.worst]);
  found.imbalance = comparison.imbalance;
  found.share = comparison.share(comparison.worst);
  found.kind = comparison.kind;
  found.since_usec = device.worst && device.worst->plane == found.plane ? device.worst->since_usec
                                                                        : model_.now_usec;
  device.worst = found;
}

}  // namespace tev::host
