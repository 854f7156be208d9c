#include "host/plot/page_model.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/events/byte_counters.h"
#include "host/figures/comparison.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

using Json = nlohmann::ordered_json;

PageDevice& deviceNamed(std::vector<PageDevice>& devices, const std::string& name) {
  const auto found = std::ranges::find(devices, name, &PageDevice::name);
  if (found != devices.end()) return *found;
  PageDevice& added = devices.emplace_back();
  added.name = name;
  return added;
}

PageField& fieldOf(PageDevice& device, const Column& column, bool is_plane, FieldKind kind) {
  const auto found = std::ranges::find_if(device.fields, [&](const PageField& one) {
    return one.is_plane == is_plane && one.kind == kind && one.column->name == column.name;
  });
  if (found != device.fields.end()) return *found;
  PageField& added = device.fields.emplace_back();
  added.column = &column;
  added.is_plane = is_plane;
  added.kind = kind;
  return added;
}

void addSeries(PageDevice& device, const SeriesRows& rows, const Figures& figures) {
  const Series& series = *rows.figures().series;
  device.series.push_back(&series);
  const auto columns = figures.columns(*series.type);
  for (std::size_t i = 0; i < columns.size(); ++i)
    fieldOf(device, *columns[i], isPlane(series), rows.figures().tracks[i].kind())
        .members.push_back({device.series.size() - 1, i, &rows});
}

Json counterJson(const PageField& field, const PageField::Member& member) {
  const Track& track = field.trackOf(member);
  Json json{{"total", std::to_string(track.total())},
            {"unknown", track.unknownSteps()},
            {"highest", track.highestPerSecond()}};
  if (const auto per_second = perSecondSince(TrackMark(), track)) json["mean"] = *per_second;
  return json;
}

// To five digits, which a plot needs.
double rounded(float number) {
  return std::stod(fmt::format("{:.5g}", number));
}

Json valueJson(const PageField& field, const PageField::Member& member, const Findings& findings) {
  const SeriesFigures& figures = member.rows->figures();
  const FieldRows& rows = member.rows->fields()[member.track];
  float least = rows.constant;
  float most = rows.constant;
  for (const Bucket& one : rows.values) {
    least = std::fmin(least, std::fmin(one.first, one.second));
    most = std::fmax(most, std::fmax(one.first, one.second));
  }
  Json json{
      {"min", least},
      {"max", most},
      {"mean", rows.value_sum / static_cast<double>(std::max<std::uint64_t>(figures.samples, 1))},
      {"last", field.trackOf(member).value()}};
  const GaugeBand* const band = findings.band(*figures.series, member.track);
  if (!band || field.kind != FieldKind::gauge) return json;
  Json means = Json::array();
  Json highs = Json::array();
  for (const GaugeBand::Point& point : band->points) {
    means.push_back(point.windows > 0 ? Json(rounded(point.mean)) : Json());
    highs.push_back(point.windows > 0 ? Json(rounded(point.p99)) : Json());
  }
  json["band"] = {{"mean", std::move(means)}, {"p99", std::move(highs)}};
  return json;
}

Json fieldJson(const PageField& field, const Findings& findings, std::size_t& charts) {
  Json json{{"name", asPrintable(field.column->name)},
            {"text", asPrintable(field.column->description)},
            {"kind", nameOf(field.kind)},
            {"unit", countsBytes(*field.column) ? "B" : ""},
            {"plane", field.is_plane}};
  if (field.hasMoved()) json["chart"] = charts++;
  std::size_t row = 0;
  for (const PageField::Member& member : field.members) {
    const Track& track = field.trackOf(member);
    const bool counts = track.counts();
    Json one = counts ? counterJson(field, member) : valueJson(field, member, findings);
    one["series"] = member.series;
    const FieldRows& rows = member.rows->fields()[member.track];
    if (!rows.rowOf(track).empty())
      one["row"] = row++;
    else
      one["constant"] = counts ? 0.0F : rows.constant;
    json["series"].push_back(std::move(one));
  }
  return json;
}

Json worstJson(const PlaneFinding& worst, const PageDevice& device, const Findings& findings) {
  const auto series = std::ranges::find(device.series, worst.plane) - device.series.begin();
  return {{"field", asPrintable(worst.field)},
          {"kind", nameOf(worst.kind)},
          {"series", series},
          {"seconds", static_cast<double>(worst.windows * findings.windowUsec()) / 1e6},
          {"imbalance", worst.highest_imbalance},
          {"share", worst.highest_share},
          {"at", worst.highest_usec},
          {"length", findings.windowUsec()}};
}

