// Comma-separated values: one table, whose columns are those of all types together.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string_view>

#include "host/events/values.h"
#include "host/outputs/csv_text.h"
#include "host/outputs/derived_columns.h"
#include "host/outputs/text_output.h"
#include "host/outputs/window_output.h"

namespace tev::host {
namespace {

template <class Number>
void appendIfAny(std::string& out, const char* format, const std::optional<Number>& number) {
  if (number) fmt::format_to(std::back_inserter(out), fmt::runtime(format), *number);
}

class CsvOutput final : public TextOutput {
 public:
  explicit CsvOutput(const OutputSetup& setup)
      : TextOutput(setup), figures_(setup.figures), with_rates_(setup.rates) {
    std::map<std::string_view, std::size_t> position_of;
    std::string& out = file_.buffer();
    out += "timestamp,type";
    if (with_rates_) {
      const DerivedColumns derived(figures_);
      for (const std::string& name : {derived.kind(), derived.sample()}) appendHeading(name);
    }
    const auto& types = projection_.schema().types();
    for (const TypeView& type : types)
      for (const Column& column : projection_.columns(type))
        if (position_of.emplace(column.name, position_of.size()).second) appendHeading(column.name);
    for (const TypeView& type : types) {
      Row& row = rows_.emplace_back();
      appendCsvText(row.type, type.name);
      row.kind = kindOf(type);
      row.columns.resize(position_of.size());
      for (const Column& column : projection_.columns(type))
        row.columns[position_of.at(column.name)] = &column;
    }
    fields_ = position_of.size();
    if (with_rates_) addDerivedColumns();
    out += '\n';
  }

  void event(const Event& event, const Series& series) override {
    const Row& row = rows_[event.type->number];
    std::string& out = file_.buffer();
    fmt::format_to(std::back_inserter(out), "{},", event.timestamp_usec);
    out += row.type;
    if (with_rates_) {
      out += ',';
      appendCsvText(out, row.kind);
      fmt::format_to(std::back_inserter(out), ",{}", figures_.of(series).samples);
    }
    const std::string* key = keysOf(series, event).data();
    for (const Column* const column : row.columns) {
      if (column && column->key == 0 && isCounterSized(*column)) {
        appendCounter(out, unsignedOf(*column, event.data));
        continue;
      }
      out += ',';
      if (!column) continue;
      if (column->key != 0)
        out += *key++;
      else
        appendValue(out, *column, event);
    }
    if (with_rates_) appendRates(row, figures_.of(series));
    out += '\n';
    file_.flushWhenLarge();
  }

  void update(const RunStatus& status) override {
    if (with_rates_) appendHealth(status);
    TextOutput::update(status);
  }

  void end(const RunStatus& status) override {
    if (with_rates_) appendHealth(status);
    TextOutput::end(status);
  }

 private:
  // A type's columns and tracks for each column of the output.
  struct Row {
    std::string type;  // its name
    std::string kind;
    std::vector<const Column*> columns;  // null when the type does not have it
    std::vector<int> tracks;             // -1 when the type does not have it
  };

  void appendHeading(const std::string& name) {
    file_.buffer() += ',';
    appendCsvText(file_.buffer(), name);
  }

  void addDerivedColumns() {
    const DerivedColumns derived(figures_);
    const auto& types = projection_.schema().types();
    std::map<std::string_view, std::size_t> position_of;
    for (const TypeView& type : types)
      for (const Column* const column : figures_.columns(type)) {
        if (!position_of.emplace(column->name, position_of.size()).second) continue;
        const auto& names = derived.of(*column);
        for (const std::string& name : {names.total, names.per_second, names.mark})
          appendHeading(name);
      }
    for (const char* const name : kMissingColumns) appendHeading(derived.missing(name));
    for (const TypeView& type : types) {
      Row& row = rows_[type.number];
      row.tracks.resize(position_of.size(), -1);
      int track = 0;
      for (const Column* const column : figures_.columns(type))
        row.tracks[position_of.at(column->name)] = track++;
    }
  }

  // Most values are counters. One call to append them with the comma is faster than two.
  static void appendCounter(std::string& out, std::uint64_t value) {
    char text[1 + std::numeric_limits<std::uint64_t>::digits10 + 1] = {','};
    const char* const end = std::to_chars(std::begin(text) + 1, std::end(text), value).ptr;
    out.append(text, static_cast<std::size_t>(end - text));
  }

  void appendValue(std::string& out, const Column& column, const Event& event) {
    if (!isText(column)) {  // digits and blanks need no quotes
      appendPlain(out, column, event.data);
      return;
    }
    value_.clear();
    appendPlain(value_, column, event.data);
    appendCsvText(out, value_);
  }

  // The texts of the key columns, in the order of the columns of the output.
  const std::vector<std::string>& keysOf(const Series& series, const Event& event) {
    if (keys_.size() <= series.number) keys_.resize(series.number + 1);
    std::vector<std::string>& keys = keys_[series.number];
    if (keys.empty())
      for (const Column* const column : rows_[series.type->number].columns)
        if (column && column->key != 0) appendValue(keys.emplace_back(), *column, event);
    return keys;
  }

  void appendRates(const Row& row, const SeriesFigures& series) {
    std::string& out = file_.buffer();
    for (const int track : row.tracks) {
      const Derived derived =
          track < 0 ? Derived() : derive(series, static_cast<std::size_t>(track));
      out += ',';
      appendIfAny(out, "{}", derived.total);
      out += ',';
      appendIfAny(out, "{:.9g}", derived.per_second);
      out += ',';
      out += derived.mark;
    }
    out.append(std::size(kMissingColumns), ',');
  }

  // Lines of type "missing_samples" and "device_state".
  void appendHealth(const RunStatus& status) {
    for (const MissingSamples& one : status.health->missing())
      appendHealthLine(
          status.now_usec, "missing_samples",
          {one.device, "", one.cause, fmt::format("{}", one.from_usec),
           fmt::format("{}", one.to_usec), fmt::format("{}", one.samples), one.reason});
    for (const StateChange& change : status.health->changes()) {
      if (!isNews(change, *status.health)) continue;
      const DeviceHealth& device = status.health->devices()[change.device];
      const std::uint64_t from = status.now_usec - std::min(status.now_usec, change.lasted_usec);
      appendHealthLine(
          status.now_usec, "device_state",
          {device.counts.device, nameOf(device.state), "", fmt::format("{}", from),
           fmt::format("{}", status.now_usec), fmt::format("{}", missingSamples(device.counts)),
           device.counts.last_failure});
    }
  }

  void appendHealthLine(std::uint64_t now_usec, const char* type,
                        const std::array<std::string, std::size(kMissingColumns)>& values) {
    std::string& out = file_.buffer();
    fmt::format_to(std::back_inserter(out), "{},{}", now_usec, type);
    out.append(2 + fields_ + 3 * rows_.front().tracks.size(), ',');
    for (const std::string& value : values) {
      out += ',';
      appendCsvText(out, value);
    }
    out += '\n';
  }

  const Figures& figures_;
  bool with_rates_;
  std::size_t fields_ = 0;                      // columns of the events
  std::vector<Row> rows_;                       // by the type's number
  std::vector<std::vector<std::string>> keys_;  // by the series' number
  std::string value_;                           // a member so that its memory is reused
};

}  // namespace

std::unique_ptr<Output> makeCsv(const OutputSetup& setup) {
  if (setup.window_usec) return makeWindowCsv(setup);
  return std::make_unique<CsvOutput>(setup);
}

}  // namespace tev::host
