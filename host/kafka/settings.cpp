#include "host/kafka/settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <system_error>

#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

bool isAsciiLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

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
constexpr char kPacked[] = "the batches are packed already";
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
    {"socket.max.fails", kDelivery},
    {"api.version.request", kDelivery},
    {"api.version.fallback.ms", kDelivery},
    {"broker.version.fallback", kDelivery},
    {"compression.codec", kPacked},
    {"compression.type", kPacked},
    {"compression.level", kPacked},
    {"message.max.bytes", kOwn},
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
    {"ssl.providers", kCode},
    {"sasl.kerberos.kinit.cmd", kCode},
    {"enabled_events", kOwn},
    {"log.queue", kOwn},
    {"statistics.interval.ms", kOwn},
    {"internal.termination.signal", kOwn},
    {"test.mock.num.brokers", "events would be lost"},
};

// The values with which messages are sent, in order, and received.
struct Bounds {
  std::string_view key;
  std::int64_t least;
  std::int64_t most;
  const char* reason;
};

constexpr std::int64_t kNoLimit = std::numeric_limits<std::int64_t>::max();
constexpr char kOrder[] = "the events keep their order with 1 to 5";
constexpr char kLargest[] = "the largest message needs this";
constexpr char kTooLarge[] = "the brokers take no larger batches";
constexpr char kTime[] = "an answer takes time";
constexpr char kEnd[] = "the end of a run waits for ten seconds at most";

constexpr Bounds kBounds[] = {
    {"max.in.flight", 1, 5, kOrder},
    {"max.in.flight.requests.per.connection", 1, 5, kOrder},
    {"queue.buffering.max.kbytes", 16'384, kNoLimit, kLargest},
    {"receive.message.max.bytes", 67'108'864, kNoLimit, kLargest},
    {"batch.size", 1, 4'194'304, kTooLarge},
    {"socket.timeout.ms", 1000, kNoLimit, kTime},
    {"request.timeout.ms", 1000, kNoLimit, kTime},
    {"linger.ms", 0, 5000, kEnd},
    {"queue.buffering.max.ms", 0, 5000, kEnd},
    {"max.poll.interval.ms", 300'000, kNoLimit, "writing is tried again for up to four minutes"},
};

// Values of these become part of a command line, which the library gives to a shell.
constexpr std::string_view kInCommands[] = {"sasl.kerberos.principal", "sasl.kerberos.keytab",
                                            "sasl.kerberos.service.name"};

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

bool isPort(std::string_view text) {
  std::uint16_t port = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, port);
  return error == std::errc() && rest == end && port > 0;
}

// HOST, HOST:PORT, [IPv6] or [IPv6]:PORT.
bool isBroker(std::string_view text) {
  std::string_view host = text;
  std::string_view rest;
  const bool is_in_brackets = text.starts_with('[');
  if (is_in_brackets) {
    const std::size_t end = text.find(']');
    if (end == std::string_view::npos) return false;
    host = text.substr(1, end - 1);
    rest = text.substr(end + 1);
  } else if (const std::size_t colon = text.find(':'); colon != std::string_view::npos) {
    host = text.substr(0, colon);
    rest = text.substr(colon);
  }
  const std::string_view others = is_in_brackets ? ":.%" : "._-";
  const auto is_allowed = [&](char c) {
    return isAsciiLetterOrDigit(c) || others.find(c) != std::string_view::npos;
  };
  return !host.empty() && std::ranges::all_of(host, is_allowed) &&
         (rest.empty() || (rest.starts_with(':') && isPort(rest.substr(1))));
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

// The library also takes other notations of a number, which are not needed.
void expectWithin(const KafkaSetting& setting) {
  for (const Bounds& bounds : kBounds) {
    if (!isSetting(setting.key, bounds.key)) continue;
    std::int64_t number = 0;
    const char* const end = setting.value.data() + setting.value.size();
    const auto [rest, error] = std::from_chars(setting.value.data(), end, number);
    if (error == std::errc::invalid_argument || (rest != end && *rest != '.'))
      throw UsageError(
          fmt::format("{}: {} cannot be set: a number is needed", setting.place, setting.key));
    if (error == std::errc() && number >= bounds.least && number <= bounds.most) continue;
    throw UsageError(fmt::format("{}: {} must be {}: {}", setting.place, setting.key,
                                 number < bounds.least ? fmt::format("at least {}", bounds.least)
                                                       : fmt::format("at most {}", bounds.most),
                                 bounds.reason));
  }
}

void expectNoCommand(const KafkaSetting& setting) {
  constexpr std::string_view kAllowed = "._-/@:";
  const auto is_allowed = [&](char c) {
    return isAsciiLetterOrDigit(c) || kAllowed.find(c) != std::string_view::npos;
  };
  if (std::ranges::find(kInCommands, setting.key) != std::end(kInCommands) &&
      !std::ranges::all_of(setting.value, is_allowed))
    throw UsageError(fmt::format("{}: {} may have letters, digits and {} only: a shell reads it",
                                 setting.place, setting.key, kAllowed));
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
  for (const KafkaSetting& setting : settings) {
    expectAllowed(setting);
    expectWithin(setting);
    expectNoCommand(setting);
  }
  return settings;
}

bool isSecret(std::string_view key) {
  return key.find("password") != std::string_view::npos ||
         key.find("secret") != std::string_view::npos || key.ends_with("key.pem") ||
         key == "sasl.oauthbearer.config" || key == "sasl.oauthbearer.extensions";
}

bool isTopicName(std::string_view name) {
  const auto is_allowed = [](char c) {
    return isAsciiLetterOrDigit(c) || c == '.' || c == '_' || c == '-';
  };
  return !name.empty() && name != "." && name != ".." &&
         name.size() + kSchemaSuffix.size() <= kLongestTopic &&
         std::ranges::all_of(name, is_allowed);
}

bool isBrokerList(std::string_view text) {
  while (true) {
    const std::size_t comma = text.find(',');
    if (!isBroker(text.substr(0, comma))) return false;
    if (comma == std::string_view::npos) return true;
    text.remove_prefix(comma + 1);
  }
}

std::string schemaTopicOf(const std::string& topic) {
  return topic + std::string(kSchemaSuffix);
}

}  // namespace tev::host
