// A client of the Kafka brokers: its settings, its log, and the connection.
#pragma once

#include <librdkafka/rdkafka.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/kafka/connection_problem.h"
#include "host/kafka/settings.h"
#include "host/support/errors.h"

namespace tev::host {

// Destroys objects of the client library.
template <auto Destroy>
struct KafkaDestroy {
  template <class Object>
  void operator()(Object* object) const {
    Destroy(object);
  }
};
template <class Object, auto Destroy>
using KafkaOwned = std::unique_ptr<Object, KafkaDestroy<Destroy>>;

using KafkaError = KafkaOwned<rd_kafka_error_t, rd_kafka_error_destroy>;
using KafkaPartitions =
    KafkaOwned<rd_kafka_topic_partition_list_t, rd_kafka_topic_partition_list_destroy>;

// The text of the library for this error.
inline std::string kafkaText(rd_kafka_resp_err_t error) {
  return rd_kafka_err2str(error);
}

// No broker can be reached.
class NoConnection : public RunError {
 public:
  using RunError::RunError;
};

// Throws NoConnection when the error means this, else RunError.
[[noreturn]] void throwFor(rd_kafka_resp_err_t error, const std::string& sentence);

// What a client tells during its poll() or consume(), on the caller's thread.
class KafkaListener {
 public:
  KafkaListener() = default;
  virtual ~KafkaListener() = default;
  KafkaListener(const KafkaListener&) = delete;
  KafkaListener& operator=(const KafkaListener&) = delete;

  // The library goes on by itself, unless the error is RD_KAFKA_RESP_ERR__FATAL.
  virtual void failed(rd_kafka_resp_err_t, const std::string&) {}
  // A message was delivered, or given up.
  virtual void delivered(const rd_kafka_message_t&) {}
  virtual void rebalanced(rd_kafka_resp_err_t, rd_kafka_topic_partition_list_t&) {}
};

struct TopicLayout {
  std::int32_t partitions = 0;
  std::int32_t replicas = 0;  // of the partition with the fewest
  bool has_all_leaders = false;
};

class KafkaClient {
 public:
  using Settings = std::vector<std::pair<const char*, std::string>>;

  // Does not connect yet. `own` takes precedence over the settings of the user. The listener, which
  // may be null, is called only by poll() and consume(). Throws UsageError for a setting that the
  // library does not take, and RunError when the settings contradict each other.
  KafkaClient(rd_kafka_type_t type, const KafkaOptions& options, const Settings& own,
              KafkaListener* listener = nullptr);
  ~KafkaClient();
  KafkaClient(const KafkaClient&) = delete;
  KafkaClient& operator=(const KafkaClient&) = delete;

  rd_kafka_t* handle() const { return handle_.get(); }

  // Waits until a broker answers. Throws NoConnection when none can be
  // reached, and RunError when it refuses.
  void connect();

  // Whether waiting for other brokers does not help.
  bool isSettled() const;

  // Throws RunError, or NoConnection, with what is known of the reason.
  [[noreturn]] void throwNoConnection() const;

  // Whether a broker answers within this time.
  bool answers(std::chrono::milliseconds patience);

  // Any broker answers. Nothing when the topic does not exist; no partitions while it is being
  // created. Throws RunError.
  std::optional<TopicLayout> topic(const std::string& name);

  // The numbers of the brokers that are there, at least one. Throws RunError.
  std::vector<std::int32_t> brokers();

  // The same as topic(); a missing topic is an error, too.
  TopicLayout expectTopic(const std::string& name);

  // Calls the listener; its exceptions pass.
  void poll(std::chrono::milliseconds patience);

  // The next message or event of a consumer; null when none came in time.
  using Message = KafkaOwned<rd_kafka_message_t, rd_kafka_message_destroy>;
  Message consume(std::chrono::milliseconds patience);

  // The text without the values of secret settings.
  std::string withoutSecrets(std::string text) const;

 private:
  using Conf = KafkaOwned<rd_kafka_conf_t, rd_kafka_conf_destroy>;

  static void destroy(rd_kafka_t* handle);
  static void onLog(const rd_kafka_t* handle, int level, const char* facility, const char* text);
  static void onError(rd_kafka_t* handle, int error, const char* reason, void* opaque);
  static void onDelivery(rd_kafka_t* handle, const rd_kafka_message_t* message, void* opaque);
  static void onRebalance(rd_kafka_t* handle, rd_kafka_resp_err_t error,
                          rd_kafka_topic_partition_list_t* partitions, void* opaque);
  template <class Action>
  void guarded(Action&& action) noexcept;
  void rethrow();
  void apply(rd_kafka_conf_t* conf, const KafkaSetting& setting) const;

  // The library uses these until the handle is destroyed.
  const std::string brokers_;
  KafkaListener* const listener_;
  std::vector<std::string> secrets_;
  std::exception_ptr thrown_;                 // by the listener
  std::optional<ConnectionProblem> problem_;  // the last one
  bool are_all_down_ = false;                 // or were
  bool was_connected_ = false;

  KafkaOwned<rd_kafka_t, destroy> handle_;
};

}  // namespace tev::host