Json deviceJson(const PageDevice& device, const Findings& findings) {
  Json json{{"name", asPrintable(device.name)},
            {"state", nameOf(device.health.state)},
            {"failure", asPrintable(device.health.counts.last_failure)},
            {"leftOut", device.health.counts.left_out},
            {"score", device.score},
            {"series", Json::array()},
            {"fields", Json::array()}};
  for (const MissingCause& cause : missingCauses())
    json["missing"].push_back(device.health.counts.*cause.count);
  for (const Series* const one : device.series)
    json["series"].push_back({{"name", headingOf(*one)}, {"type", asPrintable(one->type->name)}});
  std::uint64_t samples = 0;
  std::size_t charts = 0;
  for (const PageField& field : device.fields) {
    json["fields"].push_back(fieldJson(field, findings, charts));
    for (const PageField::Member& member : field.members) {
      const SeriesFigures& figures = member.rows->figures();
      samples = std::max(samples, figures.samples);
      json["series"][member.series].update({{"samples", figures.samples},
                                            {"first", figures.first_usec},
                                            {"last", figures.last_usec}});
    }
  }
  json["samples"] = samples;
  if (const PlaneFinding* const worst = findings.worst(device.name))
    json["worst"] = worstJson(*worst, device, findings);
  return json;
}

Json missingJson(const MissingList& missing) {
  Json json{{"entries", Json::array()}, {"leftOut", missing.left_out}};
  for (const MissingSamples& one : missing.entries)
    json["entries"].push_back({{"device", asPrintable(one.device)},
                               {"cause", one.cause},
                               {"from", one.from_usec},
                               {"to", one.to_usec},
                               {"samples", one.samples},
                               {"reason", asPrintable(one.reason)}});
  return json;
}

}  // namespace

bool PageField::hasMoved() const {
  return std::ranges::any_of(members, [this](const Member& member) {
    return !member.rows->fields()[member.track].rowOf(trackOf(member)).empty();
  });
}

std::vector<PackedField> PageDevice::packed() const {
  std::vector<PackedField> packed;
  for (const PageField& field : fields) {
    if (!field.hasMoved()) continue;
    PackedField& added = packed.emplace_back();
    for (const PageField::Member& member : field.members)
      if (!member.rows->fields()[member.track].rowOf(field.trackOf(member)).empty())
        added.rows.push_back({member.rows, member.track});
  }
  return packed;
}

std::vector<PageDevice> pageDevices(const Reduction& reduction, const Findings& findings,
                                    const Figures& figures,
                                    const std::vector<DeviceHealth>& health) {
  std::vector<PageDevice> devices;
  for (const auto& rows : reduction.all())
    if (rows) addSeries(deviceNamed(devices, rows->figures().series->device), *rows, figures);
  for (const DeviceHealth& one : health) deviceNamed(devices, one.counts.device).health = one;
  for (PageDevice& one : devices) one.score = findings.score(one.name);
  std::ranges::stable_sort(devices, [](const PageDevice& one, const PageDevice& other) {
    if (one.score != other.score) return one.score > other.score;
    return missingSamples(one.health.counts) > missingSamples(other.health.counts);
  });
  return devices;
}

std::string pageJson(const PageHead& head, const std::vector<PageDevice>& devices,
                     const Reduction& reduction, const Findings& findings, const Figures& figures,
                     const MissingList& missing) {
  Json json{{"title", asPrintable(head.title)},
            {"source", asPrintable(head.source)},
            {"host", asPrintable(head.host)},
            {"writer", asPrintable(head.writer)},
            {"files", Json::array()},
            {"notes", Json::array()},
            {"interval", figures.intervalUsec()},
            {"from", reduction.firstUsec()},
            {"to", reduction.lastUsec()},
            {"begin", reduction.beginUsec()},
            {"width", reduction.widthUsec()},
            {"buckets", reduction.buckets()},
            {"levels", levelsFor(reduction.buckets())},
            {"factor", kLevelFactor},
            {"segment", kSegment},
            {"band", {{"begin", findings.beginUsec()}, {"width", findings.widthUsec()}}},
            {"causes", Json::array()},
            {"devices", Json::array()},
            {"missing", missingJson(missing)}};
  for (const std::string& one : head.files) json["files"].push_back(asPrintable(one));
  for (const std::string& one : head.notes) json["notes"].push_back(asPrintable(one));
  for (const MissingCause& cause : missingCauses())
    json["causes"].push_back({{"name", cause.name}, {"text", cause.text}});
  for (const PageDevice& one : devices) json["devices"].push_back(deviceJson(one, findings));
  return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace tev::host
