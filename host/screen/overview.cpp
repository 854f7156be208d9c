// The overview: a line for each device.
#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/screen/figure_text.h"
#include "host/screen/pages.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::size_t kMaxName = 24;
constexpr std::size_t kMaxPlane = 12;
constexpr std::size_t kMaxBars = 16;
constexpr std::size_t kWide = 120;             // columns of a wide screen
constexpr std::size_t kColumnsPerFigure = 24;  // of the screen
constexpr std::size_t kLeastFigure = 6;
constexpr std::size_t kMostFigure = 13;
constexpr std::size_t kLeastTrace = 12;
constexpr std::size_t kMostTrace = Trace::kMaxPoints / 2;

struct ListColumn {
  std::string title;
  std::size_t width;
  bool is_number;
  std::function<Piece(const DeviceEntry&)> piece;
};

// The field by which the device's planes are compared: the chosen one, that of its worst plane, or
// the first one that its planes have.
const FieldModel* comparedField(const DeviceEntry& entry, const ScreenModel& model,
                                const View& view) {
  if (view.field) return entry.device->field(*view.field);
  if (entry.worst) return entry.worst->field;
  for (const std::size_t number : model.ranking)
    if (const FieldModel* const field = entry.device->field(number); field && field->isCompared())
      return field;
  return nullptr;
}

class Columns {
 public:
  Columns(const ScreenModel& model, const View& view, const Symbols& symbols,
          const std::vector<DeviceEntry>& devices, std::size_t width)
      : model_(model), view_(view), symbols_(symbols), devices_(devices), width_(width) {
    addState();
    addWorst();
    addFigures();
    addTrace();
  }

  const std::vector<ListColumn>& all() const { return all_; }

 private:
  // The width of the longest text, within these limits.
  std::size_t widest(std::size_t least, std::size_t most,
                     const std::function<std::string(const DeviceEntry&)>& text) const {
    std::size_t width = least;
    for (const DeviceEntry& entry : devices_) width = std::max(width, displayWidth(text(entry)));
    return std::min(width, most);
  }

  std::size_t used() const {
    std::size_t sum = all_.size();  // a space before each
    for (const ListColumn& column : all_) sum += column.width;
    return sum;
  }

  void addState() {
    const auto name = [](const DeviceEntry& entry) { return entry.device->shownName(); };
    all_.push_back({"adapter", widest(7, kMaxName, name), false, [name](const DeviceEntry& entry) {
                      return Piece{name(entry), Role::emphasis};
                    }});
    all_.push_back({"state", 8, false, [](const DeviceEntry& entry) {
                      const DeviceState state = entry.device->health.state;
                      return Piece{nameOf(state), roleOf(state)};
                    }});
    all_.push_back({"missing", 7, true, [](const DeviceEntry& entry) {
                      const std::uint64_t missing = missingSamples(entry.device->health.counts);
                      return Piece{std::to_string(missing), missing > 0 ? Role::bad : Role::quiet};
                    }});
  }

  void addWorst() {
    all_.push_back(
        {"planes",
         widest(6, kMaxBars,
                [](const DeviceEntry& entry) { return std::string(entry.device->planes(), ' '); }),
         false, [this](const DeviceEntry& entry) { return bars(entry); }});
    const auto plane = [](const DeviceEntry& entry) {
      return entry.worst ? headingOf(entry.worst->plane()) : std::string();
    };
    all_.push_back({"worst", widest(7, kMaxPlane, plane), false, [plane](const DeviceEntry& entry) {
                      return Piece{plane(entry), Role::bad};
                    }});
    all_.push_back({"of mean", 7, true, [this](const DeviceEntry& entry) {
                      if (!entry.worst) return Piece{"", Role::quiet};
                      return Piece{fmt::format("{}{:.1f}", symbols_.times(),
                                               entry.worst->comparison->imbalance),
                                   Role::bad};
                    }});
    all_.push_back({"for", 8, true, [this](const DeviceEntry& entry) {
                      if (!entry.worst) return Piece{"", Role::quiet};
                      return Piece{elapsedText(model_, *entry.worst), Role::normal};
                    }});
    const auto field = [this](const DeviceEntry& entry) {
      return entry.worst ? model_.names[entry.worst->field->number] : std::string();
    };
    const std::size_t width = widest(5, width_ < kWide ? kMostFigure : kMaxName, field);
    all_.push_back({"field", width, false, [field, width](const DeviceEntry& entry) {
                      return Piece{shortName(field(entry), width), Role::normal};
                    }});
  }

  Piece bars(const DeviceEntry& entry) const {
    const FieldModel* const field = comparedField(entry, model_, view_);
    if (!field || !field->comparison) return {"", Role::quiet};
    if (!entry.device->isSampling()) return {"-", Role::quiet};
    const std::vector<double>& amounts = field->comparison->amounts;
    const double top = *std::ranges::max_element(amounts);
    const std::size_t shown = amounts.size() > kMaxBars ? kMaxBars - 1 : amounts.size();
    std::string text;
    for (std::size_t i = 0; i < shown; ++i) text += symbols_.bar(amounts[i], top);
    if (shown < amounts.size()) text += "+";
    return {text, entry.worst ? Role::warning : Role::trace};
  }

