// How the topics are to be, and what is to be done for that.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tev::host {

// A batch is closed at 64 KiB, but one block of events may be as large as a buffer.
inline constexpr char kLargestMessage[] = "8388608";  // bytes

// What is not given has a usual value for a new topic, and any value for an existing one.
struct TopicsOptions {
  std::optional<std::uint64_t> partitions;
  std::optional<std::uint64_t> replicas;
  std::optional<std::chrono::milliseconds> retention;
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
  // What happens with another value, for settings that the events need; null for all others.
  const char* otherwise = nullptr;
};

struct WantedTopic {
  std::string name;
  std::int32_t partitions;
  std::int32_t replicas;
  bool needs_partitions;  // an existing topic is asked for this number, too
  bool needs_replicas;
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

// Why the topic would lose events, or takes none: a sentence; empty when it keeps them.
std::string faultOf(const WantedTopic& wanted, const TopicState& state);

// Which loss the topic does not survive: a sentence; empty when one broker may fail.
std::string weaknessOf(const WantedTopic& wanted, const TopicState& state);

}  // namespace tev::host
