// What the user has chosen to see. Keys change it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/screen/keys.h"
#include "host/screen/model.h"

namespace tev::host {

struct View {
  enum class Page : std::uint8_t { overview, adapter };
  enum class Order : std::uint8_t { worst, name, rate, missing };

  Page page = Page::overview;
  bool help = false;  // covers the page
  bool paused = false;
  bool ended = false;
  std::string device;  // the selected one; empty: the first
  // The number of the field by which planes are compared; nothing: where they differ most.
  std::optional<std::size_t> field;
  Order order = Order::worst;
  bool reversed = false;
  std::string filter;                        // part of a device's name
  bool editing_filter = false;               // keys go to the filter
  std::size_t row = 0;                       // number of the selected field of the adapter's page
  std::size_t first_column = 0;              // of the adapter's page
  std::chrono::milliseconds interval{1000};  // between two updates
};

// "worst", "name", "rate" or "missing".
const char* nameOf(View::Order order);

struct DeviceEntry {
  const DeviceModel* device;
  std::optional<WorstPlane> worst;
};

// The devices that pass the filter, in the chosen order.
std::vector<DeviceEntry> devicesInOrder(const ScreenModel& model, const View& view);

// The place of the selected device in this list; 0 when it is not in the list.
std::size_t selectedPlace(const std::vector<DeviceEntry>& devices, const View& view);

// The selected device; null when no device passes the filter.
const DeviceModel* selectedDevice(const ScreenModel& model, const View& view);

// The fields of the adapter's page: those that have moved.
std::vector<const FieldModel*> movedFields(const DeviceModel& device);

// The place of the selected field in this list; 0 when it is not in the list.
std::size_t selectedPlace(const std::vector<const FieldModel*>& fields, const View& view);

// Where the list is on the screen that the user sees.
struct ScreenPlace {
  std::size_t page_rows = 1;     // lines of the list
  std::size_t first_row = 0;     // the list's first row, from the top of the screen
  std::size_t first_device = 0;  // of the overview: the device in that row
  std::size_t last_column = 0;   // of the adapter's page: the largest View::first_column
};

void press(View& view, const KeyPress& key, const ScreenModel& model, const ScreenPlace& place);

}  // namespace tev::host
