#include "host/screen/view.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <optional>
#include <string_view>

namespace tev::host {
namespace {

using std::chrono::milliseconds;

constexpr std::array<const char*, 4> kOrderNames{"worst", "name", "rate", "missing"};
constexpr std::array kIntervals{milliseconds(100),  milliseconds(200),  milliseconds(500),
                                milliseconds(1000), milliseconds(2000), milliseconds(5000),
                                milliseconds(10000)};

// Devices that do not deliver come first, then those whose planes differ most, as it is shown.
double badnessOf(const DeviceEntry& entry) {
  constexpr double kNotSampling = 1e6;
  if (!entry.device->isSampling())
    return kNotSampling * (static_cast<double>(entry.device->health.state) + 1);
  return entry.worst ? std::round(entry.worst->comparison->imbalance * 10) : 0;
}

// The rate of a counter, or the value of a gauge; -1: not known.
double amountOf(const DeviceModel& device, std::size_t number) {
  const FieldModel* const field = device.field(number);
  const auto figure = field ? figureOf(*field) : std::nullopt;
  return figure ? figure->amount.value_or(-1) : -1;
}

double keyOf(const DeviceEntry& entry, View::Order order, std::size_t field) {
  switch (order) {
    case View::Order::worst:
      return badnessOf(entry);
    case View::Order::name:
      return 0;
    case View::Order::rate:
      return amountOf(*entry.device, field);
    case View::Order::missing:
      return static_cast<double>(missingSamples(entry.device->health.counts));
  }
  return 0;
}

// Whether `a` stands before `b`: digits are compared as numbers, so rdma2 stands before rdma10.
bool isInOrder(std::string_view a, std::string_view b) {
  const auto takeNumber = [](std::string_view& text) {
    const std::size_t end = std::min(text.find_first_not_of("0123456789"), text.size());
    std::string_view digits = text.substr(0, end);
    text.remove_prefix(end);
    digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
    return digits;
  };
  while (!a.empty() && !b.empty()) {
    const auto isDigit = [](char one) { return one >= '0' && one <= '9'; };
    if (isDigit(a.front()) && isDigit(b.front())) {
      const std::string_view one = takeNumber(a);
      const std::string_view other = takeNumber(b);
      if (one.size() != other.size()) return one.size() < other.size();
      if (one != other) return one < other;
    } else if (a.front() != b.front()) {
      return a.front() < b.front();
    } else {
      a.remove_prefix(1);
      b.remove_prefix(1);
    }
  }
  return a.size() < b.size();
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
  view.device = devices[moved(selectedPlace(devices, view), steps, devices.size())].device->name;
}

void selectField(View& view, const ScreenModel& model, std::ptrdiff_t steps) {
  const DeviceModel* const device = selectedDevice(model, view);
  if (!device) return;
  const auto fields = movedFields(*device);
  if (fields.empty()) return;
  view.row = fields[moved(selectedPlace(fields, view), steps, fields.size())]->number;
}

bool isCompared(const ScreenModel& model, std::size_t number) {
  return std::ranges::any_of(model.devices, [number](const DeviceModel& device) {
    const FieldModel* const field = device.field(number);
    return field && field->isCompared() && field->hasMoved();
  });
}

// Goes through the fields that planes have. Before the first and after the last one, the planes are
// compared in the field in which they differ most.
void chooseField(View& view, const ScreenModel& model, int step) {
  std::vector<std::optional<std::size_t>> choices{std::nullopt};
  for (std::size_t number = 0; number < model.names.size(); ++number)
    if (isCompared(model, number)) choices.emplace_back(number);
  const auto found = std::ranges::find(choices, view.field);
  const auto now = found == choices.end() ? 0 : static_cast<std::size_t>(found - choices.begin());
  view.field = choices[(now + (step > 0 ? 1 : choices.size() - 1)) % choices.size()];
}

// To the next longer or shorter interval, if there is one.
void changeInterval(View& view, int step) {
  if (step > 0) {
    const auto longer = std::ranges::upper_bound(kIntervals, view.interval);
    if (longer != kIntervals.end()) view.interval = *longer;
  } else {
    const auto as_long = std::ranges::lower_bound(kIntervals, view.interval);
    if (as_long != kIntervals.begin()) view.interval = *std::prev(as_long);
  }
}

void editFilter(View& view, const KeyPress& key, const ScreenModel& model) {
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
      if (const auto steps = stepsOf(key.key, 1)) selectDevice(view, model, steps);
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

void openAdapter(View& view, const ScreenModel& model) {
  const DeviceModel* const device = selectedDevice(model, view);
  if (!device) return;
  view.device = device->name;
  view.page = View::Page::adapter;
  view.first_column = 0;
  const auto worst = worstPlane(model, *device, view.field);
  if (worst)
    view.row = worst->field->number;
  else if (view.field)
    view.row = *view.field;
}

void clickOverview(View& view, const KeyPress& key, const ScreenModel& model,
                   const ScreenPlace& place) {
  const auto devices = devicesInOrder(model, view);
  if (key.row < place.first_row) return;
  const std::size_t index = key.row - place.first_row + place.first_device;
  if (index >= devices.size()) return;
  view.device = devices[index].device->name;
  if (key.is_doubled) openAdapter(view, model);
}

void pressOnOverview(View& view, const KeyPress& key, const ScreenModel& model,
                     const ScreenPlace& place) {
  switch (key.key) {
    case Key::left:
    case Key::right:
      chooseField(view, model, key.key == Key::right ? 1 : -1);
      break;
    case Key::enter:
      openAdapter(view, model);
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
      if (view.first_column < place.last_column) ++view.first_column;
      break;
    case Key::tab: {
      const auto devices = devicesInOrder(model, view);
      if (devices.empty()) break;
      view.device = devices[(selectedPlace(devices, view) + 1) % devices.size()].device->name;
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

std::vector<DeviceEntry> devicesInOrder(const ScreenModel& model, const View& view) {
  std::vector<DeviceEntry> devices;
  for (const DeviceModel& device : model.devices)
    if (device.name.find(view.filter) != std::string::npos)
      devices.push_back({&device, worstPlane(model, device, view.field)});
  const std::size_t field = view.field              ? *view.field
                            : model.ranking.empty() ? 0
                                                    : model.ranking.front();
  std::ranges::sort(devices, [&](const DeviceEntry& a, const DeviceEntry& b) {
    const double key_a = keyOf(a, view.order, field);
    const double key_b = keyOf(b, view.order, field);
    return key_a != key_b ? key_a > key_b : isInOrder(a.device->name, b.device->name);
  });
  if (view.reversed) std::reverse(devices.begin(), devices.end());
  return devices;
}

std::size_t selectedPlace(const std::vector<DeviceEntry>& devices, const View& view) {
  const auto found = std::ranges::find_if(
      devices, [&](const DeviceEntry& entry) { return entry.device->name == view.device; });
  return found == devices.end() ? 0 : static_cast<std::size_t>(found - devices.begin());
}

const DeviceModel* selectedDevice(const ScreenModel& model, const View& view) {
  const auto devices = devicesInOrder(model, view);
  return devices.empty() ? nullptr : devices[selectedPlace(devices, view)].device;
}

std::vector<const FieldModel*> movedFields(const DeviceModel& device) {
  std::vector<const FieldModel*> fields;
  for (const FieldModel& field : device.fields)
    if (field.hasMoved()) fields.push_back(&field);
  return fields;
}

std::size_t selectedPlace(const std::vector<const FieldModel*>& fields, const View& view) {
  const auto found = std::ranges::find(fields, view.row, &FieldModel::number);
  return found == fields.end() ? 0 : static_cast<std::size_t>(found - fields.begin());
}

void press(View& view, const KeyPress& key, const ScreenModel& model, const ScreenPlace& place) {
  if (key.key == Key::none) return;
  if (view.help && !(key.key == Key::character && key.character == 'q')) {
    view.help = false;
  } else if (view.editing_filter) {
    editFilter(view, key, model);
  } else if (key.key == Key::character) {
    pressCharacter(view, key.character, model);
  } else if (view.page == View::Page::overview) {
    pressOnOverview(view, key, model, place);
  } else {
    pressOnAdapter(view, key, model, place);
  }
}

}  // namespace tev::host
