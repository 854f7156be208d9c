// What comes out of the serializer, on its way to the output.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "host/formatter.h"
#include "host/schema_view.h"
#include "host/selection.h"
#include "host/series.h"

namespace tev::host {

struct TypeTotals {
  std::uint64_t events = 0;
  std::uint64_t bytes = 0;  // of the events alone
};

// Decodes, counts, and passes on to a formatter: all events of the wanted types and devices, or the
// first `samples` of each series of these.
class Delivery {
 public:
  Delivery(const SchemaView& schema, const DeviceFilter& devices, Formatter& formatter,
           std::optional<std::uint64_t> samples);

  // Throws RunError for blocks that do not hold together.
  void consume(std::span<const std::uint8_t> blocks);

  // Whether every wanted series has had its samples. One that has fallen far behind the others, by
  // more than as many samples again, is not waited for: its device has most likely gone.
  bool isComplete() const;

  // Whether events of other devices keep coming, and none of a wanted one.
  bool isHopeless() const;

  // Of all devices, and the wanted types.
  const SeriesTable& series() const { return series_; }

  const SchemaView& schema() const { return schema_; }
  const DeviceFilter& devices() const { return devices_; }

  // Of what was passed on, by the type's number.
  const std::vector<TypeTotals>& totals() const { return totals_; }

 private:
  void take(const Event& event);

  const SchemaView& schema_;
  const DeviceFilter& devices_;
  Formatter& formatter_;
  std::optional<std::uint64_t> samples_;
  SeriesTable series_;
  std::vector<TypeTotals> totals_;
};

}  // namespace tev::host
