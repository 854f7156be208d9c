#include "host/events/projection.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <set>
#include <utility>

#include "host/support/errors.h"
#include "host/support/log.h"
#include "host/support/text.h"
#include "tev/counter_set.h"
#include "tev/field_set.h"

namespace tev::host {
namespace {

using Types = std::vector<ProjectedType>;

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

// Reads a set's file. `names` is the list of possible names for the error message.
template <class Set>
Set load(const char* option, const std::string& path, const std::string& names) {
  Set set;
  bool loaded = false;
  Log& log = Log::instance();
  const auto lines = log.linesOf([&] { loaded = set.loadFromFile(path); });
  if (!loaded)
    throw UsageError(fmt::format("{} {}: {}{}", option, path.empty() ? "''" : asPrintable(path),
                                 fmt::join(lines, "\n  "), names));
  for (const std::string& line : lines)
    log.say(fmt::format("tev-host: {} {}: {}", option, asPrintable(path), line));
  return set;
}

// Keeps the columns for which `wanted` returns true. A type is taken if `counts` returns true for
// at least one of them.
void keep(Types& types, const std::function<bool(const TypeView&, const Column&)>& wanted,
          const std::function<bool(const Column&)>& counts) {
  for (ProjectedType& type : types) {
    std::erase_if(type.columns, [&](const Column& column) { return !wanted(*type.view, column); });
    if (std::ranges::any_of(type.columns, counts)) continue;
    type.columns.clear();
    type.taken = false;
  }
}

void expectAnyTaken(const Types& types, const char* option, const std::string& path,
                    const std::string& names) {
  if (std::ranges::any_of(types, &ProjectedType::taken)) return;
  throw UsageError(fmt::format("{} {}: nothing in it matches{}", option, asPrintable(path), names));
}

void rename(std::vector<Column>& columns, const ProviderCounterSet& set) {
  UniqueNames names;
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

void chooseFields(Types& types, const std::string& path) {
  constexpr auto kOption = "--fset";
  const std::string names = typesAndFields(types);
  const auto set = load<ProviderFieldSet>(kOption, path, names);
  keep(
      types,
      [&](const TypeView& type, const Column& column) {
        return set.shouldIncludeField(type.name, column.name);
      },
      [](const Column&) { return true; });
  expectAnyTaken(types, kOption, path, names);
}

void chooseCounters(Types& types, const std::string& path) {
  constexpr auto kOption = "--cset";
  const std::string names = counters(types);
  const auto set = load<ProviderCounterSet>(kOption, path, names);
  keep(
      types,
      [&](const TypeView&, const Column& column) {
        return column.key != 0 || set.shouldIncludeCounter(column.name);
      },
      [](const Column& column) { return column.key == 0; });
  expectAnyTaken(types, kOption, path, names);
  for (ProjectedType& type : types) rename(type.columns, set);
}

Types chosen(const SchemaView& schema, const SelectionOptions& options) {
  Types types;
  for (const TypeView& type : schema.types()) types.push_back({&type, true, type.columns});
  if (options.field_set) chooseFields(types, *options.field_set);
  if (options.counter_set) chooseCounters(types, *options.counter_set);
  return types;
}

}  // namespace

Projection::Projection(const SchemaView& schema, const SelectionOptions& options)
    : schema_(schema), types_(chosen(schema, options)), devices_(options.filter) {}

}  // namespace tev::host
