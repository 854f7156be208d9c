#include "host/metrics/field_names.h"

#include <fmt/format.h>

#include <vector>

#include "host/events/series.h"
#include "host/metrics/metric_names.h"
#include "host/support/text.h"

namespace tev::host {

FieldNames namesOf(const TypeView& type, const Column& column) {
  const std::string kind = asPrintable(kindOf(type));
  const std::string name = asPrintable(column.name);
  std::vector<std::string> notes;
  if (const std::string& own = ownName(type, column); own != column.name)
    notes.push_back(asPrintable(own) + " of the adapter");
  if (!column.description.empty()) notes.push_back(asPrintable(column.description));
  FieldNames names{nameWord(kindOf(type)) + "_" + nameWord(column.name),
                   fmt::format("'{}' of each {}", name, kind),
                   fmt::format("{} of each {}", name, kind),
                   {}};
  names.described = names.head;
  if (!notes.empty()) names.described += fmt::format(" ({})", fmt::join(notes, "; "));
  return names;
}

}  // namespace tev::host
