#include "host/commands/type_listing.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "host/support/text.h"

namespace tev::host {

std::string typeName(const Column& column) {
  const char* const name = tev_builtin_type_name(column.builtin_id);
  return column.count == 1 ? name : fmt::format("{}[{}]", name, column.count);
}

void appendType(std::string& out, const TypeView& type) {
  fmt::format_to(std::back_inserter(out), "\n{}   {} bytes\n", asPrintable(type.name), type.size);
  std::size_t name_width = 0;
  for (const Column& column : type.columns)
    name_width = std::max(name_width, displayWidth(asPrintable(column.name)));
  for (const Column& column : type.columns)
    fmt::format_to(std::back_inserter(out), "  {:>6}  {}  {}  {}{}\n", column.offset,
                   padRight(typeName(column), 12), padRight(asPrintable(column.name), name_width),
                   column.key ? fmt::format("[key {}] ", column.key) : "", column.description);
}

}  // namespace tev::host
