// JSON lines: one object per event.
#include <fmt/format.h>

#include <iterator>
#include <memory>

#include "host/outputs/derived_columns.h"
#include "host/outputs/health_lines.h"
#include "host/outputs/json_text.h"
#include "host/outputs/json_value.h"
#include "host/outputs/text_output.h"
#include "host/outputs/window_output.h"

namespace tev::host {
namespace {

class JsonlOutput final : public TextOutput {
 public:
  explicit JsonlOutput(const OutputSetup& setup)
      : TextOutput(setup), figures_(setup.figures), with_rates_(setup.rates) {
    const DerivedColumns derived(figures_);
    for (const TypeView& type : projection_.schema().types()) {
      Labels& labels = labels_.emplace_back();
      labels.type = jsonLabel("type");
      appendJsonText(labels.type, type.name);
      for (const Column& column : projection_.columns(type))
        labels.columns.push_back(jsonLabel(column.name));
      if (!with_rates_) continue;
      labels.type += jsonLabel(derived.kind());
      appendJsonText(labels.type, kindOf(type));
      labels.type += jsonLabel(derived.sample());
      for (const Column* const column : figures_.columns(type)) {
        const auto& names = derived.of(*column);
        labels.derived.push_back(
            {jsonLabel(names.total), jsonLabel(names.per_second), jsonLabel(names.mark)});
      }
    }
  }

  void event(const Event& event, const Series& series) override {
    const Labels& labels = labels_[event.type->number];
    std::string& out = file_.buffer();
    fmt::format_to(std::back_inserter(out), "{{\"timestamp\":{}", event.timestamp_usec);
    out += labels.type;
    if (with_rates_) fmt::format_to(std::back_inserter(out), "{}", figures_.of(series).samples);
    const std::vector<Column>& columns = projection_.columns(*event.type);
    for (std::size_t i = 0; i < columns.size(); ++i) {
      out += labels.columns[i];
      appendJsonValue(out, columns[i], event.data);
    }
    if (with_rates_) appendRates(out, labels, figures_.of(series));
    out += "}\n";
    file_.flushWhenLarge();
  }

  void update(const RunStatus& status) override {
    appendHealthLines(file_.buffer(), *status.health, status.now_usec);
    TextOutput::update(status);
  }

  void end(const RunStatus& status) override {
    appendHealthLines(file_.buffer(), *status.health, status.now_usec);
    TextOutput::end(status);
  }

 private:
  // The parts that all objects of a type have in common.
  struct Labels {
    std::string type;
    std::vector<std::string> columns;
    std::vector<DerivedColumns::Names> derived;  // by track
  };

  static void appendRates(std::string& out, const Labels& labels, const SeriesFigures& series) {
    for (std::size_t i = 0; i < labels.derived.size(); ++i) {
      const Derived derived = derive(series, i);
      out += labels.derived[i].total;
      if (derived.total)
        fmt::format_to(std::back_inserter(out), "{}", *derived.total);
      else
        out += "null";
      out += labels.derived[i].per_second;
      if (derived.per_second)
        appendJsonNumber(out, *derived.per_second);
      else
        out += "null";
      out += labels.derived[i].mark;
      appendJsonText(out, derived.mark);
    }
  }

  const Figures& figures_;
  bool with_rates_;
  std::vector<Labels> labels_;  // by the type's number
};

}  // namespace

std::unique_ptr<Output> makeJsonl(const OutputSetup& setup) {
  if (setup.window_usec) return makeWindowJsonl(setup);
  return std::make_unique<JsonlOutput>(setup);
}

}  // namespace tev::host
