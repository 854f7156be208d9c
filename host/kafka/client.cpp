#include "host/kafka/client.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>

#include "host/support/errors.h"
#include "host/support/host_threads.h"
#include "host/support/log.h"
#include "host/support/stop_signal.h"
#include "host/support/text.h"
#include "tev/logger.h"

namespace tev::host {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kPatience{10'000};       // until a broker answers
constexpr milliseconds kSettledPatience{2000};  // the same, when the reason is known
constexpr milliseconds kSlice{200};
constexpr std::size_t kLeastHidden = 4;  // characters: shorter texts occur by chance

using Metadata = KafkaOwned<const rd_kafka_metadata_t, rd_kafka_metadata_destroy>;
using Topic = KafkaOwned<rd_kafka_topic_t, rd_kafka_topic_destroy>;

int toInt(milliseconds time) {
  return static_cast<int>(time.count());
}

// Lines of the library report each attempt to connect. This program says once what they mean, and
// shows the lines only when more is wanted. A setting without effect is worth a warning.
std::uint32_t levelOf(int level, std::string_view facility) {
  if (facility == "CONFWARN" && level <= TEV_LEVEL_WARNING) return TEV_LEVEL_WARNING;
  return level <= TEV_LEVEL_INFO ? TEV_LEVEL_INFO : TEV_LEVEL_DEBUG;
}

}  // namespace

KafkaClient::KafkaClient(rd_kafka_type_t type, const KafkaOptions& options, const Settings& own,
                         KafkaListener* listener)
    : brokers_(options.brokers), listener_(listener) {
  const std::vector<KafkaSetting> settings = readKafkaSettings(options);
  for (const KafkaSetting& setting : settings)
    if (isSecret(setting.key) && setting.value.size() >= kLeastHidden)
      secrets_.push_back(setting.value);

  addHostThreadNames("rdk:");  // the library's threads, which also begin when brokers are added
  Conf conf(rd_kafka_conf_new());
  rd_kafka_conf_set_opaque(conf.get(), this);
  rd_kafka_conf_set_log_cb(conf.get(), onLog);
  rd_kafka_conf_set_error_cb(conf.get(), onError);
  if (type == RD_KAFKA_PRODUCER && listener) rd_kafka_conf_set_dr_msg_cb(conf.get(), onDelivery);
  if (type == RD_KAFKA_CONSUMER && listener)
    rd_kafka_conf_set_rebalance_cb(conf.get(), onRebalance);
  apply(conf.get(), {"client.id", "tev-host", ""});
  for (const KafkaSetting& setting : settings) apply(conf.get(), setting);
  apply(conf.get(), {"bootstrap.servers", options.brokers, "--kafka"});
  apply(conf.get(), {"allow.auto.create.topics", "false", ""});
  for (const auto& [key, value] : own) apply(conf.get(), {key, value, ""});

  char reason[512] = "";
  handle_.reset(rd_kafka_new(type, conf.get(), reason, sizeof reason));
  if (!handle_)
    throw RunError(
        fmt::format("cannot set the Kafka client up: {}", setUpProblem(withoutSecrets(reason))));
  static_cast<void>(conf.release());  // belongs to the handle
}

KafkaClient::~KafkaClient() = default;

// Without leaving the group, which would call the listener.
void KafkaClient::destroy(rd_kafka_t* handle) {
  rd_kafka_destroy_flags(handle, RD_KAFKA_DESTROY_F_NO_CONSUMER_CLOSE);
}

void KafkaClient::apply(rd_kafka_conf_t* conf, const KafkaSetting& setting) const {
  char reason[512] = "";
  const rd_kafka_conf_res_t result =
      rd_kafka_conf_set(conf, setting.key.c_str(), setting.value.c_str(), reason, sizeof reason);
  if (result == RD_KAFKA_CONF_OK) return;
  const std::string key = asPrintable(setting.key);
  if (result == RD_KAFKA_CONF_UNKNOWN)
    throw UsageError(fmt::format("{}: Kafka has no setting {}", setting.place, key));
  throw UsageError(fmt::format(
      "{}: {} cannot be set: {}", setting.place, key,
      isSecret(setting.key) ? "the value is not valid" : asPrintable(withoutSecrets(reason))));
}

std::string KafkaClient::withoutSecrets(std::string text) const {
  for (const std::string& secret : secrets_)
    for (std::size_t at = 0; (at = text.find(secret, at)) != std::string::npos;)
      text.replace(at, secret.size(), "***");
  return text;
}

void KafkaClient::onLog(const rd_kafka_t* handle, int level, const char* facility,
                        const char* text) {
  try {
    const auto* const client = static_cast<const KafkaClient*>(rd_kafka_opaque(handle));
    const std::string line = fmt::format("[kafka] {}: {}", facility, text);
    Log::instance().write(levelOf(level, facility),
                          asPrintable(client ? client->withoutSecrets(line) : line));
  } catch (...) {  // without memory, the line is lost
  }
}

// Keeps an exception for the caller of poll(): the library is not prepared for one.
template <class Action>
void KafkaClient::guarded(Action&& action) noexcept {
  try {
    action();
  } catch (...) {
    if (!thrown_) thrown_ = std::current_exception();
  }
}

void KafkaClient::rethrow() {
  if (thrown_) std::rethrow_exception(std::exchange(thrown_, nullptr));
}

void KafkaClient::onError(rd_kafka_t*, int error, const char* reason, void* opaque) {
  auto* const client = static_cast<KafkaClient*>(opaque);
  client->guarded([&] {
    const auto code = static_cast<rd_kafka_resp_err_t>(error);
    const std::string text = client->withoutSecrets(reason);
    if (code == RD_KAFKA_RESP_ERR__FATAL) {
      if (client->listener_) client->listener_->failed(code, asPrintable(text));
      return;
    }
    // "All brokers are down" adds nothing to the reason before it.
    const bool are_all_down = code == RD_KAFKA_RESP_ERR__ALL_BROKERS_DOWN;
    client->are_all_down_ = client->are_all_down_ || are_all_down;
    if (!are_all_down || !client->problem_)
      client->problem_ = connectionProblem(text, client->was_connected_);
    if (client->listener_) client->listener_->failed(code, client->problem_->text);
  });
}

void KafkaClient::onDelivery(rd_kafka_t*, const rd_kafka_message_t* message, void* opaque) {
  auto* const client = static_cast<KafkaClient*>(opaque);
  client->guarded([&] { client->listener_->delivered(*message); });
}

void KafkaClient::onRebalance(rd_kafka_t*, rd_kafka_resp_err_t error,
                              rd_kafka_topic_partition_list_t* partitions, void* opaque) {
  auto* const client = static_cast<KafkaClient*>(opaque);
  client->guarded([&] { client->listener_->rebalanced(error, *partitions); });
}

void KafkaClient::poll(milliseconds patience) {
  rd_kafka_poll(handle_.get(), toInt(patience));
  rethrow();
}

KafkaClient::Message KafkaClient::consume(milliseconds patience) {
  Message message(rd_kafka_consumer_poll(handle_.get(), toInt(patience)));
  rethrow();
  return message;
}

bool KafkaClient::answers(milliseconds patience) {
  const rd_kafka_metadata_t* answer = nullptr;
  const rd_kafka_resp_err_t error =
      rd_kafka_metadata(handle_.get(), 0, nullptr, &answer, toInt(patience));
  const Metadata metadata(answer);
  poll(milliseconds(0));
  was_connected_ = was_connected_ || error == RD_KAFKA_RESP_ERR_NO_ERROR;
  return error == RD_KAFKA_RESP_ERR_NO_ERROR;
}

void KafkaClient::connect() {
  const Clock::time_point start = Clock::now();
  while (!answers(kSlice)) {
    if (StopSignal::requests() > 0)
      throw RunError("interrupted while no Kafka broker had answered");
    const auto waited = Clock::now() - start;
    if (waited >= kPatience || (isSettled() && waited >= kSettledPatience)) throwNoConnection();
  }
}

bool KafkaClient::isSettled() const {
  return are_all_down_ || (problem_ && problem_->kind != ConnectionProblem::Kind::unreachable);
}

void KafkaClient::throwNoConnection() const {
  const ConnectionProblem problem =
      problem_.value_or(ConnectionProblem{.text = "none answered within ten seconds"});
  const std::string sentence = problem.sentence(asPrintable(brokers_));
  if (problem.kind == ConnectionProblem::Kind::unreachable) throw NoConnection(sentence);
  throw RunError(sentence);
}

void throwFor(rd_kafka_resp_err_t error, const std::string& sentence) {
  if (error == RD_KAFKA_RESP_ERR__TIMED_OUT || error == RD_KAFKA_RESP_ERR__TRANSPORT)
    throw NoConnection(sentence);
  throw RunError(sentence);
}

std::optional<TopicLayout> KafkaClient::topic(const std::string& name) {
  const Topic topic(rd_kafka_topic_new(handle_.get(), name.c_str(), nullptr));
  if (!topic) throw RunError(fmt::format("cannot use the topic {}", asPrintable(name)));
  const rd_kafka_metadata_t* answer = nullptr;
  rd_kafka_resp_err_t error =
      rd_kafka_metadata(handle_.get(), 0, topic.get(), &answer, toInt(kPatience));
  const Metadata metadata(answer);
  if (error == RD_KAFKA_RESP_ERR_NO_ERROR)
    error = metadata->topic_cnt == 1 ? metadata->topics[0].err
                                     : RD_KAFKA_RESP_ERR_UNKNOWN_TOPIC_OR_PART;
  if (error == RD_KAFKA_RESP_ERR_UNKNOWN_TOPIC_OR_PART) return std::nullopt;
  if (error == RD_KAFKA_RESP_ERR_LEADER_NOT_AVAILABLE) return TopicLayout{};
  if (error != RD_KAFKA_RESP_ERR_NO_ERROR)
    throwFor(error,
             fmt::format("cannot use the topic {}: {}", asPrintable(name), kafkaText(error)));
  const rd_kafka_metadata_topic_t& found = metadata->topics[0];
  const std::span partitions(found.partitions, static_cast<std::size_t>(found.partition_cnt));
  TopicLayout layout{found.partition_cnt, partitions.empty() ? 0 : INT32_MAX, !partitions.empty()};
  for (const rd_kafka_metadata_partition_t& partition : partitions) {
    layout.replicas = std::min(layout.replicas, partition.replica_cnt);
    layout.has_all_leaders = layout.has_all_leaders && partition.leader >= 0;
  }
  return layout;
}

std::vector<std::int32_t> KafkaClient::brokers() {
  const rd_kafka_metadata_t* answer = nullptr;
  const rd_kafka_resp_err_t error =
      rd_kafka_metadata(handle_.get(), 0, nullptr, &answer, toInt(kPatience));
  const Metadata metadata(answer);
  if (error != RD_KAFKA_RESP_ERR_NO_ERROR)
    throwFor(error, "the Kafka brokers do not answer: " + kafkaText(error));
  std::vector<std::int32_t> numbers;
  for (const auto& broker :
       std::span(metadata->brokers, static_cast<std::size_t>(metadata->broker_cnt)))
    numbers.push_back(broker.id);
  if (numbers.empty()) throw NoConnection("the Kafka brokers name no broker that is there");
  return numbers;
}

TopicLayout KafkaClient::expectTopic(const std::string& name) {
  const auto layout = topic(name);
  if (!layout)
    throw RunError(
        fmt::format("the Kafka brokers at {} have no topic {}: 'tev-host topics' creates it",
                    asPrintable(brokers_), asPrintable(name)));
  return *layout;
}

}  // namespace tev::host
