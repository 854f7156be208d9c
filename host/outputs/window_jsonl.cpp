// Windows as JSON lines.
#include <fmt/format.h>

#include <iterator>

#include "host/outputs/health_lines.h"
#include "host/outputs/json_text.h"
#include "host/outputs/window_output.h"

namespace tev::host {
namespace {

void appendMember(std::string& out, const char* name, double number) {
  fmt::format_to(std::back_inserter(out), ",\"{}\":", name);
  appendJsonNumber(out, number);
}

void appendText(std::string& out, const char* name, std::string_view text) {
  fmt::format_to(std::back_inserter(out), ",\"{}\":", name);
  appendJsonText(out, text);
}

// The rest of a key, as members: `,"plane":"3"`.
void appendKeys(std::string& out, const Series& series) {
  for (std::size_t i = 0; i < series.keys.size(); ++i) {
    out += ',';
    appendJsonText(out, series.type->keys[i + 1].name);
    out += ':';
    appendJsonText(out, series.keys[i]);
  }
}

void appendCounter(std::string& out, const FieldWindow& field, bool is_uncertain) {
  fmt::format_to(std::back_inserter(out),
                 R"(,"sum":{},"unknown":{},"lower_bound":{},"uncertain":{})", field.sum,
                 field.unknown, field.unknown > 0, is_uncertain);
  const auto mean = field.meanPerSecond();
  if (!mean) {
    out += R"(,"rate_mean":null,"rate_max":null,"rate_max_at":null)";
    return;
  }
  appendMember(out, "rate_mean", *mean);
  appendMember(out, "rate_max", field.highest_per_usec * 1e6);
  fmt::format_to(std::back_inserter(out), R"(,"rate_max_at":{})", field.highest_at_usec);
}

void appendGauge(std::string& out, const SeriesWindow& window, std::size_t field) {
  fmt::format_to(std::back_inserter(out), R"(,"min":{},"max":{},"p50":{},"p99":{})",
                 window.fields[field].min, window.fields[field].max, window.quantile(field, 0.5),
                 window.quantile(field, 0.99));
  appendMember(out, "mean", window.mean(field));
}

class WindowJsonl final : public WindowOutput {
 public:
  explicit WindowJsonl(const OutputSetup& setup) : WindowOutput(setup) {}

 protected:
  void append(std::string& out, const SeriesWindow& window) override {
    const Series& series = *window.series->series;
    fmt::format_to(std::back_inserter(out), R"({{"begin":{},"end":{},"type":"window")",
                   window.begin_usec, window.end_usec);
    appendText(out, "kind", kindOf(*series.type));
    appendText(out, "device", series.device);
    appendKeys(out, series);
    fmt::format_to(std::back_inserter(out),
                   R"(,"partial":{},"samples":{},"missing":{},"causes":"{}","fields":{{)",
                   isPartial(window), window.samples, window.missing, kCauses);
    const auto columns = figures_.columns(*series.type);
    for (std::size_t i = 0; i < columns.size(); ++i) {
      const Track& track = window.series->tracks[i];
      if (i > 0) out += ',';
      appendJsonText(out, columns[i]->name);
      fmt::format_to(std::back_inserter(out), R"(:{{"kind":"{}")", nameOf(track.kind()));
      if (track.counts())
        appendCounter(out, window.fields[i], window.series->uncertain[i]);
      else
        appendGauge(out, window, i);
      out += '}';
    }
    out += "}}\n";
  }

  void append(std::string& out, const DeviceWindow& window) override {
    fmt::format_to(std::back_inserter(out), R"({{"begin":{},"end":{},"type":"comparison")",
                   window.begin_usec, window.end_usec);
    appendText(out, "device", window.device);
    out += ",\"fields\":{";
    for (std::size_t i = 0; i < window.fields.size(); ++i) {
      const Comparison& field = window.fields[i];
      if (i > 0) out += ',';
      appendJsonText(out, field.field);
      fmt::format_to(std::back_inserter(out), R"(:{{"kind":"{}","lower_bound":{},"uncertain":{})",
                     nameOf(field.kind), field.has_unknown, field.is_uncertain);
      appendMember(out, "imbalance", field.imbalance);
      fmt::format_to(std::back_inserter(out), R"(,"significant":{})", field.is_significant);
      appendText(out, "worst", lastKey(*field.planes[field.worst]));
      if (field.kind != FieldKind::gauge) appendShares(out, field);
      out += '}';
    }
    out += "}}\n";
  }

  void append(std::string& out, const RunStatus& status) override {
    appendHealthLines(out, *status.health, status.now_usec);
  }

 private:
  static const std::string& lastKey(const Series& series) { return series.keys.back(); }

  static void appendShares(std::string& out, const Comparison& field) {
    out += ",\"shares\":{";
    for (std::size_t i = 0; i < field.planes.size(); ++i) {
      if (i > 0) out += ',';
      appendJsonText(out, lastKey(*field.planes[i]));
      out += ':';
      appendJsonNumber(out, field.share(i));
    }
    out += '}';
  }
};

}  // namespace

std::unique_ptr<Output> makeWindowJsonl(const OutputSetup& setup) {
  return std::make_unique<WindowJsonl>(setup);
}

}  // namespace tev::host
