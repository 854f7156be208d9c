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
constexpr std::size_t kMaxBars = 16;
constexpr std::size_t kLeastFigure = 6;
constexpr std::size_t kMostFigure = 13;
constexpr std::size_t kLeastTrace = 12;
constexpr std::size_t kMostTrace = Trace::kMaxPoints / 2;

struct ListColumn {
  std::string title;
  std::size_t width;
  bool is_number;
  std::function<Piece(const DeviceModel&)> piece;
};

std::string shownName(const DeviceModel& device) {
  return device.name.empty() ? "(no name)" : device.name;
}

// The field by which the device's planes are compared: that of its worst plane, or the first of all
// fields that the device has.
const FieldModel* comparedField(const DeviceModel& device, const ScreenModel& model,
                                const View& view) {
  if (view.field) return device.field(*view.field);
  if (device.worst) return device.field(device.worst->field);
  for (const std::string& name : model.fields)
    if (const FieldModel* const field = device.field(name); field && field->comparison)
      return field;
  return nullptr;
}

Piece bars(const FieldModel* field, const DeviceModel& device, const Symbols& symbols) {
  if (!field || !field->comparison) return {"", Role::quiet};
  if (device.health.state != DeviceState::sampling) return {"-", Role::quiet};
  const Comparison& comparison = *field->comparison;
  const double top = *std::ranges::max_element(comparison.amounts);
  std::string text;
  for (std::size_t i = 0; i < std::min(comparison.amounts.size(), kMaxBars); ++i)
    text += symbols.bar(comparison.amounts[i], top);
  return {text, device.worst ? Role::warning : Role::trace};
}

// The trace of the compared field: of the worst plane, or of the device's first series.
Piece traceOf(const FieldModel* field, const DeviceModel& device, const Symbols& symbols,
              std::size_t width) {
  if (!field) return {"", Role::quiet};
  const CellModel* shown = nullptr;
  for (std::size_t i = 0; i < field->cells.size(); ++i) {
    if (!field->cells[i]) continue;
    const bool is_worst = device.worst && headingOf(*device.series[i]) == device.worst->plane;
    if (!shown || is_worst) shown = &*field->cells[i];
  }
  if (!shown) return {"", Role::quiet};
  return {symbols.trace(shown->trace.points(), shown->trace.max(), width, 1).front(),
          device.worst ? Role::warning : Role::trace};
}

std::size_t widest(const ScreenModel& model, std::size_t least, std::size_t most,
                   const std::function<std::string(const DeviceModel&)>& text) {
  std::size_t width = least;
  for (const DeviceModel& device : model.devices)
    width = std::max(width, displayWidth(text(device)));
  return std::min(width, most);
}

std::size_t widthOf(const std::vector<ListColumn>& columns) {
  std::size_t sum = columns.size();  // a space before each
  for (const ListColumn& column : columns) sum += column.width;
  return sum;
}

std::vector<ListColumn> fixedColumns(const ScreenModel& model, const View& view,
                                     const Symbols& symbols) {
  std::vector<ListColumn> columns;
  columns.push_back({"adapter", widest(model, 7, kMaxName, shownName), false,
                     [](const DeviceModel& device) -> Piece {
                       return {shownName(device), Role::emphasis};
                     }});
  columns.push_back({"state", 8, false, [](const DeviceModel& device) -> Piece {
                       return {nameOf(device.health.state), roleOf(device.health.state)};
                     }});
  columns.push_back({"missing", 7, true, [](const DeviceModel& device) -> Piece {
                       const std::uint64_t missing = missingSamples(device.health.counts);
                       return {std::to_string(missing), missing > 0 ? Role::bad : Role::quiet};
                     }});
  columns.push_back(
      {"planes",
       widest(model, 6, kMaxBars,
              [](const DeviceModel& device) { return std::string(device.planes(), ' '); }),
       false, [&](const DeviceModel& device) {
         return bars(comparedField(device, model, view), device, symbols);
       }});
  const auto worst_plane = [](const DeviceModel& device) {
    return device.worst ? device.worst->plane : std::string();
  };
  columns.push_back({"worst", widest(model, 7, 12, worst_plane), false,
                     [worst_plane](const DeviceModel& device) -> Piece {
                       return {worst_plane(device), Role::bad};
                     }});
  columns.push_back(
      {"of mean", 7, true, [&symbols](const DeviceModel& device) -> Piece {
         if (!device.worst) return {"", Role::quiet};
         return {fmt::format("{}{:.1f}", symbols.times(), device.worst->imbalance), Role::bad};
       }});
  columns.push_back({"for", 6, true, [&model](const DeviceModel& device) -> Piece {
                       if (!device.worst) return {"", Role::quiet};
                       const std::uint64_t since =
                           std::min(model.now_usec, device.worst->since_usec);
                       return {elapsedText(model.now_usec - since), Role::normal};
                     }});
  columns.push_back({"field",
                     widest(model, 5, 16,
                            [](const DeviceModel& device) {
                              return device.worst ? asPrintable(device.worst->field)
                                                  : std::string();
                            }),
                     false, [](const DeviceModel& device) -> Piece {
                       return {device.worst ? asPrintable(device.worst->field) : "", Role::normal};
                     }});
  return columns;
}

