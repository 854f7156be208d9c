// The page of one device: a trace for each series, and all fields.
#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/screen/figure_text.h"
#include "host/screen/pages.h"
#include "host/support/short_number.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::size_t kFigureWidth = 6;
constexpr std::size_t kShareWidth = 5;
constexpr std::size_t kMeanWidth = 7;
constexpr std::size_t kLeastFieldRows = 6;  // with the titles
constexpr std::size_t kMostTraceRows = 6;
constexpr std::size_t kLeastTrace = 10;

// The series that have the field, in their order. When there are too many, the planes with the
// largest amounts.
std::vector<std::size_t> shownSeries(const DeviceModel& device, const FieldModel& field,
                                     std::size_t most) {
  std::vector<std::size_t> series;
  for (std::size_t i = 0; i < device.series.size(); ++i)
    if (field.cells[i]) series.push_back(i);
  if (series.size() <= most) return series;
  const auto amount = [&](std::size_t i) {
    const CellModel& cell = *field.cells[i];
    if (!cell.is_plane) return -1.0;
    return cell.reading.counts() ? cell.reading.per_second.value_or(0)
                                 : static_cast<double>(cell.reading.value);
  };
  std::ranges::stable_sort(series, [&](auto a, auto b) { return amount(a) > amount(b); });
  series.resize(most);
  std::ranges::sort(series);
  return series;
}

// Whether this plane stands out.
bool isWorst(const DeviceModel& device, const FieldModel& field, const Series& series) {
  return device.isSampling() && field.standsOut() &&
         field.comparison->planes[field.comparison->worst] == &series;
}

std::string shareOf(const DeviceModel& device, const FieldModel& field, const Series& series) {
  if (!device.isSampling() || !field.isCompared() || field.comparison->kind == FieldKind::gauge)
    return "";
  const auto& planes = field.comparison->planes;
  const auto plane = std::ranges::find(planes, &series);
  if (plane == planes.end()) return "";
  return fmt::format(
      "{:.0f} %", 100 * field.comparison->share(static_cast<std::size_t>(plane - planes.begin())));
}

double topOf(const FieldModel& field, const std::vector<std::size_t>& series) {
  double top = 0;
  for (const std::size_t i : series) top = std::max(top, field.cells[i]->trace.max());
  return top;
}

class TraceBlock {
 public:
  TraceBlock(const ScreenModel& model, const DeviceModel& device, const FieldModel& field,
             const Symbols& symbols, ScreenSize size)
      : model_(model), device_(device), field_(field), symbols_(symbols), size_(size) {}

  Lines lines() const {
    std::size_t room = size_.rows - 1;  // without the titles
    const auto count = static_cast<std::size_t>(
        std::ranges::count_if(field_.cells, [](const auto& cell) { return cell.has_value(); }));
    if (count > room) --room;  // for the line about the others
    const auto series = shownSeries(device_, field_, room);
    const std::size_t rows =
        std::clamp<std::size_t>(room / std::max<std::size_t>(series.size(), 1), 1, kMostTraceRows);
    // The planes have a common scale. The device, which may be their sum, has its own.
    std::vector<std::size_t> planes;
    for (const std::size_t i : series)
      if (isPlane(*device_.series[i])) planes.push_back(i);
    const double top = topOf(field_, planes);

    Lines all{titles()};
    for (const std::size_t i : series)
      addSeries(all, i, isPlane(*device_.series[i]) ? top : topOf(field_, {i}), rows);
    if (count > series.size())
      all.emplace_back(fmt::format(" {} of {}; a higher window shows all", series.size(), count),
                       Role::quiet);
    return all;
  }

 private:
  static constexpr std::size_t kNameWidth = 12;
  // Name, now, share, min, mean, p99, max, peak, and the spaces before them.
  static constexpr std::size_t kUsed = 1 + kNameWidth + 6 * (kFigureWidth + 1) + kShareWidth + 1;

  std::vector<TracePoint> pointsOf(const CellModel& cell) const {
    return device_.isSampling() ? cell.trace.points() : cell.trace.pointsUntil(model_.now_usec);
  }

