#include "host/kafka/topic_plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>
#include <utility>

#include "host/kafka/settings.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

using std::chrono::milliseconds;

constexpr char kInSync[] = "min.insync.replicas";

// A batch is closed at 64 KiB, but one block of events may be as large as a buffer.
constexpr char kLargestMessage[] = "8388608";

constexpr milliseconds kShortestSegment = std::chrono::minutes(1);
constexpr int kSegmentsPerRetention = 8;

// With three replicas, one may be missing.
std::string inSyncOf(std::int32_t replicas) {
  return replicas >= 3 ? "2" : "1";
}

// A negative number means: without limit. So does a text that is not a number.
std::int64_t numberOf(std::string_view text) {
  std::int64_t number = -1;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number < 0 ? std::numeric_limits<std::int64_t>::max() : number;
}

std::string timeText(std::int64_t msec) {
  if (msec == std::numeric_limits<std::int64_t>::max()) return "without end";
  for (const auto& [length, unit] :
       {std::pair(86'400'000, "d"), {3'600'000, "h"}, {60'000, "m"}, {1000, "s"}})
    if (msec % length == 0) return fmt::format("{}{}", msec / length, unit);
  return fmt::format("{}ms", msec);
}

std::string countText(std::int32_t count, const char* what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

// What an existing topic is asked to have.
std::string wantedValue(const TopicSetting& setting, const TopicState& state) {
  return setting.key == kInSync ? inSyncOf(state.replicas) : setting.value;
}

void compareSetting(const std::string& topic, const TopicSetting& setting,
                    const std::string& wanted, const std::string& present, TopicSteps& steps) {
  const std::int64_t number = numberOf(present);
  switch (setting.rule) {
    case SettingRule::only_new:
      return;
    case SettingRule::kept:
      if (present != wanted)
        steps.left.push_back(fmt::format(
            "{} keeps {}={}, although {} is asked for: the change could remove messages", topic,
            setting.key, asPrintable(present), wanted));
      return;
    case SettingRule::longer:
      if (number > numberOf(wanted))
        steps.left.push_back(fmt::format(
            "{} keeps its messages {}{}, although {} is asked for: a retention is not shortened",
            topic, present == "-1" ? "" : "for ", timeText(number), timeText(numberOf(wanted))));
      if (number >= numberOf(wanted)) return;
      break;
    case SettingRule::at_least:
      if (number >= numberOf(wanted)) return;
      break;
    case SettingRule::always:
      if (present == wanted) return;
      break;
  }
  steps.alter[setting.key] = wanted;
  steps.changes.push_back(
      {fmt::format("{} of {}", setting.key, topic),
       fmt::format("changed from {} to {}", present.empty() ? "nothing" : asPrintable(present),
                   wanted)});
}

void comparePartitions(const WantedTopic& wanted, const TopicState& state, bool grow,
                       TopicSteps& steps) {
  const std::string present = countText(state.partitions, "partition");
  if (state.partitions > wanted.partitions) {
    steps.left.push_back(fmt::format(
        "{} keeps its {}, although {} {} asked for: partitions are not removed", wanted.name,
        present, wanted.partitions, wanted.partitions == 1 ? "is" : "are"));
  } else if (state.partitions < wanted.partitions && grow) {
    steps.grow_to = wanted.partitions;
    steps.changes.push_back(
        {wanted.name,
         fmt::format("given {} instead of {}; sources move to other partitions, so the order of "
                     "a source's events breaks once",
                     countText(wanted.partitions, "partition"), state.partitions)});
  } else if (state.partitions < wanted.partitions) {
    steps.left.push_back(
        fmt::format("{} keeps its {}, although {} are asked for: --grow adds the others, which "
                    "moves sources to other partitions and breaks the order of their events once",
                    wanted.name, present, wanted.partitions));
  }
}

}  // namespace

std::vector<WantedTopic> wantedTopics(const std::string& name, const TopicsOptions& options) {
  const auto replicas = static_cast<std::int32_t>(options.replicas);
  const auto text = [](milliseconds time) { return fmt::format("{}", time.count()); };
  // Only whole segments are removed.
  const milliseconds segment =
      std::max(options.retention / kSegmentsPerRetention, kShortestSegment);
  const TopicSetting in_sync{kInSync, inSyncOf(replicas), SettingRule::at_least};
  const TopicSetting largest{"max.message.bytes", kLargestMessage, SettingRule::at_least};
  const TopicSetting codec{"compression.type", "producer", SettingRule::only_new};
  return {{name,
           static_cast<std::int32_t>(options.partitions),
           replicas,
           {{"cleanup.policy", "delete", SettingRule::kept},
            {"retention.ms", text(options.retention), SettingRule::longer},
            {"segment.ms", text(segment), SettingRule::only_new},
            // The clock of a node does not decide how long its messages are kept.
            {"message.timestamp.type", "LogAppendTime", SettingRule::only_new},
            in_sync,
            largest,
            codec}},
          {schemaTopicOf(name),
           1,
           replicas,
           {{"cleanup.policy", "compact", SettingRule::always}, in_sync, largest, codec}}};
}

TopicSteps stepsFor(const WantedTopic& wanted, const std::optional<TopicState>& state, bool grow) {
  TopicSteps steps;
  if (!state) {
    std::string text =
        fmt::format("created with {} and {}:", countText(wanted.partitions, "partition"),
                    countText(wanted.replicas, "replica"));
    for (const TopicSetting& setting : wanted.settings)
      text += fmt::format(" {}={}", setting.key, setting.value);
    steps.create = true;
    steps.changes.push_back({wanted.name, text});
    return steps;
  }
  comparePartitions(wanted, *state, grow, steps);
  if (state->replicas != wanted.replicas)
    steps.left.push_back(fmt::format(
        "{} keeps its {}, although {} {} asked for: this is a task of Kafka's own tools",
        wanted.name, countText(state->replicas, "replica"), wanted.replicas,
        wanted.replicas == 1 ? "is" : "are"));
  for (const TopicSetting& setting : wanted.settings) {
    const auto present = state->settings.find(setting.key);
    compareSetting(wanted.name, setting, wantedValue(setting, *state),
                   present == state->settings.end() ? "" : present->second, steps);
  }
  return steps;
}

}  // namespace tev::host
