// Comma-separated values: one table, whose columns are those of all types together.
#include <fmt/format.h>

#include <iterator>
#include <map>
#include <string_view>

#include "host/events/values.h"
#include "host/outputs/text_output.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

void appendField(std::string& out, std::string_view text) {
  if (text.find_first_of("\",\r\n") == std::string_view::npos) {
    out += text;
    return;
  }
  out += '"';
  for (const char character : text) {
    if (character == '"') out += '"';
    out += character;
  }
  out += '"';
}

class CsvOutput final : public TextOutput {
 public:
  explicit CsvOutput(const OutputSetup& setup) : TextOutput(setup) {
    const auto& types = projection_.schema().types();
    std::map<std::string_view, std::size_t> position_of;
    std::string& out = file_.buffer();
    out += "timestamp,type";
    for (const TypeView& type : types)
      for (const Column& column : projection_.columns(type)) {
        if (!position_of.emplace(column.name, position_of.size()).second) continue;
        out += ',';
        appendField(out, column.name);
      }
    out += '\n';

    for (const TypeView& type : types) {
      Row& row = rows_.emplace_back(position_of.size(), nullptr);
      for (const Column& column : projection_.columns(type))
        row[position_of.at(column.name)] = &column;
    }
  }

  void event(const Event& event, const Series&) override {
    std::string& out = file_.buffer();
    fmt::format_to(std::back_inserter(out), "{},", event.timestamp_usec);
    appendField(out, event.type->name);
    for (const Column* const column : rows_[event.type->number]) {
      out += ',';
      if (!column) continue;
      if (!isText(*column)) {  // digits and blanks need no quotes
        appendPlain(out, *column, event.data);
        continue;
      }
      value_.clear();
      appendPlain(value_, *column, event.data);
      appendField(out, value_);
    }
    out += '\n';
    file_.flushWhenLarge();
  }

 private:
  // The type's column for each column of the output; null when the type does not have it.
  using Row = std::vector<const Column*>;

  std::vector<Row> rows_;  // by the type's number
  std::string value_;      // a member so that its memory is reused
};

}  // namespace

std::unique_ptr<Output> makeCsv(const OutputSetup& setup) {
  return std::make_unique<CsvOutput>(setup);
}

}  // namespace tev::host