ListColumn figureColumn(const std::string& name) {
  const std::string title = asPrintable(name);
  return {title, std::clamp(displayWidth(title), kLeastFigure, kMostFigure), true,
          [name](const DeviceModel& device) -> Piece {
            if (device.health.state != DeviceState::sampling) return {"-", Role::quiet};
            const FieldModel* const field = device.field(name);
            return field ? pieceOf(figureOf(*field)) : Piece{"", Role::quiet};
          }};
}

// The figures are those of the chosen field, and then of the fields whose planes differ most.
std::vector<std::string> shownFields(const ScreenModel& model, const View& view) {
  std::vector<std::string> names = model.fields;
  if (view.field) {
    const auto chosen = std::ranges::find(names, *view.field);
    if (chosen != names.end()) std::rotate(names.begin(), chosen, chosen + 1);
  }
  std::erase_if(names, [&](const std::string& name) {
    return std::ranges::none_of(model.devices, [&](const DeviceModel& device) {
      const FieldModel* const field = device.field(name);
      return field && field->hasMoved();
    });
  });
  return names;
}

std::vector<ListColumn> columnsFor(const ScreenModel& model, const View& view,
                                   const Symbols& symbols, std::size_t width) {
  std::vector<ListColumn> columns = fixedColumns(model, view, symbols);
  const std::size_t most = width / 24;  // figures
  std::size_t figures = 0;
  for (const std::string& name : shownFields(model, view)) {
    ListColumn column = figureColumn(name);
    if (figures == most || widthOf(columns) + column.width + 1 > width) break;
    columns.push_back(std::move(column));
    ++figures;
  }
  const std::size_t used = widthOf(columns) + 1;
  if (used + kLeastTrace <= width) {
    const std::size_t trace = std::min(width - used, kMostTrace);
    columns.push_back({"last minutes", trace, false, [&, trace](const DeviceModel& device) {
                         return traceOf(comparedField(device, model, view), device, symbols, trace);
                       }});
  }
  return columns;
}

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
  const std::vector<ListColumn> columns = columnsFor(model, view, symbols, size.columns);
  Line titles;
  for (const ListColumn& column : columns) addCell(titles, column, {column.title, Role::heading});
  page.lines.push_back(titles);
  page.list_row = 1;
  page.list_rows = size.rows - std::min<std::size_t>(size.rows, 1);

  const auto devices = devicesInOrder(model, view);
  if (devices.empty())
    page.lines.emplace_back(" No adapter's name contains \"" + view.filter + "\".");
  const DeviceModel* const selected = selectedDevice(model, view);
  const auto place =
      static_cast<std::size_t>(std::ranges::find(devices, selected) - devices.begin());
  page.first_entry = firstEntry(place, devices.size(), page.list_rows);
  for (std::size_t i = page.first_entry; i < devices.size() && page.lines.size() < size.rows; ++i) {
    Line line;
    for (const ListColumn& column : columns) addCell(line, column, column.piece(*devices[i]));
    line.is_selected = devices[i] == selected;
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
