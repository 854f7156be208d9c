#include "host/kafka/topic_check.h"

#include <fmt/format.h>

#include "host/kafka/client.h"
#include "host/kafka/topic_plan.h"
#include "host/kafka/topics.h"
#include "host/support/errors.h"
#include "host/support/log.h"
#include "tev/logger.h"

namespace tev::host {
namespace {

void sayUnchecked(const RunError& error) {
  Log::instance().write(TEV_LEVEL_INFO, fmt::format("[kafka] not checked: {}", error.what()));
}

}  // namespace

std::string expectTopics(KafkaClient& client, const std::string& name) {
  TopicAdmin admin(client);
  std::string weakness;
  for (const WantedTopic& wanted : wantedTopics(name, {})) {
    client.expectTopic(wanted.name);
    try {
      const auto state = admin.read(wanted.name);
      if (!state) continue;  // it has just been removed: sending will say so
      if (const std::string fault = faultOf(wanted, *state); !fault.empty()) throw RunError(fault);
      if (weakness.empty()) weakness = weaknessOf(wanted, *state);
    } catch (const HiddenSettings& error) {
      sayUnchecked(error);
    } catch (const NoConnection& error) {  // a broker has just gone
      sayUnchecked(error);
    }
  }
  return weakness;
}

}  // namespace tev::host
