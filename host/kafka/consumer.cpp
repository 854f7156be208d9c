#include "host/kafka/consumer.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <span>
#include <utility>

#include "host/kafka/client.h"
#include "host/kafka/topic_check.h"
#include "host/support/errors.h"
#include "host/support/log.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

using std::chrono::milliseconds;

constexpr std::int64_t kUnknown = -1;    // position
constexpr std::int64_t kBeginning = -2;  // the group has not committed one
constexpr std::chrono::seconds kLongestJoin{5};
constexpr int kCommittedMsec = 1000;  // to wait for the answer

std::span<rd_kafka_topic_partition_t> elementsOf(rd_kafka_topic_partition_list_t& list) {
  return {list.elems, static_cast<std::size_t>(list.cnt)};
}

// After these, asking again would not help.
bool isFinal(rd_kafka_resp_err_t error) {
  switch (error) {
    case RD_KAFKA_RESP_ERR__FATAL:
    case RD_KAFKA_RESP_ERR_UNKNOWN_TOPIC_OR_PART:
    case RD_KAFKA_RESP_ERR__UNKNOWN_TOPIC:
    case RD_KAFKA_RESP_ERR_TOPIC_AUTHORIZATION_FAILED:
    case RD_KAFKA_RESP_ERR_GROUP_AUTHORIZATION_FAILED:
    case RD_KAFKA_RESP_ERR_INVALID_SESSION_TIMEOUT:
    case RD_KAFKA_RESP_ERR_INCONSISTENT_GROUP_PROTOCOL:
      return true;
    default:
      return false;
  }
}

// 0 when the brokers keep the clock of the sender instead of theirs.
std::uint64_t storedUsec(const rd_kafka_message_t& message) {
  rd_kafka_timestamp_type_t type{};
  const std::int64_t msec = rd_kafka_message_timestamp(&message, &type);
  if (type != RD_KAFKA_TIMESTAMP_LOG_APPEND_TIME || msec <= 0) return 0;
  return static_cast<std::uint64_t>(msec) * 1000;
}

class KafkaSubscription final : public Subscription, private KafkaListener {
 public:
  KafkaSubscription(const KafkaOptions& options, const std::string& group)
      : topic_(options.topic),
        client_(RD_KAFKA_CONSUMER, options,
                {{"group.id", group},
                 {"partition.assignment.strategy", "cooperative-sticky"},
                 {"enable.auto.commit", "false"},
                 {"enable.auto.offset.store", "false"},
                 {"auto.offset.reset", "earliest"},
                 {"check.crcs", "true"}},
                this) {
    client_.connect();
    expectTopics(client_, topic_);
    rd_kafka_poll_set_consumer(client_.handle());
    const KafkaPartitions topics(rd_kafka_topic_partition_list_new(1));
    rd_kafka_topic_partition_list_add(topics.get(), topic_.c_str(), RD_KAFKA_PARTITION_UA);
    if (const auto error = rd_kafka_subscribe(client_.handle(), topics.get()))
      throw RunError(fmt::format("cannot subscribe to the topic {}: {}", topic_, kafkaText(error)));
  }

  ~KafkaSubscription() override {
    try {
      close();
    } catch (const std::exception&) {  // the reason for the end has been said
    }
  }
  KafkaSubscription(const KafkaSubscription&) = delete;
  KafkaSubscription& operator=(const KafkaSubscription&) = delete;

  void poll(PartitionOwner& owner, std::size_t most, milliseconds patience) override {
    owner_ = &owner;
    for (std::size_t taken = 0; taken < most; ++taken) {
      const auto message = client_.consume(taken == 0 ? patience : milliseconds(0));
      if (!message) break;
      if (message->err == RD_KAFKA_RESP_ERR_NO_ERROR)
        take(*message);
      else
        report(*message);
    }
    owner_ = nullptr;
  }

  bool commit(std::int32_t partition, std::int64_t next, std::string& problem) override {
    // The library sends a commit of any partition, also one that another worker owns.
    if (!positions_.contains(partition) || rd_kafka_assignment_lost(client_.handle())) {
      problem = "the partition belongs to another worker";
      return false;
    }
    const KafkaPartitions offsets(rd_kafka_topic_partition_list_new(1));
    rd_kafka_topic_partition_list_add(offsets.get(), topic_.c_str(), partition)->offset = next;
    rd_kafka_resp_err_t error = rd_kafka_commit(client_.handle(), offsets.get(), 0);
    if (!error) error = offsets->elems[0].err;
    if (!error) return true;
    const bool is_lost = error == RD_KAFKA_RESP_ERR_ILLEGAL_GENERATION ||
                         error == RD_KAFKA_RESP_ERR_UNKNOWN_MEMBER_ID ||
                         error == RD_KAFKA_RESP_ERR_REBALANCE_IN_PROGRESS;
    problem = is_lost ? "the group is being divided anew" : kafkaText(error);
    return false;
  }

  std::vector<PartitionLag> lags() override {
    findPositions();
    std::vector<PartitionLag> lags;
    for (const auto& [partition, position] : positions_) {
      std::int64_t low = 0;
      std::int64_t high = -1;  // as of the last answer to a fetch; no request is sent
      if (rd_kafka_get_watermark_offsets(client_.handle(), topic_.c_str(), partition, &low,
                                         &high) != RD_KAFKA_RESP_ERR_NO_ERROR ||
          high < 0)
        high = -1;
      lags.push_back({partition, position < 0 ? low : position, high});
    }
    return lags;
  }

