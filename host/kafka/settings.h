// Which Kafka brokers, which topic, and the settings of the client library.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tev::host {

// Whether this program was built with the client library.
inline constexpr bool kHasKafka = TEV_WITH_KAFKA != 0;

struct KafkaOptions {
  std::string brokers;  // HOST:PORT or HOST, separated by commas
  std::string topic;
  std::vector<std::pair<std::string, std::string>> settings;  // of the command line
  std::string settings_file;                                  // may hold secrets
};

struct KafkaSetting {
  std::string key;
  std::string value;
  std::string place;  // for messages: the option, or the file and its line
};

// The settings of the file, then those of the command line, which take precedence. Refuses settings
// on which the promises of this program depend, and secrets on the command line. A message never
// contains a value. Throws UsageError.
std::vector<KafkaSetting> readKafkaSettings(const KafkaOptions& options);

// Whether the value of this setting must not be shown.
bool isSecret(std::string_view key);

// Whether Kafka accepts the name, also that of the topic for its schemas.
bool isTopicName(std::string_view name);

// Whether the text is brokers, separated by commas.
bool isBrokerList(std::string_view text);

// The topic with the schemas of the events.
std::string schemaTopicOf(const std::string& topic);

}  // namespace tev::host
