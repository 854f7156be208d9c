#include <nlohmann/json.hpp>

#include "host/commands/check_report.h"
#include "host/commands/type_listing.h"

namespace tev::host {
namespace {

using nlohmann::ordered_json;

template <class T>
ordered_json orNull(const std::optional<T>& value) {
  return value ? ordered_json(*value) : ordered_json(nullptr);
}

ordered_json orNull(const std::optional<Seconds>& value) {
  return value ? ordered_json(value->count()) : ordered_json(nullptr);
}

ordered_json device(const CheckedDevice& checked, const CheckReport& report) {
  const DeviceInfo& info = checked.info;
  ordered_json json{{"name", info.name},
                    {"rdma_name", info.rdma_name},
                    {"interface_name", info.interface_name},
                    {"sampled", info.is_sampled}};
  if (!info.is_sampled) {
    json["reason"] = info.reason;
    return json;
  }
  json["slot"] = info.slot;
  json["algorithm"] = {{"text", info.algorithm},
                       {"id", info.algorithm_id},
                       {"major_version", info.algorithm_major},
                       {"minor_version", info.algorithm_minor}};
  json["device_counters"] = info.device_counters;
  json["plane_counters"] = info.plane_counters;
  json["planes"] = info.planes;
  json["link_gbits"] = orNull(checked.link_gbits);
  json["types"] = ordered_json::array();
  if (report.schema)
    for (const TypeView* const type : typesOf(info, *report.schema))
      json["types"].push_back(type->name);
  json["sample"] = {{"events", checked.sample.events}, {"bytes", checked.sample.bytes}};
  json["buffer"] = {{"samples", info.buffer_samples},
                    {"event_bytes", info.buffer_bytes},
                    {"memory_bytes", info.memory_bytes}};
  return json;
}

ordered_json schemas(const SchemaView& view) {
  ordered_json all = ordered_json::array();
  for (std::size_t s = 0; s < view.schemas().size(); ++s) {
    ordered_json types = ordered_json::array();
    for (std::uint16_t t = 0; const TypeView* type = view.find(static_cast<std::uint8_t>(s), t);
         ++t) {
      ordered_json fields = ordered_json::array();
      for (const Column& column : type->columns)
        fields.push_back({{"name", column.name},
                          {"type", typeName(column)},
                          {"offset", column.offset},
                          {"size", column.element_size * column.count},
                          {"key", column.key},
                          {"description", column.description}});
      types.push_back({{"name", type->name}, {"size", type->size}, {"fields", fields}});
    }
    all.push_back(
        {{"name", view.schemas()[s].name}, {"id", view.schemas()[s].id}, {"types", types}});
  }
  return all;
}

ordered_json measured(const CheckReport& report) {
  if (!report.measurement) return nullptr;
  const Measurement& measurement = *report.measurement;
  ordered_json json{{"seconds", measurement.lasted.count()},
                    {"interval_seconds", measurement.interval.count()},
                    {"devices", ordered_json::array()},
                    {"counters", ordered_json::array()},
                    {"pass", nullptr}};
  for (const MeasuredDevice& one : measurement.devices)
    json["devices"].push_back({{"name", one.name},
                               {"samples", one.samples},
                               {"failed", one.failed},
                               {"last_failure", one.last_failure}});
  for (const MeasuredCounter& one : measurement.counters)
    json["counters"].push_back({{"type", one.type},
                                {"name", one.name},
                                {"bits", one.bits},
                                {"decreases", one.decreases},
                                {"largest_step", one.largest_step},
                                {"highest_rate", one.highest_rate},
                                {"safe_interval_seconds", orNull(one.safe_interval)}});
  if (!measurement.pass) return json;
  const MeasuredPass& pass = *measurement.pass;
  ordered_json& of_pass = json["pass"];
  of_pass = {{"passes", pass.passes},
             {"mean_seconds", pass.mean.count()},
             {"longest_seconds", pass.longest.count()},
             {"reads", ordered_json::array()},
             {"by_threads", ordered_json::array()}};
  for (const auto& [name, seconds] : pass.reads)
    of_pass["reads"].push_back({{"device", name}, {"seconds", seconds.count()}});
  for (const std::size_t threads : threadNumbers(report))
    of_pass["by_threads"].push_back(
        {{"threads", threads}, {"seconds", longestShare(pass, threads).count()}});
  return json;
}

}  // namespace

std::string asJson(const CheckReport& report) {
  ordered_json json{
      {"works", report.works()},
      {"reason", report.works() ? ordered_json(nullptr) : ordered_json(report.reason)},
      {"details", report.details},
      {"warnings", report.warnings},
      {"plugin", {{"path", report.plugin_path}, {"name", report.plugin_name}}},
      {"sdk_library", orNull(report.sdk_library)},
      {"interval_usec", orNull(report.interval_usec)},
      {"update_msec", report.update_msec},
      {"sampling_threads", orNull(report.threads)},
      {"devices", nullptr},
      {"schemas", report.schema ? schemas(*report.schema) : ordered_json(nullptr)},
      {"memory_bytes", nullptr},
      {"per_second", nullptr},
      {"byte_counters", ordered_json::array()},
      {"measurement", measured(report)}};
  if (report.devices) {
    json["devices"] = ordered_json::array();
    for (const CheckedDevice& one : *report.devices) json["devices"].push_back(device(one, report));
    json["memory_bytes"] = report.memoryBytes();
  }
  if (const auto interval = report.interval(); interval && report.devices) {
    const SampleSize sample = report.sample();
    json["per_second"] = {{"samples", static_cast<double>(report.numSampled()) / interval->count()},
                          {"events", static_cast<double>(sample.events) / interval->count()},
                          {"bytes", static_cast<double>(sample.bytes) / interval->count()}};
  }
  for (const ByteCounter& one : report.byte_counters)
    json["byte_counters"].push_back({{"type", one.type},
                                     {"name", one.name},
                                     {"bits", one.bits},
                                     {"most_gbits", one.most_gbits}});
  // Only ASCII, so that nothing in it controls a terminal.
  return json.dump(2, ' ', true, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace tev::host
