// How the topics are to be, and what is to be done for that.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tev::host {

struct TopicsOptions {
  std::uint64_t partitions = 12;
  std::uint64_t replicas = 3;
  std::chrono::milliseconds retention = std::chrono::hours(24);
  bool grow = false;     // add partitions to an existing topic
  bool dry_run = false;  // only say what would be done
};

enum class SettingRule {
  always,    // also of an existing topic
  only_new,  // of a topic that is created; afterwards the operator decides
  kept,      // an existing topic keeps another value: a change would remove messages
  longer,    // of an existing topic, it is only lengthened, for the same reason
  at_least,  // a larger value serves, too
};

struct TopicSetting {
  std::string key;
  std::string value;
  SettingRule rule;
};

struct WantedTopic {
  std::string name;
  std::int32_t partitions;
  std::int32_t replicas;
  std::vector<TopicSetting> settings;
};

using TopicSettings = std::map<std::string, std::string>;

struct TopicState {
  std::int32_t partitions;
  std::int32_t replicas;
  TopicSettings settings;  // all, with those that the brokers set
  TopicSettings own;       // those that were set for this topic
};

// A change, for people: SUBJECT is CHANGE, or SUBJECT would be CHANGE.
struct ChangeText {
  std::string subject;
  std::string change;
};

struct TopicSteps {
  bool create = false;
  std::int32_t grow_to = 0;  // partitions; 0: it stays as it is
  TopicSettings alter;       // the new values
  std::vector<ChangeText> changes;
  std::vector<std::string> left;  // what differs and stays so: sentences
};

// The topic of the events, and the topic of their schemas.
std::vector<WantedTopic> wantedTopics(const std::string& name, const TopicsOptions& options);

// `state` is empty when the topic does not exist. Nothing is shrunk.
TopicSteps stepsFor(const WantedTopic& wanted, const std::optional<TopicState>& state, bool grow);

}  // namespace tev::host
