#include "host/kafka/settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::string_view kSchemaSuffix = ".schemas";
constexpr std::size_t kLongestTopic = 249;

struct Refusal {
  std::string_view key;
  const char* reason;
};

constexpr char kBrokers[] = "--kafka names the brokers";
constexpr char kDelivery[] =
    "each event is delivered once and in order only with the value of tev-host";
constexpr char kOffsets[] = "tev-host itself keeps account of what was read";
constexpr char kCode[] = "it loads or runs other programs";
constexpr char kOwn[] = "tev-host sets it";

constexpr Refusal kRefusals[] = {
    {"bootstrap.servers", kBrokers},
    {"metadata.broker.list", kBrokers},
    {"acks", kDelivery},
    {"request.required.acks", kDelivery},
    {"enable.idempotence", kDelivery},
    {"enable.gapless.guarantee", kDelivery},
    {"retries", kDelivery},
    {"message.send.max.retries", kDelivery},
    {"message.timeout.ms", kDelivery},
    {"delivery.timeout.ms", kDelivery},
    {"delivery.report.only.error", kDelivery},
    {"transactional.id", kDelivery},
    {"transaction.timeout.ms", kDelivery},
    {"queuing.strategy", kDelivery},
    {"partitioner", kDelivery},
    {"allow.auto.create.topics", "tev-host topics creates the topics"},
    {"topic.blacklist", "--topic names the topic"},
    {"group.id", "--group names the group"},
    {"group.protocol.type", kOffsets},
    {"partition.assignment.strategy", kOffsets},
    {"enable.auto.commit", kOffsets},
    {"auto.commit.enable", kOffsets},
    {"auto.commit.interval.ms", kOffsets},
    {"enable.auto.offset.store", kOffsets},
    {"offset.store.method", kOffsets},
    {"offset.store.path", kOffsets},
    {"offset.store.sync.interval.ms", kOffsets},
    {"auto.offset.reset", kOffsets},
    {"enable.partition.eof", kOffsets},
    {"check.crcs", kOffsets},
    {"plugin.library.paths", kCode},
    {"ssl.engine.location", kCode},
    {"ssl.engine.id", kCode},
    {"sasl.kerberos.kinit.cmd", kCode},
    {"enabled_events", kOwn},
    {"log.queue", kOwn},
    {"statistics.interval.ms", kOwn},
    {"internal.termination.signal", kOwn},
    {"test.mock.num.brokers", "events would be lost"},
};

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// The library takes the settings of topics with a prefix, too.
bool isSetting(std::string_view key, std::string_view name) {
  constexpr std::string_view kPrefix = "topic.";
  return key == name || (key.starts_with(kPrefix) && key.substr(kPrefix.size()) == name);
}

void expectAllowed(const KafkaSetting& setting) {
  for (const Refusal& refusal : kRefusals)
    if (isSetting(setting.key, refusal.key))
      throw UsageError(
          fmt::format("{}: {} cannot be set: {}", setting.place, setting.key, refusal.reason));
}

std::vector<KafkaSetting> readFile(const std::string& path) {
  const auto refuse_file = [&](const std::string& reason) {
    throw UsageError(fmt::format("cannot read {}: {}", asPrintable(path), reason));
  };
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) refuse_file("it is a folder");
  std::ifstream file(path);
  if (!file) refuse_file(std::strerror(errno));
  std::vector<KafkaSetting> settings;
  std::size_t number = 0;
  for (std::string line; std::getline(file, line);) {
    const std::string place = fmt::format("{}:{}", asPrintable(path), ++number);
    const std::string_view text = trimmed(line);
    if (text.empty() || text[0] == '#') continue;
    const std::size_t equals = text.find('=');
    const std::string key(trimmed(text.substr(0, equals)));
    if (equals == std::string_view::npos || key.empty())
      throw UsageError(place + ": KEY=VALUE is needed");
    settings.push_back({key, std::string(trimmed(text.substr(equals + 1))), place});
  }
  if (file.bad()) refuse_file(std::strerror(errno));
  return settings;
}

}  // namespace

std::vector<KafkaSetting> readKafkaSettings(const KafkaOptions& options) {
  std::vector<KafkaSetting> settings;
  if (!options.settings_file.empty()) settings = readFile(options.settings_file);
  for (const auto& [key, value] : options.settings) {
    if (isSecret(key))
      throw UsageError(fmt::format(
          "--kafka-set: {} is a secret, which every user of this machine could see; put it into a "
          "file for --kafka-config",
          asPrintable(key)));
    settings.push_back({key, value, "--kafka-set"});
  }
  for (const KafkaSetting& setting : settings) expectAllowed(setting);
  return settings;
}

bool isSecret(std::string_view key) {
  return key.find("password") != std::string_view::npos ||
         key.find("secret") != std::string_view::npos || key.ends_with("key.pem") ||
         key == "sasl.oauthbearer.config" || key == "sasl.oauthbearer.extensions";
}

bool isTopicName(std::string_view name) {
  const auto is_allowed = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '-';
  };
  return !name.empty() && name != "." && name != ".." &&
         name.size() + kSchemaSuffix.size() <= kLongestTopic &&
         std::ranges::all_of(name, is_allowed);
}

std::string schemaTopicOf(const std::string& topic) {
  return topic + std::string(kSchemaSuffix);
}

}  // namespace tev::host
