// The pages of the screen: pure functions from the model and a size to lines.
#pragma once

#include <cstddef>

#include "host/screen/model.h"
#include "host/screen/styled_text.h"
#include "host/screen/symbols.h"
#include "host/screen/view.h"

namespace tev::host {

struct ScreenSize {
  std::size_t columns = 80;
  std::size_t rows = 24;
};

struct Page {
  Lines lines;               // those that do not fit are cut off
  std::size_t list_row = 0;  // where the list of devices or fields begins
  std::size_t list_rows = 0;
  std::size_t first_entry = 0;  // of the list
  std::size_t last_column = 0;  // see ScreenPlace
};

// A line for each device.
Page overviewPage(const ScreenModel& model, const View& view, const Symbols& symbols,
                  ScreenSize size);

// One device: a trace for each plane, and all fields.
Page adapterPage(const ScreenModel& model, const View& view, const Symbols& symbols,
                 ScreenSize size);

Page helpPage(const Symbols& symbols);

// The first entry to show of a list of `count`, so that the selected one is among `rows` entries.
std::size_t firstEntry(std::size_t selected, std::size_t count, std::size_t rows);

}  // namespace tev::host
