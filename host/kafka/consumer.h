// The consuming end of a Kafka topic.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "host/bus/subscription.h"
#include "host/kafka/settings.h"

namespace tev::host {

// A worker of the group. Throws RunError, with the reason, when no broker answers, or a topic does
// not exist or has settings with which events are lost.
std::unique_ptr<Subscription> subscribeToKafka(const KafkaOptions& options,
                                               const std::string& group);

// Whether the text of a schema has this id.
using HasId = std::function<bool(const std::string& text, const std::string& id)>;

// The schemas that were published beside the events of the topic. Reads all that are there. Throws
// RunError when no broker answers or a topic does not exist. The shelf throws Interrupted when the
// user ends the program while it waits.
std::unique_ptr<SchemaShelf> openKafkaSchemas(const KafkaOptions& options, HasId has_id);

}  // namespace tev::host
