// In place of the Kafka client, in builds without its library.
#include "host/kafka/consumer.h"
#include "host/kafka/publisher.h"
#include "host/support/errors.h"

namespace tev::host {

std::unique_ptr<Publisher> makeKafkaPublisher(const KafkaOptions&, bool) {
  throw UsageError("tev-host was built without Kafka");
}

std::unique_ptr<Subscription> subscribeToKafka(const KafkaOptions&, const std::string&) {
  throw UsageError("tev-host was built without Kafka");
}

std::unique_ptr<SchemaShelf> openKafkaSchemas(const KafkaOptions&, HasId) {
  throw UsageError("tev-host was built without Kafka");
}

}  // namespace tev::host
