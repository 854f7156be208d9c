#include "host/events/projection.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <set>
#include <utility>

#include "host/support/errors.h"
#include "host/support/log.h"
#include "host/support/text.h"
#include "src/support/text.h"
#include "tev/counter_set.h"
#include "tev/field_set.h"

namespace tev::host {
namespace {

using Types = std::vector<ProjectedType>;

constexpr char kCounterTag[] = "counters";
constexpr char kGaugeTag[] = "gauges";

// The names that a field set can match, for error messages.
std::string typesAndFields(const Types& types) {
  std::string text = "\n  The types, and their fields, are:";
  for (const ProjectedType& type : types) {
    std::vector<std::string> fields;
    for (const Column& column : type.columns) fields.push_back(column.name);
    text += fmt::format("\n  {}: {}", asPrintable(type.view->name), commaSeparated(fields));
  }
  return text;
}

// The names that a counter set can match, for error messages.
std::string counters(const Types& types) {
  std::set<std::string> seen;
  std::vector<std::string> names;  // in the order of the schema
  for (const ProjectedType& type : types)
    for (const Column& column : type.columns)
      if (column.key == 0 && seen.insert(column.name).second) names.push_back(column.name);
  return "\n  The counters are: " + commaSeparated(names);
}

// Reads a set's file with `read`, which returns false when it fails. `names` is the list of
// possible names for the error message.
void load(const char* option, const std::string& path, const std::string& names,
          const std::function<bool()>& read) {
  bool loaded = false;
  Log& log = Log::instance();
  const auto lines = log.linesOf([&] { loaded = read(); });
  if (!loaded)
    throw UsageError(fmt::format("{} {}: {}{}", option, path.empty() ? "''" : asPrintable(path),
                                 fmt::join(lines, "\n  "), names));
  for (const std::string& line : lines)
    log.say(fmt::format("tev-host: {} {}: {}", option, asPrintable(path), line));
}

// Keeps the columns for which `wanted` returns true, and the key, without which the rows of two
// series could not be told apart. A type is taken if any of its columns is wanted.
void keep(Types& types, const std::function<bool(const TypeView&, const Column&)>& wanted) {
  for (ProjectedType& type : types) {
    type.taken = std::ranges::any_of(
        type.columns, [&](const Column& column) { return wanted(*type.view, column); });
    std::erase_if(type.columns, [&](const Column& column) {
      return !type.taken || (column.key == 0 && !wanted(*type.view, column));
    });
  }
}

void expectAnyTaken(const Types& types, const char* option, const std::string& path,
                    const std::string& names) {
  if (std::ranges::any_of(types, &ProjectedType::taken)) return;
  throw UsageError(fmt::format("{} {}: nothing in it matches{}", option, asPrintable(path), names));
}

// `keys` are the names of the key fields of all types. A counter does not get such a name, because
// an output with the columns of all types in one table would mix it with the key.
void rename(std::vector<Column>& columns, const std::set<std::string>& keys,
            const ProviderCounterSet& set) {
  UniqueNames names;
  for (const std::string& key : keys)
    if (std::ranges::find(columns, key, &Column::name) == columns.end()) names.add(key);
  std::vector<std::pair<Column*, std::string>> renamed;
  for (Column& column : columns) {
    std::string alias = column.key == 0 ? set.getCounterAlias(column.name) : "";
    if (alias.empty())
      names.add(column.name);  // a column without an alias keeps its name
    else
      renamed.emplace_back(&column, asUtf8(alias));
  }
  for (const auto& [column, alias] : renamed) column->name = names.add(alias);
}

std::vector<std::string> tagValues(const ProviderCounterSet& set, const char* tag) {
  const auto& values = set.getUserTagValues();
  const auto found = values.find(tag);
  std::vector<std::string> patterns;
  if (found == values.end()) return patterns;
  for (const std::string_view part : support::split(found->second, ','))
    if (std::string pattern = string::trim(part); !pattern.empty())
      patterns.push_back(std::move(pattern));
  return patterns;
}

}  // namespace

const std::string& ownName(const TypeView& type, const Column& column) {
  return std::ranges::find(type.columns, column.offset, &Column::offset)->name;
}

void Projection::chooseFields(const std::string& path) {
  constexpr auto kOption = "--fset";
  const std::string names = typesAndFields(types_);
  ProviderFieldSet set;
  load(kOption, path, names, [&] { return set.loadFromFile(path); });
  keep(types_, [&](const TypeView& type, const Column& column) {
    return set.shouldIncludeField(type.name, column.name);
  });
  expectAnyTaken(types_, kOption, path, names);
}

void Projection::chooseCounters(const std::string& path) {
  constexpr auto kOption = "--cset";
  const std::string names = counters(types_);
  ProviderCounterSet set;
  load(kOption, path, names, [&] { return set.loadFromFile(path, {kCounterTag, kGaugeTag}); });
  keep(types_, [&](const TypeView&, const Column& column) {
    return column.key == 0 && set.shouldIncludeCounter(column.name);
  });
  expectAnyTaken(types_, kOption, path, names);
  std::set<std::string> keys;
  for (const ProjectedType& type : types_)
    for (const Column& key : type.view->keys) keys.insert(key.name);
  for (ProjectedType& type : types_) rename(type.columns, keys, set);
  tagged_counters_ = tagValues(set, kCounterTag);
  tagged_gauges_ = tagValues(set, kGaugeTag);
}

Projection::Projection(const SchemaView& schema, const SelectionOptions& options)
    : schema_(schema), devices_(options.filters) {
  for (const TypeView& type : schema.types()) types_.push_back({&type, true, type.columns});
  if (options.field_set) chooseFields(*options.field_set);
  if (options.counter_set) chooseCounters(*options.counter_set);
}

}  // namespace tev::host
