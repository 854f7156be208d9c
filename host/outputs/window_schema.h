// The types of window records, one for each type of event. A record has the figures of one series
// in one window.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/events/decoder.h"
#include "host/events/schema_view.h"
#include "host/figures/windows.h"

namespace tev::host {

class WindowSchema {
 public:
  // Where the type of a record is: the indexes of a block.
  struct Place {
    std::uint8_t schema = 0;
    std::uint8_t type = 0;
  };

  // Describes the fields that the figures follow. Throws UsageError when there are none, and when a
  // record would have more columns than readers accept.
  explicit WindowSchema(const Figures& figures);

  // Each schema has the index of the one that it was made from.
  const SchemaView& view() const { return view_; }

  // Whether the type has windows: one of its fields is followed.
  bool has(const TypeView& type) const { return places_[type.number].has_value(); }

  // The type of the windows of the type with this number, which has windows.
  Place placeOf(std::size_t type) const { return *places_[type]; }

 private:
  const Figures& figures_;
  std::vector<std::optional<Place>> places_;  // by the type's number
  SchemaView view_;

  SchemaView makeView();
};

// The bytes of the event's key, with which the record of its series begins.
std::vector<std::uint8_t> keyOf(const Event& event);

// Appends the record of a window.
void appendRecord(std::vector<std::uint8_t>& out, const std::vector<std::uint8_t>& key,
                  const SeriesWindow& window, bool is_partial);

// The column of a record that has the number of samples; null for other types.
const Column* samplesColumn(const TypeView& type);

}  // namespace tev::host
