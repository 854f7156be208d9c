#include "host/screen/frame.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <utility>

#include "host/screen/figure_text.h"
#include "host/support/duration_text.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::size_t kLeastColumns = 60;
constexpr std::size_t kLeastRows = 10;
constexpr std::size_t kMostNotes = 2;

// "rdma0, sampling (1 of 3)".
void addDevice(Line& line, const ScreenModel& model, const View& view) {
  const auto devices = devicesInOrder(model, view);
  const DeviceModel* const device = selectedDevice(model, view);
  if (!device) return;
  const auto place = std::ranges::find(devices, device) - devices.begin() + 1;
  line.add("   " + device->name, Role::emphasis).add(", ");
  line.add(nameOf(device->health.state), roleOf(device->health.state));
  line.add(fmt::format(" ({} of {})", place, devices.size()));
}

Line titleOf(const ScreenModel& model, const View& view) {
  Line line;
  line.add(" " + asPrintable(model.source), Role::emphasis);
  line.add(
      fmt::format("   {:.0f} s   every {}", model.elapsed_seconds, durationText(view.interval)));
  if (view.page == View::Page::adapter) {
    addDevice(line, model, view);
  } else {
    line.add(
        fmt::format("   {} adapter{}", model.devices.size(), model.devices.size() == 1 ? "" : "s"));
    line.add(fmt::format("   order: {}{}", nameOf(view.order), view.reversed ? ", reversed" : ""));
    if (view.field) line.add("   planes by: " + asPrintable(*view.field));
  }
  if (!view.filter.empty() && !view.editing_filter) line.add("   filter: " + view.filter);
  if (view.paused) line.add("   PAUSED", Role::warning);
  return line;
}

// What the user should know first: of all devices, or of the one on the page.
Line finding(const ScreenModel& model, const View& view, const Symbols& symbols) {
  std::vector<const DeviceModel*> devices;
  if (view.page == View::Page::adapter) {
    if (const DeviceModel* const device = selectedDevice(model, view)) devices.push_back(device);
  } else {
    devices = devicesInOrder(model, View());
  }
  std::size_t others = 0;
  for (const DeviceModel* const device : devices)
    if (device->worst || device->health.state != DeviceState::sampling) ++others;
  if (devices.empty()) return Line();
  if (others == 0) return Line(" No plane stands out.", Role::good);
  const DeviceModel& first = *devices.front();
  Line line(" " + sentenceOf(first, model.now_usec, symbols.times()), Role::bad);
  if (others > 1)
    line.add(fmt::format("   (and {} more adapter{})", others - 1, others == 2 ? "" : "s"),
             Role::warning);
  return line;
}

Line keysOf(const View& view, const Symbols& symbols) {
  Line line;
  const auto add = [&](const std::string& keys, const char* text) {
    line.add(" " + keys, Role::key).add(fmt::format(" {} ", text), Role::quiet);
  };
  if (view.editing_filter) {
    line.add(" Show adapters whose name contains: ").add(view.filter + "_", Role::emphasis);
    add("  Enter", "keep");
    add("Esc", "show all");
    return line;
  }
  if (view.help) {
    add("any key", "back");
    add("q", "quit");
    return line;
  }
  if (view.page == View::Page::overview) {
    add(symbols.upAndDown(), "choose");
    add("Enter", "open");
    add(symbols.leftAndRight(), "field");
    add("/", "filter");
    add("s", "order");
  } else {
    add("Esc", "back");
    add(symbols.upAndDown(), "field");
    add("Tab", "next");
  }
  add("p", "pause");
  add("?", "help");
  add("q", "quit");
  return line;
}

Page pageOf(const ScreenModel& model, const View& view, const Symbols& symbols, ScreenSize size) {
  if (view.help) return helpPage(symbols);
  return view.page == View::Page::overview ? overviewPage(model, view, symbols, size)
                                           : adapterPage(model, view, symbols, size);
}

}  // namespace

Frame drawFrame(const ScreenModel& model, const View& view, const Symbols& symbols,
                ScreenSize size) {
  Frame frame;
  if (size.columns < kLeastColumns || size.rows < kLeastRows) {
    frame.lines.emplace_back(
        fmt::format("The window needs {} columns and {} rows.", kLeastColumns, kLeastRows));
  } else {
    frame.lines.push_back(titleOf(model, view));
    frame.lines.push_back(finding(model, view, symbols));
    frame.lines.emplace_back();
    const std::size_t notes = std::min(model.notes.size(), kMostNotes);
    const std::size_t head = frame.lines.size();
    const std::size_t room = size.rows - head - notes - 1;  // the last row is for the keys
    Page page = pageOf(model, view, symbols, {size.columns, room});
    frame.place = {std::max<std::size_t>(page.list_rows, 1), head + page.list_row,
                   page.first_entry};
    if (page.lines.size() > room) page.lines.resize(room);
    for (Line& line : page.lines) frame.lines.push_back(std::move(line));
    frame.lines.resize(head + room);
    for (std::size_t i = model.notes.size() - notes; i < model.notes.size(); ++i)
      frame.lines.emplace_back(" " + model.notes[i], Role::warning);
    frame.lines.push_back(keysOf(view, symbols));
  }
  frame.lines.resize(size.rows);
  for (Line& line : frame.lines) {
    if (line.is_selected) line.pieces.front().text = ">";
    cut(line, size.columns);
  }
  return frame;
}

}  // namespace tev::host
