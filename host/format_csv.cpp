// Comma-separated values: one table for all types, whose columns are those of all types together.
#include <fmt/format.h>

#include <iterator>
#include <map>
#include <string_view>

#include "host/formatter.h"
#include "host/text.h"
#include "host/values.h"

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

class CsvFormatter : public Formatter {
 public:
  CsvFormatter(const SchemaView& schema, OutputFile& output) : output_(output) {
    std::map<std::string_view, std::size_t> position_of;
    std::string& out = output_.buffer();
    out += "timestamp,type";
    for (const TypeView& type : schema.types())
      for (const Column& column : type.columns) {
        if (!position_of.emplace(column.name, position_of.size()).second) continue;
        out += ',';
        appendField(out, column.name);
      }
    out += '\n';

    for (const TypeView& type : schema.types()) {
      Row& row = rows_.emplace_back(position_of.size(), nullptr);
      for (const Column& column : type.columns) row[position_of.at(column.name)] = &column;
    }
  }

  void event(const Event& event, const Series&) override {
    std::string& out = output_.buffer();
    fmt::format_to(std::back_inserter(out), "{},", event.timestamp_usec);
    appendField(out, event.type->name);
    for (const Column* const column : rows_[event.type->number]) {
      out += ',';
      if (!column) continue;
      if (!isText(*column)) {  // digits, blanks, and nothing to quote
        appendPlain(out, *column, event.data);
        continue;
      }
      value_.clear();
      appendPlain(value_, *column, event.data);
      appendField(out, value_);
    }
    out += '\n';
  }

 private:
  // What stands in each column of the output; null: nothing.
  using Row = std::vector<const Column*>;

  OutputFile& output_;
  std::vector<Row> rows_;  // by the type's number
  std::string value_;      // a member so that its memory is reused
};

}  // namespace

std::unique_ptr<Formatter> makeCsvFormatter(const SchemaView& schema, OutputFile& output) {
  return std::make_unique<CsvFormatter>(schema, output);
}

}  // namespace tev::host
