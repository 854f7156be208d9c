// Sends messages to Kafka brokers.
#pragma once

#include <memory>

#include "host/bus/publisher.h"
#include "host/kafka/settings.h"

namespace tev::host {

// Throws UsageError for wrong settings, and RunError when a topic is missing or would lose events.
// When no broker answers, throws RunError or, with `may_wait`, says so; the messages then wait
// until the brokers answer and the topics are right.
std::unique_ptr<Publisher> makeKafkaPublisher(const KafkaOptions& options, bool may_wait);

}  // namespace tev::host