  std::size_t traceWidth() const {
    return size_.columns < kUsed + 1 + kLeastTrace ? 0 : size_.columns - kUsed - 1;
  }

  Line titles() const {
    const bool counts = field_.comparison ? field_.comparison->kind != FieldKind::gauge
                                          : std::ranges::any_of(field_.cells, [](const auto& cell) {
                                              return cell && cell->reading.counts();
                                            });
    Line line;
    line.space().add(padRight(shortName(model_.names[field_.number], kNameWidth), kNameWidth),
                     Role::emphasis);
    line.space().add(padLeft(counts ? "now /s" : "now", kFigureWidth), Role::heading);
    line.space().add(padLeft("share", kShareWidth), Role::heading);
    for (const char* const title : {"min", "mean", "p99", "max", "peak"})
      line.space().add(padLeft(title, kFigureWidth), Role::heading);
    const std::size_t width = traceWidth();
    if (width > 0)
      line.space().add(
          padRight("last " + elapsedText(std::min(symbols_.pointsIn(width), Trace::kMaxPoints) *
                                         Trace::kStepUsec),
                   width),
          Role::heading);
    return line;
  }

  void addSeries(Lines& all, std::size_t i, double top, std::size_t rows) const {
    const Series& series = *device_.series[i];
    const CellModel& cell = *field_.cells[i];
    const bool worst = isWorst(device_, field_, series);
    const Role role = worst ? Role::bad : Role::normal;
    Line first;
    first.add(worst ? "!" : " ", Role::bad);
    first.add(padRight(headingOf(series), kNameWidth), worst ? Role::bad : Role::emphasis);
    const Piece now = device_.health.state == DeviceState::sampling ? pieceOf(cell.reading)
                                                                    : Piece{"-", Role::quiet};
    first.space().add(padLeft(now.text, kFigureWidth), worst ? Role::bad : now.role);
    first.space().add(padLeft(shareOf(device_, field_, series), kShareWidth), role);
    const auto summary = cell.trace.summary();
    for (const auto part : {&TraceSummary::min, &TraceSummary::mean, &TraceSummary::p99,
                            &TraceSummary::max, &TraceSummary::peak})
      first.space().add(padLeft(summary ? shortNumber((*summary).*part) : "", kFigureWidth), role);

    const std::size_t width = traceWidth();
    const auto trace = symbols_.trace(pointsOf(cell), top, width, rows);
    const Role trace_role = worst ? Role::warning : Role::trace;
    for (std::size_t row = 0; row + 1 < rows; ++row) {
      Line line;
      line.space(kUsed + 1).add(trace[row], trace_role);
      all.push_back(std::move(line));
    }
    all.push_back(std::move(first.space().add(trace.back(), trace_role)));
  }

  const ScreenModel& model_;
  const DeviceModel& device_;
  const FieldModel& field_;
  const Symbols& symbols_;
  ScreenSize size_;
};

// A row for each field, and a column for each series.
class FieldTable {
 public:
  FieldTable(const ScreenModel& model, const DeviceModel& device, const View& view,
             const Symbols& symbols, std::size_t columns)
      : model_(model),
        device_(device),
        symbols_(symbols),
        fields_(movedFields(device)),
        selected_(selectedPlace(fields_, view)),
        folded_(foldedText()) {
    name_width_ = displayWidth(kTitle);
    for (const FieldModel* const field : fields_)
      name_width_ = std::max(name_width_, displayWidth(model.names[field->number]));
    name_width_ = std::min<std::size_t>(name_width_, 24);
    const std::size_t used = 1 + name_width_ + 1 + kMeanWidth;
    const std::size_t room = columns > used ? (columns - used) / (kColumnWidth + 1) : 0;
    const std::size_t count = device.series.size();
    last_first_ = count > room ? count - room : 0;
    first_ = std::min(view.first_column, last_first_);
    last_ = std::min(count, first_ + room);
  }

  std::size_t rows() const { return fields_.size(); }

  std::size_t selectedRow() const { return selected_; }
  std::size_t lastFirstColumn() const { return last_first_; }
  const FieldModel* selectedField() const { return fields_.empty() ? nullptr : fields_[selected_]; }
  // The fields that have no row; empty when there is none.
  const std::string& folded() const { return folded_; }

