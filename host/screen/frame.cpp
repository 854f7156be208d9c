#include "host/screen/frame.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <string_view>
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
  if (devices.empty()) return;
  const std::size_t place = selectedPlace(devices, view);
  const DeviceModel& device = *devices[place].device;
  line.add("   " + device.shownName(), Role::emphasis).add(", ");
  line.add(nameOf(device.health.state), roleOf(device.health.state));
  line.add(fmt::format(" ({} of {})", place + 1, devices.size()));
}

// What is not as usual comes first, because a narrow screen cuts the end off.
Line titleOf(const ScreenModel& model, const View& view) {
  Line line;
  line.add(" " + asPrintable(model.source), Role::emphasis);
  if (view.paused) line.add("   PAUSED", Role::warning);
  if (view.page == View::Page::adapter) addDevice(line, model, view);
  if (view.field) line.add("   planes by: " + model.names[*view.field]);
  if (!view.filter.empty()) line.add("   filter: " + view.filter);
  if (view.order != View::Order::worst || view.reversed)
    line.add(fmt::format("   order: {}{}", nameOf(view.order), view.reversed ? ", reversed" : ""));
  line.add(
      fmt::format("   {:.0f} s   every {}", model.elapsed_seconds, durationText(view.interval)));
  if (view.page == View::Page::overview)
    line.add(
        fmt::format("   {} adapter{}", model.devices.size(), model.devices.size() == 1 ? "" : "s"));
  return line;
}

// That no plane stands out, if that is known.
Line noFinding(const ScreenModel& model, const View& view) {
  const auto hasPlanes = [](const DeviceModel& one) { return one.planes() > 1; };
  const auto isCompared = [&](const DeviceModel& one) {
    return std::ranges::any_of(one.fields, [&](const FieldModel& field) {
      return field.isCompared() && (!view.field || field.number == *view.field);
    });
  };
  if (std::ranges::none_of(model.devices, hasPlanes)) return Line();
  if (std::ranges::none_of(model.devices, isCompared))
    return Line(" Not enough samples to compare planes.", Role::quiet);
  if (view.field)
    return Line(fmt::format(" In {}, no plane stands out.", model.names[*view.field]));
  return Line(" No plane stands out.", Role::good);
}

// What the user should know first: of all devices, or of the one on the page.
Line finding(const ScreenModel& model, const View& view, const Symbols& symbols) {
  if (!model.hang.empty()) return Line(" " + model.hang, Role::bad);
  View worst_first = view;
  worst_first.order = View::Order::worst;
  worst_first.reversed = false;
  std::vector<DeviceEntry> devices = devicesInOrder(model, worst_first);
  const DeviceModel* const selected = selectedDevice(model, view);
  std::erase_if(devices, [&](const DeviceEntry& entry) {
    return (view.page == View::Page::adapter && entry.device != selected) ||
           (entry.device->isSampling() && !entry.worst);
  });
  if (devices.empty()) return noFinding(model, view);
  const bool is_waiting = devices.front().device->health.state == DeviceState::waiting;
  Line line(" " + sentenceOf(model, devices.front(), symbols.times()),
            is_waiting ? Role::warning : Role::bad);
  if (devices.size() > 1)
    line.add(fmt::format(" (and {} more)", devices.size() - 1), Role::warning);
  return line;
}

// A log line without its time, level and module.
std::string noteText(const std::string& note) {
  std::string_view text = note;
  while (text.starts_with('[') && text.find("] ") != std::string_view::npos)
    text.remove_prefix(text.find("] ") + 2);
  return " " + std::string(text);
}

// The line in two rows when it does not fit into one.
void addWrapped(Lines& lines, const Line& line, std::size_t width) {
  lines.push_back(line);
  lines.emplace_back();
  const std::string text = line.plain();
  if (displayWidth(text) <= width) return;
  const std::size_t end = text.rfind(' ', width);
  if (end == 0 || end == std::string::npos) return;
  const Role role = line.pieces.front().role;
  lines[lines.size() - 2] = Line(text.substr(0, end), role);
  lines.back() = Line(" " + text.substr(end), role);
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
    add(symbols.leftAndRight(), "planes");
    add("Tab", "next");
  }
  add("p", view.paused ? "go on" : "pause");
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
    addWrapped(frame.lines, finding(model, view, symbols), size.columns);
    const std::size_t notes = std::min(model.notes.size(), kMostNotes);
    const std::size_t head = frame.lines.size();
    const std::size_t room = size.rows - head - notes - 1;  // the last row is for the keys
    Page page = pageOf(model, view, symbols, {size.columns, room});
    frame.place = {std::max<std::size_t>(page.list_rows, 1), head + page.list_row, page.first_entry,
                   page.last_column};
    if (page.lines.size() > room) page.lines.resize(room);
    for (Line& line : page.lines) frame.lines.push_back(std::move(line));
    frame.lines.resize(head + room);
    for (std::size_t i = model.notes.size() - notes; i < model.notes.size(); ++i)
      frame.lines.emplace_back(noteText(model.notes[i]), Role::warning);
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
