#pragma once

#include "host/kafka/settings.h"
#include "host/kafka/topic_plan.h"

namespace tev::host {

// tev-host topics: creates the topics, or compares existing ones with the options and changes what
// can be changed. Returns the exit code: 1 when something is not as asked for. Throws UsageError
// and RunError.
int topics(const KafkaOptions& kafka, const TopicsOptions& options);

}  // namespace tev::host
