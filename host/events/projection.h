// Which events of a source an output takes, and how it names their columns.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/events/device_filter.h"
#include "host/events/schema_view.h"

namespace tev::host {

// The user's choice. By default, all events are taken.
struct SelectionOptions {
  std::optional<std::string> field_set;    // path of a field-set file
  std::optional<std::string> counter_set;  // path of a counter-set file
  std::vector<std::string> filters;        // filter expressions over the names of devices
};

struct ProjectedType {
  const TypeView* view;
  bool taken;                   // false when the sets do not select any of its columns
  std::vector<Column> columns;  // the chosen ones, in the order of the bytes, under new names
};

// The column's name in the type, which an alias may have replaced in a projection.
const std::string& ownName(const TypeView& type, const Column& column);

class Projection {
 public:
  // The field set and the counter set choose columns. Counters, that is, all columns outside the
  // key, get their aliases. Throws UsageError, with the names that exist, when a set cannot be
  // used. `schema` must outlive this.
  explicit Projection(const SchemaView& schema, const SelectionOptions& options = {});

  const SchemaView& schema() const { return schema_; }

  bool takes(const TypeView& type) const { return types_[type.number].taken; }
  const std::vector<Column>& columns(const TypeView& type) const {
    return types_[type.number].columns;
  }
  const DeviceFilter& devices() const { return devices_; }

  // The patterns of the counter set's tags "# counters=" and "# gauges=": what the user knows about
  // the kinds of fields.
  const std::vector<std::string>& taggedCounters() const { return tagged_counters_; }
  const std::vector<std::string>& taggedGauges() const { return tagged_gauges_; }

 private:
  void chooseFields(const std::string& path);
  void chooseCounters(const std::string& path);

  const SchemaView& schema_;
  std::vector<ProjectedType> types_;  // by the type's number
  std::vector<std::string> tagged_counters_;
  std::vector<std::string> tagged_gauges_;
  DeviceFilter devices_;
};

}  // namespace tev::host
