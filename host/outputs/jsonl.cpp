// JSON lines: one object per event.
#include <fmt/format.h>

#include <iterator>
#include <string_view>

#include "host/events/values.h"
#include "host/outputs/text_output.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

void appendQuoted(std::string& out, std::string_view text) {
  out += '"';
  for (const char character : asUtf8(text)) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte == '"' || byte == '\\') out += '\\';
    if (byte < 0x20 || byte == 0x7f)
      fmt::format_to(std::back_inserter(out), "\\u{:04x}", byte);
    else
      out += character;
  }
  out += '"';
}

void appendNumber(std::string& out, const Column& column, const std::uint8_t* event,
                  std::size_t element) {
  if (isFinite(column, event, element))
    appendElement(out, column, event, element);
  else
    out += "null";
}

void appendValue(std::string& out, const Column& column, const std::uint8_t* event) {
  if (isText(column)) return appendQuoted(out, textOf(column, event));
  if (column.count == 1) return appendNumber(out, column, event, 0);
  out += '[';
  for (std::size_t i = 0; i < column.count; ++i) {
    if (i > 0) out += ',';
    appendNumber(out, column, event, i);
  }
  out += ']';
}

class JsonlOutput final : public TextOutput {
 public:
  explicit JsonlOutput(const OutputSetup& setup) : TextOutput(setup) {
    for (const TypeView& type : projection_.schema().types()) {
      Labels& labels = labels_.emplace_back();
      labels.type = ",\"type\":";
      appendQuoted(labels.type, type.name);
      for (const Column& column : projection_.columns(type)) {
        std::string& label = labels.columns.emplace_back(",");
        appendQuoted(label, column.name);
        label += ':';
      }
    }
  }

  void event(const Event& event, const Series&) override {
    const Labels& labels = labels_[event.type->number];
    std::string& out = file_.buffer();
    fmt::format_to(std::back_inserter(out), "{{\"timestamp\":{}", event.timestamp_usec);
    out += labels.type;
    const std::vector<Column>& columns = projection_.columns(*event.type);
    for (std::size_t i = 0; i < columns.size(); ++i) {
      out += labels.columns[i];
      appendValue(out, columns[i], event.data);
    }
    out += "}\n";
    file_.flushWhenLarge();
  }

 private:
  // The parts that all objects of a type have in common.
  struct Labels {
    std::string type;
    std::vector<std::string> columns;
  };

  std::vector<Labels> labels_;  // by the type's number
};

}  // namespace

std::unique_ptr<Output> makeJsonl(const OutputSetup& setup) {
  return std::make_unique<JsonlOutput>(setup);
}

}  // namespace tev::host
