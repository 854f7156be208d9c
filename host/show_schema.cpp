#include "host/show_schema.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "host/errors.h"
#include "host/output_file.h"
#include "host/session.h"
#include "host/stop_signal.h"
#include "host/text.h"

namespace tev::host {
namespace {

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

}  // namespace

int showSchema(const RunOptions& options) {
  const StopSignal stop_signal;
  Session session(options.plugin);
  const SchemaView view(*session.types());

  OutputFile output("");
  const tev_type_system_t& types = *session.types();
  for (std::size_t i = 0; i < types.num_schemas; ++i)
    fmt::format_to(std::back_inserter(output.buffer()), "{}   id {}\n",
                   types.schemas[i]->name ? asPrintable(types.schemas[i]->name) : "",
                   types.schemas[i]->id_string);
  for (const TypeView& type : view.types()) appendType(output.buffer(), type);
  try {
    output.close();
  } catch (const ClosedPipe&) {  // whoever reads has seen enough
  }
  return kExitFine;
}

}  // namespace tev::host
