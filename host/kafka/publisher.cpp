#include "host/kafka/publisher.h"

#include <fmt/format.h>

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/kafka/client.h"
#include "host/kafka/topic_check.h"
#include "host/kafka/topic_plan.h"
#include "host/support/errors.h"
#include "host/support/log.h"

namespace tev::host {
namespace {

// What the promises of the messages rest on. Batches are packed already, and large enough to be
// sent at once. A message waits for the brokers without a limit: what waits is bounded before it.
const KafkaClient::Settings kSettings = {
    {"enable.idempotence", "true"},
    {"compression.codec", "none"},
    {"message.timeout.ms", "0"},
    // As the topics.
    {"message.max.bytes", kLargestMessage},
    {"partitioner", "murmur2_random"},  // as other clients of Kafka do
};

constexpr std::chrono::milliseconds kGlance{500};  // until a broker answers, when none has so far
constexpr std::chrono::seconds kPause{1};          // between two attempts
constexpr std::chrono::seconds kLongPause{10};     // when the brokers refuse

// Whether the brokers never take this message. Everything else may pass.
bool isRefusal(rd_kafka_resp_err_t error) {
  return error == RD_KAFKA_RESP_ERR_MSG_SIZE_TOO_LARGE || error == RD_KAFKA_RESP_ERR_INVALID_MSG ||
         error == RD_KAFKA_RESP_ERR_INVALID_MSG_SIZE || error == RD_KAFKA_RESP_ERR_INVALID_RECORD;
}

class KafkaPublisher final : public Publisher, KafkaListener {
 public:
  explicit KafkaPublisher(const KafkaOptions& options)
      : options_(options), schema_topic_(schemaTopicOf(options.topic)) {
    restart();
  }

  ~KafkaPublisher() override { purge(); }

  // Throws RunError.
  void connect() {
    client_->connect();
    expectTopics();
  }

  // Tries again and again. Takes no message until then.
  void connectLater(const std::string& reason) {
    next_attempt_ = Clock::now() + kPause;
    is_connected_ = false;
    sayWaiting(reason);
  }

  std::string name() const override { return "the Kafka brokers"; }

  bool send(std::uint64_t number, const OutgoingMessage& message) override {
    if (next_attempt_) return false;
    Headers headers(rd_kafka_headers_new(message.headers.size()));
    for (const auto& [name, value] : message.headers)
      rd_kafka_header_add(headers.get(), name.data(), static_cast<ssize_t>(name.size()),
                          value.data(), static_cast<ssize_t>(value.size()));
    return produce(number, options_.topic, message.key, message.value.data(), message.value.size(),
                   std::move(headers));
  }

  bool sendSchema(std::uint64_t number, const std::string& id, const std::string& text) override {
    if (next_attempt_) return false;
    return produce(number, schema_topic_, id, text.data(), text.size(), nullptr);
  }

  void poll(std::chrono::milliseconds patience, const Report& report) override {
    if (next_attempt_ && Clock::now() >= *next_attempt_) tryToConnect();
    client_->poll(reports_.empty() ? patience : std::chrono::milliseconds::zero());
    for (const DeliveryReport& one : std::exchange(reports_, {})) report(one);
  }

  bool isConnected() const override { return is_connected_; }
  bool hasFailed() const override { return has_failed_; }

  void restart() override {
    auto next = std::make_unique<KafkaClient>(RD_KAFKA_PRODUCER, options_, kSettings,
                                              static_cast<KafkaListener*>(this));
    purge();
    client_ = std::move(next);
    has_failed_ = false;
  }

 private:
  using Clock = std::chrono::steady_clock;
  using Headers = KafkaOwned<rd_kafka_headers_t, rd_kafka_headers_destroy>;

  void expectTopics() {
    const std::string weakness = host::expectTopics(*client_, options_.topic);
    if (!weakness.empty()) Log::instance().say("tev-host: " + weakness);
  }

