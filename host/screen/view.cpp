#include "host/screen/view.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <tuple>

namespace tev::host {
namespace {

using std::chrono::milliseconds;

constexpr std::array<const char*, 4> kOrderNames{"worst", "name", "rate", "missing"};
constexpr std::array kIntervals{milliseconds(100),  milliseconds(200),  milliseconds(500),
                                milliseconds(1000), milliseconds(2000), milliseconds(5000),
                                milliseconds(10000)};

// Devices that do not deliver come first, then those whose planes differ most. The difference is
// rounded, so that small changes do not move the lines.
double badnessOf(const DeviceModel& device) {
  constexpr double kNotSampling = 1e6;
  if (device.health.state != DeviceState::sampling)
    return kNotSampling * (static_cast<double>(device.health.state) + 1);
  return device.worst ? std::round(device.worst->imbalance * 4) : 0;
}

// The rate of a counter, or the value of a gauge; -1: not known.
double amountOf(const DeviceModel& device, const std::string& name) {
  const FieldModel* const field = device.field(name);
  const auto figure = field ? figureOf(*field) : std::nullopt;
  return figure && figure->amount ? *figure->amount : -1;
}

double keyOf(const DeviceModel& device, View::Order order, const std::string& field) {
  switch (order) {
    case View::Order::worst:
      return badnessOf(device);
    case View::Order::name:
      return 0;
    case View::Order::rate:
      return amountOf(device, field);
    case View::Order::missing:
      return static_cast<double>(missingSamples(device.health.counts));
  }
  return 0;
}

// The index `steps` from `index`, in a list of `count`.
std::size_t moved(std::size_t index, std::ptrdiff_t steps, std::size_t count) {
  const auto wanted = static_cast<std::ptrdiff_t>(index) + steps;
  return static_cast<std::size_t>(
      std::clamp<std::ptrdiff_t>(wanted, 0, static_cast<std::ptrdiff_t>(count) - 1));
}

// The steps of a key in a list; 0: the key does not move.
std::ptrdiff_t stepsOf(Key key, std::size_t page_rows) {
  constexpr std::ptrdiff_t kAll = 1 << 20;
  const auto page = static_cast<std::ptrdiff_t>(page_rows);
  switch (key) {
    case Key::up:
      return -1;
    case Key::down:
      return 1;
    case Key::page_up:
      return -page;
    case Key::page_down:
      return page;
    case Key::home:
      return -kAll;
    case Key::end:
      return kAll;
    default:
      return 0;
  }
}

void selectDevice(View& view, const ScreenModel& model, std::ptrdiff_t steps) {
  const auto devices = devicesInOrder(model, view);
  if (devices.empty()) return;
  const auto selected = std::ranges::find(devices, selectedDevice(model, view));
  const auto index = static_cast<std::size_t>(selected - devices.begin());
  view.device = devices[moved(index, steps, devices.size())]->name;
}

void selectField(View& view, const ScreenModel& model, std::ptrdiff_t steps) {
  const DeviceModel* const device = selectedDevice(model, view);
  if (!device) return;
  const auto fields = movedFields(*device);
  if (fields.empty()) return;
  const auto selected = std::ranges::find(fields, selectedField(*device, view));
  const auto index = static_cast<std::size_t>(selected - fields.begin());
  view.row = fields[moved(index, steps, fields.size())]->name;
}

// Goes through the fields in the order of their names. Before the first and after the last one, the
// planes are compared in the field in which they differ most.
void chooseField(View& view, const ScreenModel& model, int step) {
  std::vector<std::string> names = model.fields;
  std::ranges::sort(names);
  const auto found = view.field ? std::ranges::find(names, *view.field) : names.end();
  const std::size_t places = names.size() + 1;  // the last one is "where they differ most"
  const auto now = static_cast<std::size_t>(found - names.begin());
  const std::size_t next = (now + (step > 0 ? 1 : places - 1)) % places;
  view.field = next == names.size() ? std::nullopt : std::optional(names[next]);
}

void changeInterval(View& view, int step) {
  const auto at_least = std::ranges::lower_bound(kIntervals, view.interval);
  auto index = static_cast<std::size_t>(at_least - kIntervals.begin());
  const bool is_listed = at_least != kIntervals.end() && *at_least == view.interval;
  if (step < 0 || is_listed) index = moved(index, step, kIntervals.size());
  view.interval = kIntervals[std::min(index, kIntervals.size() - 1)];
}

void editFilter(View& view, const KeyPress& key) {
  switch (key.key) {
    case Key::character:
      view.filter += key.character;
      break;
    case Key::backspace:
      if (!view.filter.empty()) view.filter.pop_back();
      break;
    case Key::enter:
      view.editing_filter = false;
      break;
    case Key::escape:
      view.filter.clear();
      view.editing_filter = false;
      break;
    default:
      break;
  }
}

void pressCharacter(View& view, char character, const ScreenModel& model) {
  switch (character) {
    case 'q':
      view.ended = true;
      break;
    case '?':
    case 'h':
      view.help = true;
      break;
    case ' ':
    case 'p':
      view.paused = !view.paused;
      break;
    case '+':
    case '=':
      changeInterval(view, 1);
      break;
    case '-':
      changeInterval(view, -1);
      break;
    case 's':
      view.order =
          static_cast<View::Order>((static_cast<std::size_t>(view.order) + 1) % kOrderNames.size());
      break;
    case 'r':
      view.reversed = !view.reversed;
      break;
    case '/':
      view.page = View::Page::overview;
      view.editing_filter = true;
      break;
    case 'j':
    case 'k':
      press(view, {.key = character == 'j' ? Key::down : Key::up}, model, {});
      break;
    default:
      break;
  }
}

void clickOverview(View& view, const KeyPress& key, const ScreenModel& model,
                   const ScreenPlace& place) {
  const auto devices = devicesInOrder(model, view);
  if (key.row < place.first_row) return;
  const std::size_t index = key.row - place.first_row + place.first_device;
  if (index >= devices.size()) return;
  view.device = devices[index]->name;
  if (key.is_doubled) view.page = View::Page::adapter;
}

void pressOnOverview(View& view, const KeyPress& key, const ScreenModel& model,
                     const ScreenPlace& place) {
  switch (key.key) {
    case Key::left:
    case Key::right:
      chooseField(view, model, key.key == Key::right ? 1 : -1);
      break;
    case Key::enter:
      if (const DeviceModel* const device = selectedDevice(model, view)) {
        view.device = device->name;
        view.page = View::Page::adapter;
        view.first_column = 0;
        view.row = view.field ? *view.field : device->worst ? device->worst->field : "";
      }
      break;
    case Key::escape:
      view.filter.clear();
      break;
    case Key::click:
      clickOverview(view, key, model, place);
      break;
    default:
      if (const auto steps = stepsOf(key.key, place.page_rows)) selectDevice(view, model, steps);
      break;
  }
}

void pressOnAdapter(View& view, const KeyPress& key, const ScreenModel& model,
                    const ScreenPlace& place) {
  switch (key.key) {
    case Key::left:
      if (view.first_column > 0) --view.first_column;
      break;
    case Key::right:
      if (const DeviceModel* const device = selectedDevice(model, view);
          device && view.first_column + 1 < device->series.size())
        ++view.first_column;
      break;
    case Key::tab: {
      const auto devices = devicesInOrder(model, view);
      const auto selected = std::ranges::find(devices, selectedDevice(model, view));
      if (devices.empty()) break;
      const auto index = static_cast<std::size_t>(selected - devices.begin());
      view.device = devices[(index + 1) % devices.size()]->name;
      view.first_column = 0;
      break;
    }
    case Key::escape:
    case Key::backspace:
      view.page = View::Page::overview;
      break;
    default:
      if (const auto steps = stepsOf(key.key, place.page_rows)) selectField(view, model, steps);
      break;
  }
}

}  // namespace

const char* nameOf(View::Order order) {
  return kOrderNames[static_cast<std::size_t>(order)];
}

std::vector<const DeviceModel*> devicesInOrder(const ScreenModel& model, const View& view) {
  std::vector<const DeviceModel*> devices;
  for (const DeviceModel& device : model.devices)
    if (device.name.find(view.filter) != std::string::npos) devices.push_back(&device);
  const std::string field = view.field             ? *view.field
                            : model.fields.empty() ? std::string()
                                                   : model.fields.front();
  std::ranges::sort(devices, [&](const DeviceModel* a, const DeviceModel* b) {
    const double key_a = keyOf(*a, view.order, field);
    const double key_b = keyOf(*b, view.order, field);
    return std::tie(key_b, a->name) < std::tie(key_a, b->name);
  });
  if (view.reversed) std::reverse(devices.begin(), devices.end());
  return devices;
}

const DeviceModel* selectedDevice(const ScreenModel& model, const View& view) {
  const auto devices = devicesInOrder(model, view);
  const auto found = std::ranges::find(devices, view.device, &DeviceModel::name);
  if (found != devices.end()) return *found;
  return devices.empty() ? nullptr : devices.front();
}

std::vector<const FieldModel*> movedFields(const DeviceModel& device) {
  std::vector<const FieldModel*> fields;
  for (const FieldModel& field : device.fields)
    if (field.hasMoved()) fields.push_back(&field);
  return fields;
}

const FieldModel* selectedField(const DeviceModel& device, const View& view) {
  const auto fields = movedFields(device);
  const auto found = std::ranges::find(fields, view.row, &FieldModel::name);
  if (found != fields.end()) return *found;
  return fields.empty() ? nullptr : fields.front();
}

void press(View& view, const KeyPress& key, const ScreenModel& model, const ScreenPlace& place) {
  if (key.key == Key::none) return;
  if (view.help && !(key.key == Key::character && key.character == 'q')) {
    view.help = false;
  } else if (view.editing_filter) {
    editFilter(view, key);
  } else if (key.key == Key::character) {
    pressCharacter(view, key.character, model);
  } else if (view.page == View::Page::overview) {
    pressOnOverview(view, key, model, place);
  } else {
    pressOnAdapter(view, key, model, place);
  }
}

}  // namespace tev::host
