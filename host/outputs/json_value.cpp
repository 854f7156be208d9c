#include "host/outputs/json_value.h"

#include "host/events/values.h"
#include "host/outputs/json_text.h"

namespace tev::host {
namespace {

void appendNumber(std::string& out, const Column& column, const std::uint8_t* event,
                  std::size_t element) {
  if (isFinite(column, event, element))
    appendElement(out, column, event, element);
  else
    out += "null";
}

}  // namespace

void appendJsonValue(std::string& out, const Column& column, const std::uint8_t* event) {
  if (isText(column)) return appendJsonText(out, textOf(column, event));
  if (column.count == 1) return appendNumber(out, column, event, 0);
  out += '[';
  for (std::size_t i = 0; i < column.count; ++i) {
    if (i > 0) out += ',';
    appendNumber(out, column, event, i);
  }
  out += ']';
}

std::string jsonLabel(const std::string& name) {
  std::string text = ",";
  appendJsonText(text, name);
  return text + ':';
}

}  // namespace tev::host
