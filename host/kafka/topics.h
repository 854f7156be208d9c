// Creates and changes topics.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "host/kafka/settings.h"
#include "host/kafka/topic_plan.h"
#include "host/support/errors.h"

namespace tev::host {

class KafkaClient;

// The brokers do not show the settings of a topic to this client.
class HiddenSettings : public RunError {
 public:
  using RunError::RunError;
};

// All functions throw RunError with the brokers' reason.
class TopicAdmin {
 public:
  // Waits until a broker answers.
  explicit TopicAdmin(const KafkaOptions& options);
  // Uses a connection that exists, and must outlive this.
  explicit TopicAdmin(KafkaClient& client);
  ~TopicAdmin();
  TopicAdmin(const TopicAdmin&) = delete;
  TopicAdmin& operator=(const TopicAdmin&) = delete;

  std::size_t brokerCount();

  // Nothing when the topic does not exist. Throws HiddenSettings, too.
  std::optional<TopicState> read(const std::string& name);

  // Does the steps, and waits until the topic is as wanted and has leaders.
  void carryOut(const WantedTopic& wanted, const TopicSteps& steps,
                const std::optional<TopicState>& state);

 private:
  // False when the broker does not know the topic.
  bool describe(const std::string& name, std::int32_t broker, TopicState& state);
  void create(const WantedTopic& wanted);
  void grow(const std::string& name, std::int32_t partitions);
  void alter(const std::string& name, const TopicSettings& settings);
  bool isDone(const WantedTopic& wanted, bool grow);

  std::unique_ptr<KafkaClient> own_;
  KafkaClient& client_;
};

}  // namespace tev::host
