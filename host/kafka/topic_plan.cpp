#include "host/kafka/topic_plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <string_view>
#include <utility>

#include "host/kafka/settings.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

using std::chrono::milliseconds;

constexpr char kInSync[] = "min.insync.replicas";

constexpr std::uint64_t kUsualPartitions = 12;
constexpr std::uint64_t kUsualReplicas = 3;
constexpr milliseconds kUsualRetention = std::chrono::hours(24);

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

std::string countText(std::int32_t count, const char* noun) {
  return counted(static_cast<std::uint64_t>(std::max(count, 0)), noun);
}

// The number of replicas that must have a message; 0: not known.
std::int64_t presentInSync(const TopicState& state) {
  const auto present = state.settings.find(kInSync);
  return present == state.settings.end() ? 0 : numberOf(present->second);
}

// What an existing topic is asked to have.
std::string wantedValue(const TopicSetting& setting, const TopicState& state) {
  return setting.key == kInSync ? inSyncOf(state.replicas) : setting.value;
}

// Whether the present value serves.
bool isMet(const TopicSetting& setting, const std::string& wanted, const std::string& present) {
  switch (setting.rule) {
    case SettingRule::only_new:
      return true;
    case SettingRule::longer:
    case SettingRule::at_least:
      return numberOf(present) >= numberOf(wanted);
    case SettingRule::kept:
    case SettingRule::always:
      break;
  }
  return present == wanted;
}

void compareSetting(const std::string& topic, const TopicSetting& setting,
                    const std::string& wanted, const std::string& present, TopicSteps& steps) {
  const std::int64_t number = numberOf(present);
  if (setting.rule == SettingRule::longer && number > numberOf(wanted))
    steps.left.push_back(fmt::format(
        "{} keeps its messages {}{}, although {} is asked for: a retention is not shortened", topic,
        present == "-1" ? "" : "for ", timeText(number), timeText(numberOf(wanted))));
  if (isMet(setting, wanted, present)) return;
  if (setting.rule == SettingRule::kept) {
    steps.left.push_back(
        fmt::format("{} keeps {}={}, although {} is needed: the change could remove messages",
                    topic, setting.key, asPrintable(present), wanted));
    return;
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

// Why the topic takes no message: a sentence; empty when it does.
std::string takesNothing(const WantedTopic& wanted, const TopicState& state) {
  const std::int64_t in_sync = presentInSync(state);
  if (state.replicas == 0 || in_sync <= state.replicas) return "";
  return fmt::format(
      "the topic {} has {}={} and {}, so it takes no message: Kafka's own tools change this",
      wanted.name, kInSync, in_sync, countText(state.replicas, "replica"));
}

}  // namespace

std::vector<WantedTopic> wantedTopics(const std::string& name, const TopicsOptions& options) {
  const auto replicas = static_cast<std::int32_t>(options.replicas.value_or(kUsualReplicas));
  const bool needs_replicas = options.replicas.has_value();
  const auto text = [](milliseconds time) { return fmt::format("{}", time.count()); };
  const milliseconds retention = options.retention.value_or(kUsualRetention);
  // Only whole segments are removed.
  const milliseconds segment = std::max(retention / kSegmentsPerRetention, kShortestSegment);
  const TopicSetting in_sync{kInSync, inSyncOf(replicas), SettingRule::at_least};
  const TopicSetting largest{"max.message.bytes", kLargestMessage, SettingRule::at_least,
                             "it does not take large messages"};
  const TopicSetting codec{"compression.type", "producer", SettingRule::only_new};
  return {{name,
           static_cast<std::int32_t>(options.partitions.value_or(kUsualPartitions)),
           replicas,
           options.partitions.has_value(),
           needs_replicas,
           {{"cleanup.policy", "delete", SettingRule::kept,
             "it keeps only the last events of each node"},
            {"retention.ms", text(retention),
             options.retention ? SettingRule::longer : SettingRule::only_new},
            {"segment.ms", text(segment), SettingRule::only_new},
            // The clock of a node does not decide how long its messages are kept.
            {"message.timestamp.type", "LogAppendTime", SettingRule::only_new},
            in_sync,
            largest,
            codec}},
          {schemaTopicOf(name),
           1,
           replicas,
           false,
           needs_replicas,
           {{"cleanup.policy", "compact", SettingRule::always, "it loses schemas"},
            in_sync,
            largest,
            codec}}};
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
  if (wanted.needs_partitions) comparePartitions(wanted, *state, grow, steps);
  if (wanted.needs_replicas && state->replicas != wanted.replicas)
    steps.left.push_back(fmt::format(
        "{} keeps its {}, although {} {} asked for: this is a task of Kafka's own tools",
        wanted.name, countText(state->replicas, "replica"), wanted.replicas,
        wanted.replicas == 1 ? "is" : "are"));
  if (const std::string fault = takesNothing(wanted, *state); !fault.empty())
    steps.left.push_back(fault);
  for (const TopicSetting& setting : wanted.settings) {
    const auto present = state->settings.find(setting.key);
    compareSetting(wanted.name, setting, wantedValue(setting, *state),
                   present == state->settings.end() ? "" : present->second, steps);
  }
  return steps;
}

std::string faultOf(const WantedTopic& wanted, const TopicState& state) {
  for (const TopicSetting& setting : wanted.settings) {
    const auto present = state.settings.find(setting.key);
    if (!setting.otherwise || present == state.settings.end() ||
        isMet(setting, setting.value, present->second))
      continue;
    return fmt::format("the topic {} has {}={}, so {}; {}{} is needed: 'tev-host topics' {}",
                       wanted.name, setting.key, asPrintable(present->second), setting.otherwise,
                       setting.rule == SettingRule::at_least ? "at least " : "", setting.value,
                       setting.rule == SettingRule::kept ? "compares all settings" : "changes it");
  }
  return takesNothing(wanted, state);
}

std::string weaknessOf(const WantedTopic& wanted, const TopicState& state) {
  if (state.replicas == 1)
    return fmt::format("the topic {} has 1 replica, so the loss of one broker loses messages",
                       wanted.name);
  if (state.replicas > 1 && presentInSync(state) == 1)
    return fmt::format("the topic {} has {}=1, so the loss of one broker can lose messages{}",
                       wanted.name, kInSync,
                       state.replicas > 2 ? ": 2 is needed, and 'tev-host topics' sets it" : "");
  return "";
}

}  // namespace tev::host
