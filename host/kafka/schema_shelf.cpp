#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <set>
#include <unordered_map>
#include <utility>

#include "host/kafka/client.h"
#include "host/kafka/consumer.h"
#include "host/support/errors.h"
#include "host/support/stop_signal.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{30};  // until all that is there was read
constexpr milliseconds kSlice{100};

// Reads a compacted topic: the last text of a key counts.
class KafkaSchemaShelf : public SchemaShelf {
 public:
  KafkaSchemaShelf(const KafkaOptions& options, HasId has_id)
      : topic_(schemaTopicOf(options.topic)),
        has_id_(std::move(has_id)),
        client_(RD_KAFKA_CONSUMER, options,
                // The library wants a group, which is never joined.
                {{"group.id", "tev-host-schemas"},
                 {"enable.auto.commit", "false"},
                 {"enable.auto.offset.store", "false"},
                 {"auto.offset.reset", "earliest"},
                 {"enable.partition.eof", "true"},
                 {"queued.max.messages.kbytes", "4096"},
                 {"check.crcs", "true"}}) {
    client_.connect();
    client_.expectTopic(options.topic);
    const TopicLayout layout = client_.expectTopic(topic_);
    rd_kafka_poll_set_consumer(client_.handle());
    const KafkaPartitions partitions(rd_kafka_topic_partition_list_new(layout.partitions));
    for (std::int32_t i = 0; i < layout.partitions; ++i)
      rd_kafka_topic_partition_list_add(partitions.get(), topic_.c_str(), i)->offset =
          RD_KAFKA_OFFSET_BEGINNING;
    if (const auto error = rd_kafka_assign(client_.handle(), partitions.get())) fail(error);
    const auto end = Clock::now() + kPatience;
    while (std::cmp_less(ended_.size(), layout.partitions)) {
      if (Clock::now() >= end) fail(RD_KAFKA_RESP_ERR__TIMED_OUT);
      readOne(kSlice);
      expectToGoOn();
    }
  }

  std::optional<std::string> find(const std::string& id, milliseconds patience) override {
    const auto end = Clock::now() + patience;
    while (readOne(milliseconds(0))) {  // what has come in the meantime
    }
    while (true) {
      if (const auto text = texts_.find(id); text != texts_.end()) return text->second;
      const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
      if (left <= milliseconds(0)) return std::nullopt;
      readOne(std::min(left, kSlice));
      expectToGoOn();
    }
  }

 private:
  [[noreturn]] void fail(rd_kafka_resp_err_t error) const {
    throw RunError(fmt::format("cannot read the topic {}: {}", topic_, kafkaText(error)));
  }

  static void expectToGoOn() {
    if (StopSignal::requests() > 0) throw Interrupted();
  }

  // False when nothing came.
  bool readOne(milliseconds patience) {
    const auto message = client_.consume(patience);
    if (!message) return false;
    if (message->err == RD_KAFKA_RESP_ERR__PARTITION_EOF) {
      ended_.insert(message->partition);
      return true;
    }
    if (message->err == RD_KAFKA_RESP_ERR_UNKNOWN_TOPIC_OR_PART ||
        message->err == RD_KAFKA_RESP_ERR_TOPIC_AUTHORIZATION_FAILED)
      fail(message->err);
    if (message->err) return true;  // the library tries again
    const std::string key(static_cast<const char*>(message->key), message->key_len);
    if (!message->payload) return true;  // a text that was read stays right
    std::string text(static_cast<const char*>(message->payload), message->len);
    // A wrong text does not replace the right one.
    const auto [known, is_new] = texts_.try_emplace(key, text);
    if (!is_new && has_id_(text, key)) known->second = std::move(text);
    return true;
  }

  const std::string topic_;
  const HasId has_id_;
  KafkaClient client_;
  std::set<std::int32_t> ended_;  // partitions that were read to their end
  std::unordered_map<std::string, std::string> texts_;
};

}  // namespace

std::unique_ptr<SchemaShelf> openKafkaSchemas(const KafkaOptions& options, HasId has_id) {
  return std::make_unique<KafkaSchemaShelf>(options, std::move(has_id));
}

}  // namespace tev::host
