#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <librdkafka/rdkafka.h>
#include <librdkafka/rdkafka_mock.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/kafka/client.h"
#include "host/kafka/consumer.h"
#include "host/kafka/settings.h"
#include "host/kafka/topic_plan.h"
#include "host/support/errors.h"
#include "host/support/stop_signal.h"
#include "tests/host/process.h"
#include "tests/support/temp_tree.h"

namespace tev::host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

// Brokers within this process.
class MockBrokers {
 public:
  MockBrokers() {
    rd_kafka_conf_t* const conf = rd_kafka_conf_new();
    rd_kafka_conf_set(conf, "test.mock.num.brokers", "3", nullptr, 0);
    rd_kafka_conf_set_log_cb(conf, nullptr);
    handle_.reset(rd_kafka_new(RD_KAFKA_PRODUCER, conf, nullptr, 0));
    cluster_ = rd_kafka_handle_mock_cluster(handle_.get());
  }

  rd_kafka_mock_cluster_t* cluster() { return cluster_; }
  KafkaOptions options() const { return {rd_kafka_mock_cluster_bootstraps(cluster_), "", {}, ""}; }

 private:
  KafkaOwned<rd_kafka_t, rd_kafka_destroy> handle_;
  rd_kafka_mock_cluster_t* cluster_;
};