  // The chosen field, and then those whose planes differ most, if they have moved.
  std::vector<std::size_t> shownFields() const {
    std::vector<std::size_t> numbers = model_.ranking;
    if (view_.field) {
      const auto chosen = std::ranges::find(numbers, *view_.field);
      if (chosen != numbers.end()) std::rotate(numbers.begin(), chosen, chosen + 1);
    }
    std::erase_if(numbers, [this](std::size_t number) {
      return std::ranges::none_of(model_.devices, [number](const DeviceModel& device) {
        const FieldModel* const field = device.field(number);
        return field && field->hasMoved();
      });
    });
    return numbers;
  }

  // On a narrow screen the columns of figures take what is left; on a wide one, a part is for the
  // traces.
  void addFigures() {
    const std::size_t most = std::max<std::size_t>(1, width_ / kColumnsPerFigure);
    std::size_t figures = 0;
    for (const std::size_t number : shownFields()) {
      const std::size_t room = width_ - std::min(width_, used() + 1);
      if (figures == most || room < kLeastFigure) break;
      const std::size_t width =
          std::min(room, std::clamp(displayWidth(model_.names[number]), kLeastFigure, kMostFigure));
      if (figures > 0 && width < displayWidth(model_.names[number]) && width_ < kWide) break;
      all_.push_back(
          {shortName(model_.names[number], width), width, true, [number](const DeviceEntry& entry) {
             if (!entry.device->isSampling()) return Piece{"-", Role::quiet};
             const FieldModel* const field = entry.device->field(number);
             return field ? pieceOf(figureOf(*field)) : Piece{"", Role::quiet};
           }});
      ++figures;
    }
  }

  void addTrace() {
    const std::size_t room = width_ - std::min(width_, used() + 1);
    if (room < kLeastTrace) return;
    const std::size_t width = std::min(room, kMostTrace);
    const std::uint64_t shown = std::min(symbols_.pointsIn(width), Trace::kMaxPoints);
    all_.push_back({"last " + elapsedText(shown * Trace::kStepUsec), width, false,
                    [this, width](const DeviceEntry& entry) { return trace(entry, width); }});
  }

  // The compared field: of the worst plane, or of the device's first series that has it.
  Piece trace(const DeviceEntry& entry, std::size_t width) const {
    const FieldModel* const field = comparedField(entry, model_, view_);
    if (!field) return {"", Role::quiet};
    const CellModel* shown = nullptr;
    for (std::size_t i = 0; i < field->cells.size(); ++i) {
      if (!field->cells[i]) continue;
      const bool is_worst = entry.worst && entry.device->series[i] == &entry.worst->plane();
      if (!shown || is_worst) shown = &*field->cells[i];
    }
    if (!shown) return {"", Role::quiet};
    const auto points = entry.device->isSampling() ? shown->trace.points()
                                                   : shown->trace.pointsUntil(model_.now_usec);
    return {symbols_.trace(points, shown->trace.max(), width, 1).front(),
            entry.worst ? Role::warning : Role::trace};
  }

  const ScreenModel& model_;
  const View& view_;
  const Symbols& symbols_;
  const std::vector<DeviceEntry>& devices_;
  std::size_t width_;
  std::vector<ListColumn> all_;
};

void addCell(Line& line, const ListColumn& column, const Piece& piece) {
  line.space();
  line.add(
      column.is_number ? padLeft(piece.text, column.width) : padRight(piece.text, column.width),
      piece.role);
}

}  // namespace

Page overviewPage(const ScreenModel& model, const View& view, const Symbols& symbols,
                  ScreenSize size) {
  Page page;
  if (model.devices.empty()) {
    page.lines.emplace_back(" Waiting for the first samples ...", Role::quiet);
    return page;
  }
  const std::vector<DeviceEntry> devices = devicesInOrder(model, view);
  const Columns columns(model, view, symbols, devices, size.columns);
  Line titles;
  for (const ListColumn& column : columns.all())
    addCell(titles, column, {column.title, Role::heading});
  page.lines.push_back(titles);
  page.list_row = 1;
  page.list_rows = size.rows - std::min<std::size_t>(size.rows, 1);
  if (devices.empty())
    page.lines.emplace_back(" No adapter's name contains \"" + view.filter + "\".");
  const std::size_t selected = selectedPlace(devices, view);
  page.first_entry = firstEntry(selected, devices.size(), page.list_rows);
  for (std::size_t i = page.first_entry; i < devices.size() && page.lines.size() < size.rows; ++i) {
    Line line;
    for (const ListColumn& column : columns.all()) addCell(line, column, column.piece(devices[i]));
    line.is_selected = i == selected;
    page.lines.push_back(std::move(line));
  }
  return page;
}

std::size_t firstEntry(std::size_t selected, std::size_t count, std::size_t rows) {
  if (count <= rows || rows == 0) return 0;
  const std::size_t half = rows / 2;
  return std::min(selected > half ? selected - half : 0, count - rows);
}

}  // namespace tev::host
