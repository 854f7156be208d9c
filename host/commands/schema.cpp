#include "host/commands/schema.h"

#include <fmt/format.h>

#include <iterator>

#include "host/commands/type_listing.h"
#include "host/events/schema_view.h"
#include "host/outputs/output_file.h"
#include "host/plugin/plugin_source.h"
#include "host/support/errors.h"
#include "host/support/stop_signal.h"

namespace tev::host {

int showSchema(const RunOptions& run) {
  const StopSignal stop_signal;
  PluginSource source(run.plugin, run.buffer_bytes);
  const SchemaView& view = source.schema();

  OutputFile output("");
  for (const SchemaView::Schema& schema : view.schemas())
    fmt::format_to(std::back_inserter(output.buffer()), "{}   id {}\n", schema.name, schema.id);
  for (const TypeView& type : view.types()) appendType(output.buffer(), type);
  try {
    output.close();
  } catch (const ClosedPipe&) {  // the reader closed the pipe, which is not an error
  }
  if (!source.close()) throw RunError("the plug-in did not release its devices");
  return kExitFine;
}

}  // namespace tev::host
