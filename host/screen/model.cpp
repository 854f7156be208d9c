#include "host/screen/model.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::uint64_t kSpanUsec = 1'000'000;   // of the readings
constexpr std::uint64_t kGraceUsec = 1'000'000;  // for late samples of a window
constexpr double kFadeUsec = 20e6;               // of the score of a field
constexpr double kScoreStep = 0.25;              // fields with smaller differences keep their order

// A plane that does not stand out for a shorter time than this is still the same finding.
constexpr std::uint64_t kPauseUsec = 3'000'000;

// The field that stands for the others need not change for a difference as small as this.
constexpr double kNearlyAsLarge = 0.9;

void addReading(DeviceFigure& figure, const Reading& reading) {
  const double before = figure.amount.value_or(0);
  if (!reading.counts())
    figure.amount = std::max(before, static_cast<double>(reading.value));
  else if (reading.per_second && !figure.has_unknown)
    figure.amount = before + *reading.per_second;
  figure.is_uncertain |= reading.is_uncertain;
  figure.has_unknown |= reading.has_unknown;
  if (figure.has_unknown) figure.amount.reset();
}

// What is compared: the steps of a counter, or the mean of a gauge over the last two seconds.
double amountOf(const CellModel& cell) {
  if (cell.reading.counts()) return static_cast<double>(cell.reading.increase);
  return cell.trace.recentMean().value_or(static_cast<double>(cell.reading.value));
}

void followProminence(FieldModel& field, std::uint64_t now_usec) {
  Prominence& known = field.prominence;
  if (!field.standsOut()) return;
  const Series* const plane = field.comparison->planes[field.comparison->worst];
  if (known.plane != plane || now_usec > known.last_usec + kPauseUsec)
    known = {plane, now_usec, now_usec};
  known.last_usec = now_usec;
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
    addReading(*figure, cell->reading);
  }
  const bool planes_are_known = planes && planes->amount;
  return planes_are_known || !device ? planes : device;
}

const FieldModel* DeviceModel::field(std::size_t number) const {
  if (number >= place_of.size() || !place_of[number]) return nullptr;
  return &fields[*place_of[number]];
}

std::size_t DeviceModel::planes() const {
  return static_cast<std::size_t>(
      std::ranges::count_if(series, [](const Series* one) { return isPlane(*one); }));
}

const DeviceModel* ScreenModel::device(const std::string& name) const {
  const auto found = std::ranges::find(devices, name, &DeviceModel::name);
  return found == devices.end() ? nullptr : &*found;
}

std::optional<std::size_t> ScreenModel::numberOf(const std::string& field) const {
  const auto found = std::ranges::find(names, field);
  if (found == names.end()) return std::nullopt;
  return static_cast<std::size_t>(found - names.begin());
}

std::optional<WorstPlane> worstPlane(const ScreenModel& model, const DeviceModel& device,
                                     std::optional<std::size_t> chosen_field) {
  if (!device.isSampling()) return std::nullopt;
  const FieldModel* worst = nullptr;
  for (const std::size_t number : model.ranking) {
    if (chosen_field && number != *chosen_field) continue;
    const FieldModel* const field = device.field(number);
    if (!field || !field->standsOut()) continue;
    if (!worst || worst->comparison->imbalance < kNearlyAsLarge * field->comparison->imbalance)
      worst = field;
  }
  if (!worst) return std::nullopt;
  return WorstPlane{worst, &*worst->comparison};
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

std::size_t ModelCollector::numberOf(const std::string& field) {
  const std::string name = asPrintable(field);
  if (const auto known = model_.numberOf(name)) return *known;
  model_.names.push_back(name);
  model_.ranking.push_back(model_.names.size() - 1);
  scores_.push_back(0);
  return model_.names.size() - 1;
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
    const std::size_t number = numberOf(columns[track]->name);
    if (device.place_of.size() <= number) device.place_of.resize(number + 1);
    auto& place_of_field = device.place_of[number];
    if (!place_of_field) {
      place_of_field = device.fields.size();
      FieldModel& added = device.fields.emplace_back();
      added.number = number;
      added.cells.resize(device.series.size());
    }
    CellModel& cell = device.fields[*place_of_field].cells[place.series].emplace();
    cell.track = track;
    cell.is_plane = isPlane(series);
    place.fields.push_back(*place_of_field);
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
  model_.hang = status.hang;
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
}

void ModelCollector::read(DeviceModel& device) {
  if (std::ranges::none_of(device.series, [this](auto* one) { return recent_.isFresh(*one); }))
    return;
  for (FieldModel& field : device.fields) {
    readField(device, field);
    followProminence(field, model_.now_usec);
  }
}

void ModelCollector::readField(const DeviceModel& device, FieldModel& field) {
  Comparison comparison;
  for (std::size_t i = 0; i < device.series.size(); ++i) {
    if (!field.cells[i]) continue;
    CellModel& cell = *field.cells[i];
    const Series& series = *device.series[i];
    cell.reading = recent_.of(series, cell.track);
    const Reading& reading = cell.reading;
    if (cell.is_plane && reading.kind != FieldKind::undecided)
      comparison.add({.plane = &series,
                      .kind = reading.kind,
                      .amount = amountOf(cell),
                      .has_unknown = reading.has_unknown,
                      .is_uncertain = reading.is_uncertain});
  }
  comparison.finish();
  field.comparison.reset();
  if (!comparison.planes.empty()) field.comparison = std::move(comparison);
}

// Orders the fields by the largest difference of any device. A difference that is over fades
// slowly.
void ModelCollector::rank() {
  const std::uint64_t before = std::exchange(ranked_usec_, model_.now_usec);
  const std::uint64_t elapsed = model_.now_usec - std::min(model_.now_usec, before);
  const double fade = std::exp(-static_cast<double>(elapsed) / kFadeUsec);
  for (double& score : scores_) score *= fade;
  for (const DeviceModel& device : model_.devices)
    for (const FieldModel& field : device.fields)
      if (field.standsOut())
        scores_[field.number] = std::max(scores_[field.number], field.comparison->imbalance - 1);
  std::ranges::stable_sort(model_.ranking, std::ranges::greater(), [&](std::size_t number) {
    return std::floor(scores_[number] / kScoreStep);
  });
}

}  // namespace tev::host