  Line titles() const {
    Line line;
    line.space().add(padRight(kTitle, name_width_), Role::heading);
    for (std::size_t i = first_; i < last_; ++i)
      line.space().add(padLeft(headingOf(*device_.series[i]), kColumnWidth), Role::heading);
    line.space().add(padLeft("of mean", kMeanWidth), Role::heading);
    if (last_ - first_ < device_.series.size())
      line.add(fmt::format("  {}: {} of {}", symbols_.leftAndRight(), last_ - first_,
                           device_.series.size()),
               Role::quiet);
    return line;
  }

  Line row(std::size_t index) const {
    const FieldModel& field = *fields_[index];
    Line line;
    line.space().add(padRight(shortName(model_.names[field.number], name_width_), name_width_));
    for (std::size_t i = first_; i < last_; ++i) {
      const bool worst = field.cells[i] && isWorst(device_, field, *device_.series[i]);
      Piece piece{"", Role::quiet};
      if (field.cells[i])
        piece = device_.health.state == DeviceState::sampling ? pieceOf(field.cells[i]->reading)
                                                              : Piece{"-", Role::quiet};
      if (worst) piece = {"!" + piece.text, Role::bad};
      line.space().add(padLeft(piece.text, kColumnWidth), piece.role);
    }
    if (device_.isSampling() && field.standsOut())
      line.space().add(
          padLeft(fmt::format("{}{:.1f}", symbols_.times(), field.comparison->imbalance),
                  kMeanWidth),
          Role::warning);
    line.is_selected = index == selected_;
    return line;
  }

 private:
  // "never moved: path_switches, window_kib".
  std::string foldedText() const {
    std::string text;
    for (const FieldModel& field : device_.fields) {
      if (field.hasMoved()) continue;
      text += (text.empty() ? "never moved: " : ", ") + model_.names[field.number];
    }
    return text;
  }

  static constexpr std::string_view kTitle = "rate or value";
  static constexpr std::size_t kColumnWidth = 8;

  const ScreenModel& model_;
  const DeviceModel& device_;
  const Symbols& symbols_;
  std::vector<const FieldModel*> fields_;
  std::size_t selected_;
  std::string folded_;
  std::size_t name_width_ = 0;
  std::size_t last_first_ = 0;  // the largest first_
  std::size_t first_ = 0;       // series
  std::size_t last_ = 0;
};

}  // namespace

Page adapterPage(const ScreenModel& model, const View& view, const Symbols& symbols,
                 ScreenSize size) {
  Page page;
  const DeviceModel* const device = selectedDevice(model, view);
  if (!device) {
    page.lines.emplace_back(" There is no adapter.", Role::quiet);
    return page;
  }
  const FieldTable table(model, *device, view, symbols, size.columns);
  const std::size_t wanted = 1 + table.rows() + (table.folded().empty() ? 0 : 1);
  const FieldModel* const field = table.selectedField();
  if (field) {
    // The fields get what they need, but the traces have one row for each series before that.
    const std::size_t series = device->series.size() + 1;
    const std::size_t least =
        std::max(kLeastFieldRows, size.rows - std::min(size.rows, series + 1));
    const std::size_t below = std::min(wanted, least) + 1;
    const std::size_t above = size.rows > below + 2 ? size.rows - below : 2;
    page.lines = TraceBlock(model, *device, *field, symbols, {size.columns, above}).lines();
    page.lines.emplace_back();
  }
  page.lines.push_back(table.titles());
  page.list_row = page.lines.size();
  page.last_column = table.lastFirstColumn();
  const std::size_t left = size.rows - std::min(size.rows, page.lines.size());
  const bool has_folded = !table.folded().empty() && left > 1;
  page.list_rows = left - (has_folded ? 1 : 0);
  page.first_entry = firstEntry(table.selectedRow(), table.rows(), page.list_rows);
  for (std::size_t i = 0; i < page.list_rows && page.first_entry + i < table.rows(); ++i)
    page.lines.push_back(table.row(page.first_entry + i));
  if (has_folded) page.lines.emplace_back(" " + table.folded(), Role::quiet);
  return page;
}

}  // namespace tev::host
