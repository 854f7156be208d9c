#include "host/kafka/topics.h"

#include <fmt/format.h>

#include <chrono>
#include <cstddef>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include "host/kafka/client.h"
#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr int kRequestMsec = 10'000;
constexpr std::chrono::milliseconds kPause{50};
constexpr std::chrono::seconds kAppearance{10};  // of a change, after the answer

using Options = KafkaOwned<rd_kafka_AdminOptions_t, rd_kafka_AdminOptions_destroy>;
using Queue = KafkaOwned<rd_kafka_queue_t, rd_kafka_queue_destroy>;
using Event = KafkaOwned<rd_kafka_event_t, rd_kafka_event_destroy>;
using NewTopic = KafkaOwned<rd_kafka_NewTopic_t, rd_kafka_NewTopic_destroy>;
using NewPartitions = KafkaOwned<rd_kafka_NewPartitions_t, rd_kafka_NewPartitions_destroy>;
using Resource = KafkaOwned<rd_kafka_ConfigResource_t, rd_kafka_ConfigResource_destroy>;

// Whether the brokers do not give the settings to this client.
bool isHidden(rd_kafka_resp_err_t error) {
  return error == RD_KAFKA_RESP_ERR_TOPIC_AUTHORIZATION_FAILED ||
         error == RD_KAFKA_RESP_ERR_CLUSTER_AUTHORIZATION_FAILED ||
         error == RD_KAFKA_RESP_ERR__UNSUPPORTED_FEATURE;
}

[[noreturn]] void fail(const char* action, const std::string& name, rd_kafka_resp_err_t error,
                       const char* reason) {
  const std::string sentence =
      fmt::format("cannot {} the topic {}: {}", action, name,
                  reason && *reason ? asPrintable(reason) : kafkaText(error));
  if (isHidden(error)) throw HiddenSettings(sentence);
  throwFor(error, sentence);
}

// Sends a request and waits for its answer.
template <class Send>
Event request(const KafkaClient& client, rd_kafka_admin_op_t operation, const char* action,
              const std::string& name, Send&& send, std::optional<std::int32_t> broker = {}) {
  const Options options(rd_kafka_AdminOptions_new(client.handle(), operation));
  char reason[256] = "";
  if (rd_kafka_AdminOptions_set_request_timeout(options.get(), kRequestMsec, reason,
                                                sizeof reason) != RD_KAFKA_RESP_ERR_NO_ERROR ||
      (broker && rd_kafka_AdminOptions_set_broker(options.get(), *broker, reason, sizeof reason) !=
                     RD_KAFKA_RESP_ERR_NO_ERROR))
    throw RunError(reason);
  const Queue queue(rd_kafka_queue_new(client.handle()));
  send(options.get(), queue.get());
  Event event(rd_kafka_queue_poll(queue.get(), 2 * kRequestMsec));
  if (!event) fail(action, name, RD_KAFKA_RESP_ERR__TIMED_OUT, nullptr);
  if (const auto error = rd_kafka_event_error(event.get()))
    fail(action, name, error, rd_kafka_event_error_string(event.get()));
  return event;
}

void expectTopicResults(std::span<const rd_kafka_topic_result_t* const> results, const char* action,
                        const std::string& name) {
  for (const rd_kafka_topic_result_t* result : results)
    if (const auto error = rd_kafka_topic_result_error(result))
      fail(action, name, error, rd_kafka_topic_result_error_string(result));
}

void readSettings(const rd_kafka_ConfigResource_t& resource, TopicState& state) {
  std::size_t count = 0;
  const rd_kafka_ConfigEntry_t** const entries = rd_kafka_ConfigResource_configs(&resource, &count);
  for (const rd_kafka_ConfigEntry_t* entry : std::span(entries, count)) {
    const char* const value = rd_kafka_ConfigEntry_value(entry);
    if (!value) continue;
    const char* const name = rd_kafka_ConfigEntry_name(entry);
    state.settings[name] = value;
    if (rd_kafka_ConfigEntry_source(entry) == RD_KAFKA_CONFIG_SOURCE_DYNAMIC_TOPIC_CONFIG)
      state.own[name] = value;
  }
}

}  // namespace

TopicAdmin::TopicAdmin(const KafkaOptions& options)
    : own_(std::make_unique<KafkaClient>(RD_KAFKA_PRODUCER, options, KafkaClient::Settings{})),
      client_(*own_) {
  client_.connect();
}

TopicAdmin::TopicAdmin(KafkaClient& client) : client_(client) {}

TopicAdmin::~TopicAdmin() = default;

std::size_t TopicAdmin::brokerCount() {
  return client_.brokers().size();
}

std::optional<TopicState> TopicAdmin::read(const std::string& name) {
  const auto layout = client_.topic(name);
  if (!layout) return std::nullopt;
  TopicState state{layout->partitions, layout->replicas, {}, {}};
  // Each broker answers this, also when the cluster has lost its controller. It may not know a new
  // topic yet.
  const std::vector<std::int32_t> brokers = client_.brokers();
  if (brokers.empty()) throw NoConnection("the Kafka cluster does not name a broker");
  const auto end = std::chrono::steady_clock::now() + kAppearance;
  while (!describe(name, brokers.at(0), state)) {
    if (std::chrono::steady_clock::now() >= end)
      fail("read", name, RD_KAFKA_RESP_ERR_UNKNOWN_TOPIC_OR_PART, nullptr);
    std::this_thread::sleep_for(kPause);
  }
  return state;
}

