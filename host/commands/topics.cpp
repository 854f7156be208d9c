#include "host/commands/topics.h"

#include <fmt/format.h>

#include <cstddef>
#include <optional>
#include <utility>

#include "host/kafka/topics.h"
#include "host/outputs/output_file.h"
#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {

#if TEV_WITH_KAFKA

namespace {

// A topic has at most one replica on each broker.
void expectBrokers(TopicAdmin& admin, const WantedTopic& wanted) {
  const std::size_t brokers = admin.brokerCount();
  if (std::cmp_less_equal(wanted.replicas, brokers)) return;
  throw RunError(fmt::format("{} cannot be created with {} replicas (--replication): there {} {}",
                             wanted.name, wanted.replicas, brokers == 1 ? "is" : "are",
                             counted(brokers, "broker")));
}

}  // namespace

int topics(const KafkaOptions& kafka, const TopicsOptions& options) {
  if (options.grow && !options.partitions) throw UsageError("--grow needs --partitions");
  TopicAdmin admin(kafka);
  OutputFile output("");
  const auto print = [&output](const std::string& line) {
    output.buffer() += line + '\n';
    try {
      output.flush();
    } catch (const ClosedPipe&) {  // nobody reads; the topics are changed nevertheless
    }
  };
  bool is_as_asked = true;
  bool is_changed = false;
  for (const WantedTopic& wanted : wantedTopics(kafka.topic, options)) {
    const std::optional<TopicState> state = admin.read(wanted.name);
    const TopicSteps steps = stepsFor(wanted, state, options.grow);
    if (steps.create) expectBrokers(admin, wanted);
    if (!options.dry_run) admin.carryOut(wanted, steps, state);
    for (const ChangeText& text : steps.changes)
      print(
          fmt::format("{} {} {}", text.subject, options.dry_run ? "would be" : "is", text.change));
    for (const std::string& text : steps.left) print(text);
    is_changed = is_changed || !steps.changes.empty();
    is_as_asked = is_as_asked && steps.left.empty();
  }
  if (!is_changed)
    print(is_as_asked ? "nothing to change" : "nothing is changed; the differences above remain");
  return is_as_asked ? kExitFine : kExitFailed;
}

#else

int topics(const KafkaOptions&, const TopicsOptions&) {
  throw UsageError("tev-host was built without Kafka");
}

#endif

}  // namespace tev::host