// The error's text, or "" when the action succeeds.
template <class Error, class Action>
std::string errorOf(Action&& action) {
  try {
    action();
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

TEST(KafkaSettings, AreReadFromTheFileAndThenFromTheCommandLine) {
  test::TempTree tree;
  const std::string path =
      tree.write("kafka.conf", "# a comment\r\n\n sasl.password = a=b #c \r\nlinger.ms=5");
  const KafkaOptions options{"broker:9092", "tev", {{"linger.ms", "7"}}, path};
  std::vector<std::pair<std::string, std::string>> found;
  for (const KafkaSetting& setting : readKafkaSettings(options))
    found.emplace_back(setting.key, setting.value);
  EXPECT_THAT(found, ElementsAre(Pair("sasl.password", "a=b #c"), Pair("linger.ms", "5"),
                                 Pair("linger.ms", "7")));
}

TEST(KafkaSettings, AreRefusedWithTheirPlaceAndWithoutTheirValue) {
  struct Row {
    std::string file;
    std::vector<std::pair<std::string, std::string>> settings;
    std::string message;
  };
  test::TempTree tree;
  const Row rows[] = {
      {"", {{"acks", "hidden"}}, "--kafka-set: acks cannot be set"},
      {"", {{"topic.acks", "hidden"}}, "--kafka-set: topic.acks cannot be set"},
      {"", {{"compression.type", "hidden"}}, "the batches are packed already"},
      {"", {{"queue.buffering.max.kbytes", "1"}}, "kbytes must be at least 16384"},
      {"",
       {{"max.in.flight", "6"}},
       "max.in.flight must be at most 5: the events keep their order"},
      {"", {{"topic.request.timeout.ms", "1"}}, "must be at least 1000"},
      {"", {{"linger.ms", " 0x7000"}}, "linger.ms cannot be set: a number is needed"},
      {"", {{"sasl.kerberos.principal", "$(hidden)"}}, "a shell reads it"},
      {"", {{"group.id", "hidden"}}, "--group names the group"},
      {"", {{"sasl.password", "hidden"}}, "put it into a file for --kafka-config"},
      {"", {{"ssl.key.pem", "hidden"}}, "put it into a file for --kafka-config"},
      {"", {{"linger", "hidden"}}, "--kafka-set: Kafka has no setting linger"},
      {"", {{"dr_msg_cb", "hidden"}}, "--kafka-set: dr_msg_cb cannot be set"},
      {"linger.ms=1\n\nplugin.library.paths=hidden", {}, "kafka.conf:3: plugin.library.paths"},
      {"# none\nhidden", {}, "kafka.conf:2: KEY=VALUE is needed"},
      {"=hidden", {}, "kafka.conf:1: KEY=VALUE is needed"},
      {"linger.ms=hidden", {}, "kafka.conf:1: linger.ms cannot be set"},
  };
  for (const Row& row : rows) {
    KafkaOptions options{"127.0.0.1:1", "tev", row.settings, ""};
    if (!row.file.empty()) options.settings_file = tree.write("kafka.conf", row.file);
    const std::string message =
        errorOf<UsageError>([&] { KafkaClient(RD_KAFKA_PRODUCER, options, {}); });
    EXPECT_THAT(message, HasSubstr(row.message));
    EXPECT_THAT(message, Not(HasSubstr("hidden")));
  }
}

TEST(KafkaSettings, BrokersAreHostsWithPorts) {
  for (const char* const right : {"kafka1", "kafka1:9092", "10.0.0.1:1,a_b.example:65535",
                                  "[::1]:9092", "[fe80::1%eth0],kafka1"})
    EXPECT_TRUE(isBrokerList(right)) << right;
  for (const char* const wrong :
       {"", ",", ":9092", "kafka1:", "kafka1:abc", "kafka1:0", "kafka1:65536", "kafka1:9092,",
        "kafka1:9092 ", "ssl://kafka1:9092", "::1", "[]:9092", "[::1]9092", "[::1"})
    EXPECT_FALSE(isBrokerList(wrong)) << wrong;
  const test::Result result = test::HostProcess("topics --kafka host:abc --topic tev").finish();
  EXPECT_EQ(result.exit, kExitUsage);
  EXPECT_THAT(result.err, HasSubstr("--kafka host:abc: brokers are needed"));
}

void produce(KafkaClient& client, const char* topic, std::string key,
             std::optional<std::string> text) {
  rd_kafka_vu_t parts[6] = {};
  parts[0].vtype = RD_KAFKA_VTYPE_TOPIC;
  parts[0].u.cstr = topic;
  parts[1].vtype = RD_KAFKA_VTYPE_PARTITION;
  parts[1].u.i32 = 0;
  parts[2].vtype = RD_KAFKA_VTYPE_MSGFLAGS;
  parts[2].u.i = RD_KAFKA_MSG_F_COPY;
  parts[3].vtype = RD_KAFKA_VTYPE_KEY;
  parts[3].u.mem = {key.data(), key.size()};
  parts[4].vtype = RD_KAFKA_VTYPE_VALUE;
  parts[4].u.mem = {text ? text->data() : nullptr, text ? text->size() : 0};
  parts[5].vtype = RD_KAFKA_VTYPE_HEADER;
  parts[5].u.header = {"codec", "zstd", 4};
  const KafkaOwned<rd_kafka_error_t, rd_kafka_error_destroy> error(
      rd_kafka_produceva(client.handle(), parts, std::size(parts)));
  ASSERT_EQ(error, nullptr);
}

// Waits until the brokers have it.
void send(KafkaClient& client, const char* topic, const std::string& key,
          const std::optional<std::string>& text) {
  produce(client, topic, key, text);
  rd_kafka_flush(client.handle(), 10'000);
}

TEST(KafkaClient, HidesSecretsInTextsOfTheLibrary) {
  test::TempTree tree;
  const KafkaOptions options{
      "127.0.0.1:1", "", {}, tree.write("kafka.conf", "sasl.password=abcabc\nclient.id=abc")};
  const KafkaClient client(RD_KAFKA_PRODUCER, options, {});
  EXPECT_EQ(client.withoutSecrets("abc abcabc, abcabcabc"), "abc ***, ***abc");
}

TEST(KafkaClient, FindsTopicsAndSaysWhyItCannot) {
  MockBrokers brokers;
  rd_kafka_mock_topic_create(brokers.cluster(), "tev", 4, 3);
  rd_kafka_mock_topic_set_error(brokers.cluster(), "other",
                                RD_KAFKA_RESP_ERR_UNKNOWN_TOPIC_OR_PART);
  rd_kafka_mock_topic_set_error(brokers.cluster(), "closed",
                                RD_KAFKA_RESP_ERR_TOPIC_AUTHORIZATION_FAILED);
  KafkaClient client(RD_KAFKA_PRODUCER, brokers.options(), {});
  client.connect();
  const TopicLayout layout = client.expectTopic("tev");
  EXPECT_EQ(layout.partitions, 4);
  EXPECT_EQ(layout.replicas, 3);
  EXPECT_TRUE(layout.has_all_leaders);
  EXPECT_THAT(errorOf<RunError>([&] { client.expectTopic("other"); }),
              HasSubstr("have no topic other: 'tev-host topics' creates it"));
  EXPECT_THAT(errorOf<RunError>([&] { client.expectTopic("closed"); }),
              HasSubstr("cannot use the topic closed: Broker: Topic authorization failed"));
}

TEST(KafkaClient, PassesOnWhatItsListenerThrows) {
  struct Thrower : KafkaListener {
    void delivered(const rd_kafka_message_t&) override { throw RunError("from the listener"); }
  };
  MockBrokers brokers;
  rd_kafka_mock_topic_create(brokers.cluster(), "tev", 1, 1);
  Thrower thrower;
  KafkaClient client(RD_KAFKA_PRODUCER, brokers.options(), {}, &thrower);
  produce(client, "tev", "key", "text");
  EXPECT_EQ(errorOf<RunError>([&] { client.poll(std::chrono::seconds(10)); }), "from the listener");
}

// What a worker was told, as text.
class Worker : public PartitionOwner {
 public:
  std::optional<std::int64_t> assigned(std::int32_t partition) override {
    told.push_back(fmt::format("+{}", partition));
    return begin;
  }
  void take(const PartitionMessage& message) override {
    std::string text =
        fmt::format("{}@{}={}", message.message.key, message.offset,
                    std::string(message.message.value.begin(), message.message.value.end()));
    for (const auto& [name, value] : message.message.headers)
      text += fmt::format(" {}:{}", name, value);
    told.push_back(text);
  }
  void revoked(std::int32_t partition) override { told.push_back(fmt::format("-{}", partition)); }

  // Polls until it was told as much.
  std::vector<std::string> await(Subscription& subscription, std::size_t count) {
    for (int i = 0; i < 300 && told.size() < count; ++i)
      subscription.poll(*this, 10, std::chrono::milliseconds(100));
    return std::exchange(told, {});
  }

  std::optional<std::int64_t> begin;
  std::vector<std::string> told;
};

TEST(KafkaSubscription, BeginsWhereTheGroupOrTheOwnerSays) {
  MockBrokers brokers;
  rd_kafka_mock_topic_create(brokers.cluster(), "tev", 1, 1);
  KafkaOptions options = brokers.options();
  KafkaClient producer(RD_KAFKA_PRODUCER, options, {});
  for (const char* const value : {"a", "b", "c"}) send(producer, "tev", "node", value);
  options.topic = "tev";

  Worker worker;
  auto subscription = subscribeToKafka(options, "group");
  EXPECT_THAT(
      worker.await(*subscription, 4),
      ElementsAre("+0", "node@0=a codec:zstd", "node@1=b codec:zstd", "node@2=c codec:zstd"));
  ASSERT_EQ(subscription->lags().size(), 1U);
  EXPECT_EQ(subscription->lags()[0].position, 3);
  EXPECT_EQ(subscription->lags()[0].end, 3);
  std::string problem;
  EXPECT_TRUE(subscription->commit(0, 2, problem)) << problem;
  EXPECT_FALSE(subscription->commit(1, 2, problem));
  EXPECT_EQ(problem, "the partition belongs to another worker");
  subscription->close();
  EXPECT_FALSE(subscription->commit(0, 3, problem));

  KafkaClient other(RD_KAFKA_CONSUMER, options, {{"group.id", "group"}});
  const KafkaOwned<rd_kafka_topic_partition_list_t, rd_kafka_topic_partition_list_destroy> asked(
      rd_kafka_topic_partition_list_new(1));
  rd_kafka_topic_partition_list_add(asked.get(), "tev", 0);
  ASSERT_FALSE(rd_kafka_committed(other.handle(), asked.get(), 10'000));
  EXPECT_EQ(asked->elems[0].offset, 2);

  worker.begin = 1;
  subscription = subscribeToKafka(options, "another group");
  EXPECT_THAT(worker.await(*subscription, 3),
              ElementsAre("+0", "node@1=b codec:zstd", "node@2=c codec:zstd"));
  EXPECT_THAT(worker.told, IsEmpty());
}

TEST(KafkaSchemas, AreTheRightTextOfEachId) {
  MockBrokers brokers;
  rd_kafka_mock_topic_create(brokers.cluster(), "tev.schemas", 1, 1);
  KafkaOptions options = brokers.options();
  KafkaClient producer(RD_KAFKA_PRODUCER, options, {});
  options.topic = "tev";
  send(producer, "tev.schemas", "one", "{}");
  send(producer, "tev.schemas", "two", "{}");
  send(producer, "tev.schemas", "one", "one");
  send(producer, "tev.schemas", "one", "wrong");
  send(producer, "tev.schemas", "one", std::nullopt);

  const auto shelf = openKafkaSchemas(
      options, [](const std::string& text, const std::string& id) { return text == id; });
  EXPECT_EQ(shelf->find("one", std::chrono::milliseconds(0)), "one");
  EXPECT_EQ(shelf->find("two", std::chrono::milliseconds(0)), "{}");
  EXPECT_EQ(shelf->find("three", std::chrono::milliseconds(0)), std::nullopt);
  send(producer, "tev.schemas", "three", "{3}");
  EXPECT_EQ(shelf->find("three", std::chrono::seconds(10)), "{3}");
  {
    const StopSignal stopped;
    StopSignal::request();
    EXPECT_THROW(shelf->find("four", std::chrono::minutes(1)), Interrupted);
  }
  const StopSignal forgets_the_request;
}

TEST(Topics, AreNotCreatedWithoutBrokers) {
  const test::Result result = test::HostProcess("topics --kafka 127.0.0.1:1 --topic tev").finish();
  EXPECT_EQ(result.exit, kExitFailed);
  EXPECT_EQ(test::linesOf(result.err).size(), 1U);
  EXPECT_THAT(result.err, HasSubstr("no Kafka broker answers at 127.0.0.1:1"));
}

TEST(Topics, OfAnotherShapeAreNeverShrunk) {
  TopicsOptions options;
  options.partitions = 6;
  options.replicas = 3;
  options.retention = std::chrono::hours(24);
  const WantedTopic wanted = wantedTopics("tev", options).front();
  TopicState as_wanted{6, 3, {}, {}};
  for (const TopicSetting& setting : wanted.settings)
    as_wanted.settings[setting.key] = setting.value;

  struct Row {
    const char* what;
    std::int32_t partitions;
    std::int32_t replicas;
    TopicSettings settings;  // that differ
    bool grow;
    std::int32_t grow_to;
    TopicSettings alter;
    std::size_t left;
  };
  const Row rows[] = {
      {"as wanted", 6, 3, {}, true, 0, {}, 0},
      {"fewer partitions", 4, 3, {}, false, 0, {}, 1},
      {"fewer partitions, with --grow", 4, 3, {}, true, 6, {}, 0},
      {"more partitions", 8, 3, {}, true, 0, {}, 1},
      {"shorter retention",
       6,
       3,
       {{"retention.ms", "1000"}},
       false,
       0,
       {{"retention.ms", "86400000"}},
       0},
      {"longer retention", 6, 3, {{"retention.ms", "86400001"}}, false, 0, {}, 1},
      {"no end of retention", 6, 3, {{"retention.ms", "-1"}}, false, 0, {}, 1},
      {"smaller messages",
       6,
       3,
       {{"max.message.bytes", "9"}},
       false,
       0,
       {{"max.message.bytes", "8388608"}},
       0},
      {"larger messages", 6, 3, {{"max.message.bytes", "9000000"}}, false, 0, {}, 0},
      {"one in sync",
       6,
       3,
       {{"min.insync.replicas", "1"}},
       false,
       0,
       {{"min.insync.replicas", "2"}},
       0},
      {"one replica", 6, 1, {{"min.insync.replicas", "1"}}, false, 0, {}, 1},
      {"the operator's segments", 6, 3, {{"segment.ms", "1"}}, false, 0, {}, 0},
      {"compacted", 6, 3, {{"cleanup.policy", "compact"}}, false, 0, {}, 1},
      {"more in sync than replicas", 6, 3, {{"min.insync.replicas", "4"}}, false, 0, {}, 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    TopicState state = as_wanted;
    state.partitions = row.partitions;
    state.replicas = row.replicas;
    for (const auto& [key, value] : row.settings) state.settings[key] = value;
    const TopicSteps steps = stepsFor(wanted, state, row.grow);
    EXPECT_FALSE(steps.create);
    EXPECT_EQ(steps.grow_to, row.grow_to);
    EXPECT_EQ(steps.alter, row.alter);
    EXPECT_THAT(steps.left, testing::SizeIs(row.left));
    EXPECT_EQ(steps.changes.size(), row.alter.size() + (row.grow_to > 0 ? 1 : 0));
  }
  EXPECT_TRUE(stepsFor(wanted, std::nullopt, false).create);
  const WantedTopic schemas = wantedTopics("tev", options).back();
  TopicState deleted{1, 3, {{"cleanup.policy", "delete"}}, {}};
  EXPECT_EQ(schemas.name, "tev.schemas");
  EXPECT_EQ(stepsFor(schemas, deleted, false).alter.at("cleanup.policy"), "compact");
}

TEST(Topics, AreComparedOnlyWithWhatWasGivenAndIsNeeded) {
  const TopicState other{5,
                         2,
                         {{"cleanup.policy", "delete"},
                          {"retention.ms", "1"},
                          {"min.insync.replicas", "1"},
                          {"max.message.bytes", "9000000"}},
                         {}};
  TopicsOptions options;
  const TopicSteps none = stepsFor(wantedTopics("tev", options).front(), other, false);
  EXPECT_THAT(none.left, IsEmpty());
  EXPECT_THAT(none.changes, IsEmpty());
  options.partitions = 4;
  options.replicas = 3;
  options.retention = std::chrono::milliseconds(2);
  const TopicSteps all = stepsFor(wantedTopics("tev", options).front(), other, false);
  EXPECT_THAT(all.left, testing::SizeIs(2));
  EXPECT_THAT(all.alter, ElementsAre(Pair("retention.ms", "2")));
}

TEST(Topics, ThatWouldLoseEventsAreRefusedAndWeakOnesNamed) {
  struct Row {
    std::size_t topic;  // events, schemas
    std::int32_t replicas;
    TopicSettings settings;
    const char* fault;
    const char* weakness;
  };
  const Row rows[] = {
      {0, 3, {}, "", ""},
      {0,
       3,
       {{"cleanup.policy", "delete"}, {"max.message.bytes", "8388608"}, {"segment.ms", "1"}},
       "",
       ""},
      {0, 3, {{"cleanup.policy", "compact"}}, "the topic tev has cleanup.policy=compact, so ", ""},
      {0, 3, {{"cleanup.policy", "delete,compact"}}, "delete is needed: 'tev-host topics'", ""},
      {0,
       3,
       {{"max.message.bytes", "1048588"}},
       "at least 8388608 is needed: 'tev-host topics'",
       ""},
      {1,
       3,
       {{"cleanup.policy", "compact,delete"}},
       "compact is needed: 'tev-host topics' changes",
       ""},
      {1,
       3,
       {{"cleanup.policy", "compact"}, {"min.insync.replicas", "1"}},
       "",
       "insync.replicas=1, so"},
      {0, 1, {{"min.insync.replicas", "1"}}, "", "the topic tev has 1 replica, so"},
      {0, 1, {{"min.insync.replicas", "2"}}, "and 1 replica, so it takes no message", "1 replica"},
      {0, 3, {{"min.insync.replicas", "2"}}, "", ""},
  };
  for (const Row& row : rows) {
    const WantedTopic wanted = wantedTopics("tev", {}).at(row.topic);
    const TopicState state{1, row.replicas, row.settings, {}};
    const std::string fault = faultOf(wanted, state);
    const std::string weakness = weaknessOf(wanted, state);
    EXPECT_THAT(fault, HasSubstr(row.fault));
    EXPECT_EQ(fault.empty(), std::string(row.fault).empty()) << fault;
    EXPECT_THAT(weakness, HasSubstr(row.weakness));
    EXPECT_EQ(weakness.empty(), std::string(row.weakness).empty()) << weakness;
  }
}

}  // namespace
}  // namespace tev::host
