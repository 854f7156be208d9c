#include "host/outputs/derived_columns.h"

#include <set>

namespace tev::host {

Derived derive(const SeriesFigures& series, std::size_t index) {
  const Track& track = series.tracks[index];
  if (!track.counts()) return {std::nullopt, std::nullopt, nameOf(track.kind())};
  Derived derived{track.total(), std::nullopt, ""};
  switch (track.step()) {
    case StepState::none:
      derived.mark = "first";
      return derived;
    case StepState::unknown:
      derived.mark = "unknown";
      return derived;
    case StepState::known:
      break;
  }
  if (series.step_usec > 0)
    derived.per_second =
        static_cast<double>(track.increase()) * 1e6 / static_cast<double>(series.step_usec);
  const bool is_lower_bound = track.unknownSteps() > 0;
  if (series.uncertain[index])
    derived.mark = is_lower_bound ? "uncertain lower_bound" : "uncertain";
  else if (series.after_slow_read)
    derived.mark = is_lower_bound ? "after_slow_read lower_bound" : "after_slow_read";
  else if (is_lower_bound)
    derived.mark = "lower_bound";
  return derived;
}

DerivedColumns::DerivedColumns(const Figures& figures) {
  const Projection& projection = figures.projection();
  UniqueNames names;
  std::set<std::string> fields;
  for (const TypeView& type : projection.schema().types())
    for (const Column& column : projection.columns(type))
      if (fields.insert(column.name).second) names.add(column.name);
  kind_ = names.add("kind");
  sample_ = names.add("sample");
  for (const TypeView& type : projection.schema().types())
    for (const Column* const column : figures.columns(type)) {
      const auto [entry, is_new] = names_.emplace(column->name, Names());
      if (!is_new) continue;
      entry->second = {names.add(column->name + "_total"), names.add(column->name + "_per_second"),
                       names.add(column->name + "_mark")};
    }
  for (const char* const name : kMissingColumns) missing_.emplace(name, names.add(name));
}

}  // namespace tev::host
