#include "host/plugin/plugin_source.h"

#include "host/support/log.h"

namespace tev::host {

PluginSource::PluginSource(const PluginOptions& options, std::uint64_t buffer_bytes)
    : session_(options),
      schema_(SchemaView::fromTypeSystem(*session_.types())),
      fetcher_(session_.provider(), session_.types(), buffer_bytes) {}

bool PluginSource::fetch(const BlockConsumer& take, const std::function<bool()>& interrupted) {
  fetcher_.round(take, interrupted);
  return true;  // a plug-in delivers until it is stopped
}

void PluginSource::drain(const BlockConsumer& take, const std::function<bool()>& interrupted) {
  if (!fetcher_.drain(take, interrupted))
    Log::instance().say("tev-host: the plug-in went on delivering after its stop: cut off");
}

}  // namespace tev::host