  // The library must not be closed while it joins the group.
  void close() override {
    if (std::exchange(is_closed_, true)) return;
    owner_ = nullptr;
    const auto end = std::chrono::steady_clock::now() + kLongestJoin;
    while (!has_joined_ && std::chrono::steady_clock::now() < end)
      client_.consume(milliseconds(100));
    if (const auto error = rd_kafka_consumer_close(client_.handle()))
      Log::instance().say("tev-host: could not leave the group: " + kafkaText(error));
    positions_.clear();
  }

 private:
  // Partitions without a message so far begin where the group committed last.
  void findPositions() {
    const KafkaPartitions asked(rd_kafka_topic_partition_list_new(1));
    for (const auto& [partition, position] : positions_)
      if (position == kUnknown)
        rd_kafka_topic_partition_list_add(asked.get(), topic_.c_str(), partition);
    if (asked->cnt == 0 || rd_kafka_committed(client_.handle(), asked.get(), kCommittedMsec) !=
                               RD_KAFKA_RESP_ERR_NO_ERROR)
      return;
    for (const rd_kafka_topic_partition_t& partition : elementsOf(*asked))
      if (!partition.err)
        positions_[partition.partition] = partition.offset >= 0 ? partition.offset : kBeginning;
  }

  void take(const rd_kafka_message_t& message) {
    const auto position = positions_.find(message.partition);
    if (position == positions_.end()) return;  // no longer ours
    sayTheyAreBack();
    passed_.partition = message.partition;
    passed_.offset = message.offset;
    passed_.message.key = {static_cast<const char*>(message.key), message.key_len};
    passed_.message.value = {static_cast<const std::uint8_t*>(message.payload), message.len};
    passed_.message.stored_usec = storedUsec(message);
    passed_.message.headers.clear();
    rd_kafka_headers_t* headers = nullptr;
    if (rd_kafka_message_headers(&message, &headers) == RD_KAFKA_RESP_ERR_NO_ERROR) {
      const char* name = nullptr;
      const void* value = nullptr;
      std::size_t size = 0;
      for (std::size_t i = 0;
           rd_kafka_header_get_all(headers, i, &name, &value, &size) == RD_KAFKA_RESP_ERR_NO_ERROR;
           ++i)
        passed_.message.headers.emplace_back(
            name, std::string_view(static_cast<const char*>(value), size));
    }
    owner_->take(passed_);
    position->second = message.offset + 1;
  }

  void report(const rd_kafka_message_t& event) {
    const std::string reason = asPrintable(client_.withoutSecrets(rd_kafka_message_errstr(&event)));
    if (isFinal(event.err))
      throw RunError(fmt::format("cannot read the topic {}: {}", topic_, reason));
    Log::instance().say(fmt::format("tev-host: Kafka: {}", reason));
  }

  void failed(rd_kafka_resp_err_t error, const std::string& reason) override {
    if (error == RD_KAFKA_RESP_ERR__FATAL)
      throw RunError(fmt::format("cannot read the topic {}: {}", topic_, reason));
    if (error != RD_KAFKA_RESP_ERR__ALL_BROKERS_DOWN || are_down_ || !owner_) return;
    are_down_ = true;
    Log::instance().say(fmt::format("tev-host: no Kafka broker answers: {}", reason));
  }

  void sayTheyAreBack() {
    if (!std::exchange(are_down_, false)) return;
    Log::instance().say("tev-host: the Kafka brokers answer again");
  }

  void rebalanced(rd_kafka_resp_err_t event, rd_kafka_topic_partition_list_t& partitions) override {
    has_joined_ = true;
    if (event == RD_KAFKA_RESP_ERR__ASSIGN_PARTITIONS) {
      for (rd_kafka_topic_partition_t& partition : elementsOf(partitions)) {
        if (!owner_) continue;
        const auto begin = owner_->assigned(partition.partition);
        if (begin) partition.offset = *begin;
        positions_[partition.partition] = begin.value_or(kUnknown);
      }
      expectDone(rd_kafka_incremental_assign(client_.handle(), &partitions));
    } else {
      for (const rd_kafka_topic_partition_t& partition : elementsOf(partitions)) {
        positions_.erase(partition.partition);
        if (owner_) owner_->revoked(partition.partition);
      }
      expectDone(rd_kafka_incremental_unassign(client_.handle(), &partitions));
    }
  }

  void expectDone(rd_kafka_error_t* given) {
    const KafkaError error(given);
    if (error)
      throw RunError(fmt::format("cannot take over partitions of the topic {}: {}", topic_,
                                 rd_kafka_error_string(error.get())));
  }

  const std::string topic_;
  PartitionOwner* owner_ = nullptr;                 // during poll()
  std::map<std::int32_t, std::int64_t> positions_;  // of the assigned partitions
  PartitionMessage passed_;
  bool are_down_ = false;
  bool has_joined_ = false;
  bool is_closed_ = false;
  KafkaClient client_;
};

}  // namespace

std::unique_ptr<Subscription> subscribeToKafka(const KafkaOptions& options,
                                               const std::string& group) {
  return std::make_unique<KafkaSubscription>(options, group);
}

}  // namespace tev::host
