#include "host/fleet/speaker.h"

#include "host/support/log.h"
#include "host/support/text.h"

namespace tev::host {

void Speaker::sayOnce(const std::string& kind, const std::string& sentence) {
  if (said_.insert(kind).second) Log::instance().say("tev-host: " + asPrintable(sentence));
}

}  // namespace tev::host