bool TopicAdmin::describe(const std::string& name, std::int32_t broker, TopicState& state) {
  const Resource resource(rd_kafka_ConfigResource_new(RD_KAFKA_RESOURCE_TOPIC, name.c_str()));
  const Event event = request(
      client_, RD_KAFKA_ADMIN_OP_DESCRIBECONFIGS, "read", name,
      [&](auto* options, auto* queue) {
        rd_kafka_ConfigResource_t* resources[] = {resource.get()};
        rd_kafka_DescribeConfigs(client_.handle(), resources, 1, options, queue);
      },
      broker);
  std::size_t count = 0;
  const auto* const result = rd_kafka_event_DescribeConfigs_result(event.get());
  const auto** const resources = rd_kafka_DescribeConfigs_result_resources(result, &count);
  for (const auto* found : std::span(resources, count)) {
    const rd_kafka_resp_err_t error = rd_kafka_ConfigResource_error(found);
    if (error == RD_KAFKA_RESP_ERR_UNKNOWN_TOPIC_OR_PART) return false;
    if (error) fail("read", name, error, rd_kafka_ConfigResource_error_string(found));
    readSettings(*found, state);
  }
  return true;
}

void TopicAdmin::carryOut(const WantedTopic& wanted, const TopicSteps& steps,
                          const std::optional<TopicState>& state) {
  if (steps.create) create(wanted);
  if (steps.grow_to > 0) grow(wanted.name, steps.grow_to);
  if (!steps.alter.empty() && state) {
    // The request replaces all settings of the topic.
    TopicSettings settings = steps.alter;
    settings.insert(state->own.begin(), state->own.end());
    alter(wanted.name, settings);
  }
  if (steps.changes.empty()) return;
  const auto end = std::chrono::steady_clock::now() + kAppearance;
  while (!isDone(wanted, steps.grow_to > 0)) {
    if (std::chrono::steady_clock::now() >= end)
      throw RunError(
          fmt::format("the brokers accepted the changes of the topic {}, but have not "
                      "made them yet",
                      wanted.name));
    std::this_thread::sleep_for(kPause);
  }
}

// Brokers learn of a change one after the other.
bool TopicAdmin::isDone(const WantedTopic& wanted, bool grow) {
  const auto layout = client_.topic(wanted.name);
  if (!layout || !layout->has_all_leaders) return false;
  for (const std::int32_t broker : client_.brokers()) {
    TopicState state{layout->partitions, layout->replicas, {}, {}};
    if (!describe(wanted.name, broker, state) || !stepsFor(wanted, state, grow).changes.empty())
      return false;
  }
  return true;
}

void TopicAdmin::create(const WantedTopic& wanted) {
  char reason[256] = "";
  const NewTopic topic(rd_kafka_NewTopic_new(wanted.name.c_str(), wanted.partitions,
                                             wanted.replicas, reason, sizeof reason));
  if (!topic) fail("create", wanted.name, RD_KAFKA_RESP_ERR__INVALID_ARG, reason);
  for (const TopicSetting& setting : wanted.settings)
    rd_kafka_NewTopic_set_config(topic.get(), setting.key.c_str(), setting.value.c_str());
  const Event event = request(client_, RD_KAFKA_ADMIN_OP_CREATETOPICS, "create", wanted.name,
                              [&](auto* options, auto* queue) {
                                rd_kafka_NewTopic_t* topics[] = {topic.get()};
                                rd_kafka_CreateTopics(client_.handle(), topics, 1, options, queue);
                              });
  std::size_t count = 0;
  const auto* const result = rd_kafka_event_CreateTopics_result(event.get());
  const auto** const results = rd_kafka_CreateTopics_result_topics(result, &count);
  expectTopicResults({results, count}, "create", wanted.name);
}

void TopicAdmin::grow(const std::string& name, std::int32_t partitions) {
  char reason[256] = "";
  const NewPartitions more(rd_kafka_NewPartitions_new(
      name.c_str(), static_cast<std::size_t>(partitions), reason, sizeof reason));
  if (!more) fail("change", name, RD_KAFKA_RESP_ERR__INVALID_ARG, reason);
  const Event event = request(
      client_, RD_KAFKA_ADMIN_OP_CREATEPARTITIONS, "change", name, [&](auto* options, auto* queue) {
        rd_kafka_NewPartitions_t* topics[] = {more.get()};
        rd_kafka_CreatePartitions(client_.handle(), topics, 1, options, queue);
      });
  std::size_t count = 0;
  const auto* const result = rd_kafka_event_CreatePartitions_result(event.get());
  const auto** const results = rd_kafka_CreatePartitions_result_topics(result, &count);
  expectTopicResults({results, count}, "change", name);
}

void TopicAdmin::alter(const std::string& name, const TopicSettings& settings) {
  const Resource resource(rd_kafka_ConfigResource_new(RD_KAFKA_RESOURCE_TOPIC, name.c_str()));
  for (const auto& [key, value] : settings)
    rd_kafka_ConfigResource_set_config(resource.get(), key.c_str(), value.c_str());
  const Event event = request(
      client_, RD_KAFKA_ADMIN_OP_ALTERCONFIGS, "change", name, [&](auto* options, auto* queue) {
        rd_kafka_ConfigResource_t* resources[] = {resource.get()};
        rd_kafka_AlterConfigs(client_.handle(), resources, 1, options, queue);
      });
  std::size_t count = 0;
  const auto* const result = rd_kafka_event_AlterConfigs_result(event.get());
  const auto** const resources = rd_kafka_AlterConfigs_result_resources(result, &count);
  for (const auto* altered : std::span(resources, count))
    if (const auto error = rd_kafka_ConfigResource_error(altered))
      fail("change", name, error, rd_kafka_ConfigResource_error_string(altered));
}

}  // namespace tev::host
