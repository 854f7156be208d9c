#include "host/selection.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <set>
#include <utility>

#include "host/errors.h"
#include "host/host_log.h"
#include "host/text.h"
#include "tev/counter_set.h"
#include "tev/field_set.h"

namespace tev::host {
namespace {

std::string commaSeparated(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + asPrintable(name);
  return text;
}

std::string typesAndFields(const SchemaView& schema) {
  std::string text = "\n  The types, and their fields, are:";
  for (const TypeView& type : schema.types()) {
    std::vector<std::string> fields;
    for (const Column& column : type.columns) fields.push_back(column.name);
    text += fmt::format("\n  {}: {}", asPrintable(type.name), commaSeparated(fields));
  }
  return text;
}

std::string counters(const SchemaView& schema) {
  std::set<std::string> seen;
  std::vector<std::string> names;  // in the order of the schema
  for (const TypeView& type : schema.types())
    for (const Column& column : type.columns)
      if (column.key == 0 && seen.insert(column.name).second) names.push_back(column.name);
  return "\n  The counters are: " + commaSeparated(names);
}

// Reads a set's file. `names` tells what a set could have named.
template <class Set>
Set load(const char* option, const std::string& path, const SchemaView& schema,
         std::string (*names)(const SchemaView&)) {
  Set set;
  bool loaded = false;
  HostLog& log = HostLog::instance();
  const auto lines = log.linesOf([&] { loaded = set.loadFromFile(path); });
  if (!loaded)
    throw UsageError(fmt::format("{} {}: {}{}", option, path.empty() ? "''" : asPrintable(path),
                                 fmt::join(lines, "\n  "), names(schema)));
  for (const std::string& line : lines)
    log.say(fmt::format("tev-host: {} {}: {}", option, asPrintable(path), line));
  return set;
}

// Keeps the columns that `wanted` names; a type without any that `counts` is no longer wanted.
void keep(SchemaView& schema, const std::function<bool(const TypeView&, const Column&)>& wanted,
          const std::function<bool(const Column&)>& counts) {
  for (TypeView& type : schema.types()) {
    std::erase_if(type.columns, [&](const Column& column) { return !wanted(type, column); });
    if (std::ranges::none_of(type.columns, counts)) {
      type.columns.clear();
      type.wanted = false;
    }
  }
}

void expectAnyWanted(const SchemaView& schema, const char* option, const std::string& path,
                     const std::string& names) {
  if (std::ranges::any_of(schema.types(), &TypeView::wanted)) return;
  throw UsageError(fmt::format("{} {}: nothing in it matches{}", option, asPrintable(path), names));
}

void selectFields(SchemaView& schema, const std::string& path) {
  constexpr auto kOption = "--fset";
  const auto set = load<ProviderFieldSet>(kOption, path, schema, typesAndFields);
  const std::string names = typesAndFields(schema);
  keep(
      schema,
      [&](const TypeView& type, const Column& column) {
        return set.shouldIncludeField(type.name, column.name);
      },
      [](const Column&) { return true; });
  expectAnyWanted(schema, kOption, path, names);
}

void rename(TypeView& type, const ProviderCounterSet& set) {
  UniqueNames names;
  std::vector<std::pair<Column*, std::string>> renamed;
  for (Column& column : type.columns) {
    std::string alias = column.key == 0 ? set.getCounterAlias(column.name) : "";
    if (alias.empty())
      names.add(column.name);  // who keeps its name has it
    else
      renamed.emplace_back(&column, asUtf8(alias));
  }
  for (const auto& [column, alias] : renamed) column->name = names.add(alias);
}

void selectCounters(SchemaView& schema, const std::string& path) {
  constexpr auto kOption = "--cset";
  const auto set = load<ProviderCounterSet>(kOption, path, schema, counters);
  const std::string names = counters(schema);
  keep(
      schema,
      [&](const TypeView&, const Column& column) {
        return column.key != 0 || set.shouldIncludeCounter(column.name);
      },
      [](const Column& column) { return column.key == 0; });
  expectAnyWanted(schema, kOption, path, names);
  for (TypeView& type : schema.types()) rename(type, set);
}

}  // namespace

void select(SchemaView& schema, const SelectionOptions& options) {
  if (options.field_set) selectFields(schema, *options.field_set);
  if (options.counter_set) selectCounters(schema, *options.counter_set);
}

DeviceFilter::DeviceFilter(const std::string& expression) : expression_(expression) {
  const auto lines = HostLog::instance().linesOf([this] {
    tev_filter_get_incl_excl_tokens(expression_.c_str(), inclusive_->all, &inclusive_->count,
                                    exclusive_->all, &exclusive_->count);
  });
  if (!lines.empty())
    throw UsageError(fmt::format("--filter {}: {}", asPrintable(expression), lines.back()));
}

bool DeviceFilter::passes(const std::string& device) const {
  return tev_filter_have_match(inclusive_->all, inclusive_->count, exclusive_->all,
                               exclusive_->count, device.c_str());
}

void DeviceFilter::expectOneOf(const std::vector<std::string>& devices) const {
  if (devices.empty() ||
      std::ranges::any_of(devices, [this](const std::string& device) { return passes(device); }))
    return;
  throw UsageError(
      fmt::format("--filter {}: no device passes that has a chosen type\n  The devices are: {}",
                  asPrintable(expression_), commaSeparated(devices)));
}

}  // namespace tev::host
