#include "host/commands/announcements.h"

#include "host/figures/fast_counters.h"
#include "host/support/log.h"

namespace tev::host {
namespace {

void sayLine(const std::string& text) {
  if (!text.empty()) Log::instance().say("tev-host: " + text);
}

}  // namespace

void Announcements::say() {
  const HealthWatch& health = delivery_.health();
  for (const StateChange& change : health.changes())
    sayLine(describe(change, health.devices()[change.device]));
  for (const FastCounter& counter : fastCounters(figures_))
    if (said_.insert(counter.name).second) sayLine(describe(counter));
}

}  // namespace tev::host
