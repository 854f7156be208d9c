// Windows as comma-separated values: one line per series, window and field.
#include <fmt/format.h>

#include <iterator>

#include "host/outputs/csv_text.h"
#include "host/outputs/window_output.h"

namespace tev::host {
namespace {

constexpr char kHeader[] =
    "begin,end,type,kind,device,series,field,field_kind,samples,missing,causes,sum,unknown,"
    "lower_bound,uncertain,rate_mean,rate_max,rate_max_at,min,mean,max,p50,p99,worst,imbalance,"
    "significant,"
    "shares,state,from,to,reason,partial\n";

constexpr std::size_t kFigures = 12;     // from sum to p99
constexpr std::size_t kComparisons = 4;  // from worst to shares
constexpr std::size_t kConditions = 4;   // from state to reason; partial follows

void appendCommas(std::string& out, std::size_t count) {
  out.append(count, ',');
}

std::string seriesName(const Series& series) {
  std::string name;
  for (const std::string& key : series.keys) name += (name.empty() ? "" : " ") + key;
  return name;
}

class WindowCsv final : public WindowOutput {
 public:
  explicit WindowCsv(const OutputSetup& setup) : WindowOutput(setup) { file_.buffer() += kHeader; }

 protected:
  void append(std::string& out, const SeriesWindow& window) override {
    const Series& series = *window.series->series;
    const auto columns = figures_.columns(*series.type);
    for (std::size_t i = 0; i < columns.size(); ++i) {
      const Track& track = window.series->tracks[i];
      fmt::format_to(std::back_inserter(out), "{},{},window,", window.begin_usec, window.end_usec);
      appendCsvText(out, kindOf(*series.type));
      for (const std::string& text : {series.device, seriesName(series), columns[i]->name}) {
        out += ',';
        appendCsvText(out, text);
      }
      fmt::format_to(std::back_inserter(out), ",{},{},{},{},", nameOf(track.kind()), window.samples,
                     figures_.intervalUsec() > 0 ? fmt::format("{}", window.missing) : "", kCauses);
      if (track.counts())
        appendCounter(out, window.fields[i], window.series->uncertain[i]);
      else
        appendGauge(out, window, i);
      appendCommas(out, kComparisons + kConditions);
      out += isPartial(window) ? ",true\n" : ",false\n";
    }
  }

  void append(std::string& out, const DeviceWindow& window) override {
    for (const Comparison& field : window.fields) {
      fmt::format_to(std::back_inserter(out), "{},{},comparison,,", window.begin_usec,
                     window.end_usec);
      appendCsvText(out, window.device);
      out += ",,";
      appendCsvText(out, field.field);
      fmt::format_to(std::back_inserter(out), ",{}", nameOf(field.kind));
      appendCommas(out, 6);  // to lower_bound
      fmt::format_to(std::back_inserter(out), "{},{}", field.has_unknown, field.is_uncertain);
      appendCommas(out, kFigures - 3);
      appendCsvText(out, seriesName(*field.planes[field.worst]));
      fmt::format_to(std::back_inserter(out), ",{:.9g},{},", field.imbalance,
                     field.is_significant ? "true" : "false");
      if (field.kind != FieldKind::gauge) appendShares(out, field);
      appendCommas(out, kConditions + 1);
      out += '\n';
    }
  }

  void append(std::string& out, const RunStatus& status) override {
    for (const MissingSamples& one : status.health->missing()) {
      beginCondition(out, status.now_usec, "missing_samples", one.device);
      fmt::format_to(std::back_inserter(out), "{},{}", one.samples, one.cause);
      appendCommas(out, kFigures + kComparisons + 1);
      fmt::format_to(std::back_inserter(out), ",{},{},", one.from_usec, one.to_usec);
      appendCsvText(out, one.reason);
      out += ",\n";
    }
    for (const StateChange& change : status.health->changes()) {
      if (!isNews(change, *status.health)) continue;
      const DeviceHealth& device = status.health->devices()[change.device];
      beginCondition(out, status.now_usec, "device_state", device.counts.device);
      appendCommas(out, 1 + kFigures + kComparisons + 1);
      fmt::format_to(std::back_inserter(out), "{},{},{},", nameOf(device.state),
                     status.now_usec - change.lasted_usec, status.now_usec);
      appendCsvText(out, device.counts.last_failure);
      out += ",\n";
    }
  }

 private:
  // The columns up to `samples`.
  static void beginCondition(std::string& out, std::uint64_t now_usec, const char* type,
                             const std::string& device) {
    fmt::format_to(std::back_inserter(out), "{},{},{},,", now_usec, now_usec, type);
    appendCsvText(out, device);
    appendCommas(out, 5);
  }

  static void appendCounter(std::string& out, const FieldWindow& field, bool is_uncertain) {
    fmt::format_to(std::back_inserter(out), "{},{},{},{}", field.sum, field.unknown,
                   field.unknown > 0, is_uncertain);
    if (const auto mean = field.meanPerSecond())
      fmt::format_to(std::back_inserter(out), ",{:.9g},{:.9g},{}", *mean,
                     field.highest_per_usec * 1e6, field.highest_at_usec);
    else
      appendCommas(out, 3);
    appendCommas(out, 5);
  }

  static void appendGauge(std::string& out, const SeriesWindow& window, std::size_t field) {
    appendCommas(out, 7);
    fmt::format_to(std::back_inserter(out), "{},{:.9g},{},{},{}", window.fields[field].min,
                   window.mean(field), window.fields[field].max, window.quantile(field, 0.5),
                   window.quantile(field, 0.99));
  }

  // "0=0.25 1=0.75".
  static void appendShares(std::string& out, const Comparison& field) {
    std::string text;
    for (std::size_t i = 0; i < field.planes.size(); ++i)
      text += fmt::format("{}{}={:.6g}", i > 0 ? " " : "", seriesName(*field.planes[i]),
                          field.share(i));
    appendCsvText(out, text);
  }
};

}  // namespace

std::unique_ptr<Output> makeWindowCsv(const OutputSetup& setup) {
  return std::make_unique<WindowCsv>(setup);
}

}  // namespace tev::host