  // What the brokers would lose waits until they are as needed.
  void tryToConnect() {
    next_attempt_ = Clock::now() + kPause;
    try {
      if (!client_->answers(kGlance)) {
        if (client_->isSettled()) client_->throwNoConnection();
        return;
      }
      expectTopics();
      next_attempt_.reset();
      is_connected_ = true;
    } catch (const NoConnection& error) {
      next_attempt_ = Clock::now() + kPause;
      sayWaiting(error.what());
    } catch (const RunError& error) {
      next_attempt_ = Clock::now() + kLongPause;
      sayWaiting(error.what());
    }
  }

  // Each reason is one line.
  void sayWaiting(const std::string& reason) {
    if (said_.insert(reason).second)
      Log::instance().say(fmt::format("tev-host: {}; the events wait", reason));
  }

  bool produce(std::uint64_t number, const std::string& topic, const std::string& key,
               const void* value, std::size_t size, Headers headers) {
    std::vector<rd_kafka_vu_t> parts(5);
    parts[0].vtype = RD_KAFKA_VTYPE_TOPIC;
    parts[0].u.cstr = topic.c_str();
    parts[1].vtype = RD_KAFKA_VTYPE_KEY;
    parts[1].u.mem = {const_cast<char*>(key.data()), key.size()};  // copied
    parts[2].vtype = RD_KAFKA_VTYPE_VALUE;
    parts[2].u.mem = {const_cast<void*>(value), size};
    parts[3].vtype = RD_KAFKA_VTYPE_MSGFLAGS;
    parts[3].u.i = RD_KAFKA_MSG_F_COPY;
    parts[4].vtype = RD_KAFKA_VTYPE_OPAQUE;
    // The library only hands it back. NOLINTNEXTLINE(performance-no-int-to-ptr)
    parts[4].u.ptr = reinterpret_cast<void*>(static_cast<std::uintptr_t>(number));
    if (headers) {
      parts.emplace_back().vtype = RD_KAFKA_VTYPE_HEADERS;
      parts.back().u.headers = headers.get();
    }
    const KafkaError error(rd_kafka_produceva(client_->handle(), parts.data(), parts.size()));
    if (!error) {
      static_cast<void>(headers.release());  // belongs to the message
      return true;
    }
    const rd_kafka_resp_err_t code = rd_kafka_error_code(error.get());
    if (!isRefusal(code)) return false;
    note(number, code);
    return true;
  }

  void note(std::uint64_t number, rd_kafka_resp_err_t error) {
    using Outcome = DeliveryReport::Outcome;
    const Outcome outcome = error == RD_KAFKA_RESP_ERR_NO_ERROR ? Outcome::stored
                            : isRefusal(error)                  ? Outcome::refused
                                                                : Outcome::unknown;
    if (outcome == Outcome::stored) is_connected_ = true;
    reports_.push_back({number, outcome, kafkaText(error)});
  }

  void delivered(const rd_kafka_message_t& message) override {
    note(reinterpret_cast<std::uintptr_t>(message._private), message.err);
  }

  void failed(rd_kafka_resp_err_t error, const std::string&) override {
    if (error == RD_KAFKA_RESP_ERR__ALL_BROKERS_DOWN) is_connected_ = false;
    if (error == RD_KAFKA_RESP_ERR__FATAL) has_failed_ = true;
  }

  // What has no report is forgotten. Destroying a client waits for it otherwise.
  void purge() {
    if (!client_) return;
    rd_kafka_purge(client_->handle(), RD_KAFKA_PURGE_F_QUEUE | RD_KAFKA_PURGE_F_INFLIGHT);
    client_->poll(std::chrono::milliseconds::zero());
    reports_.clear();
    client_.reset();
  }

  KafkaOptions options_;
  std::string schema_topic_;
  std::unique_ptr<KafkaClient> client_;
  std::vector<DeliveryReport> reports_;
  std::optional<Clock::time_point> next_attempt_;  // until a broker has answered
  std::set<std::string> said_;                     // why the events wait
  bool is_connected_ = true;
  bool has_failed_ = false;
};

}  // namespace

std::unique_ptr<Publisher> makeKafkaPublisher(const KafkaOptions& options, bool may_wait) {
  auto publisher = std::make_unique<KafkaPublisher>(options);
  try {
    publisher->connect();
  } catch (const NoConnection& error) {
    if (!may_wait) throw;
    publisher->connectLater(error.what());
  }
  return publisher;
}

}  // namespace tev::host
