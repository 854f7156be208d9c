// Creates and changes topics.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "host/kafka/settings.h"
#include "host/kafka/topic_plan.h"

namespace tev::host {

class KafkaClient;

// All functions throw RunError with the brokers' reason.
class TopicAdmin {
 public:
  // Waits until a broker answers.
  explicit TopicAdmin(const KafkaOptions& options);
  ~TopicAdmin();
  TopicAdmin(const TopicAdmin&) = delete;
  TopicAdmin& operator=(const TopicAdmin&) = delete;

  // Nothing when the topic does not exist.
  std::optional<TopicState> read(const std::string& name);

  // Does the steps, and waits until the topic is as wanted and has leaders.
  void carryOut(const WantedTopic& wanted, const TopicSteps& steps,
                const std::optional<TopicState>& state);

 private:
  // False when the broker, or any, does not know the topic.
  bool describe(const std::string& name, std::optional<std::int32_t> broker, TopicState& state);
  void create(const WantedTopic& wanted);
  void grow(const std::string& name, std::int32_t partitions);
  void alter(const std::string& name, const TopicSettings& settings);
  bool isDone(const WantedTopic& wanted, bool grow);

  std::unique_ptr<KafkaClient> client_;
};

}  // namespace tev::host
