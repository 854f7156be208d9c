// A message bus in memory.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/bus/subscription.h"
#include "host/events/schema_view.h"
#include "tests/host/sample_types.h"

namespace tev::test {

// A batch whose blocks need the schema with this id.
inline host::Batch makeBatch(const host::RunId& run, const std::string& id, std::uint64_t first,
                             std::uint64_t events, std::vector<std::uint8_t> blocks) {
  host::Batch batch;
  batch.run = run;
  batch.schemas = std::make_shared<host::RunSchemas>(host::RunSchemas{{id}, {""}});
  batch.first = first;
  batch.events = events;
  batch.blocks = std::move(blocks);
  return batch;
}

// One partition, and the schemas beside it.
class FakeBus : public host::SchemaShelf {
 public:
  // Returns the id.
  std::string publish(const SampleTypes& types) {
    tev_type_system_update_md5_hashes(&*types);
    const host::SchemaView::Schema schema = host::SchemaView::fromTypeSystem(*types).schemas()[0];
    texts[schema.id] = schema.text;
    return schema.id;
  }

  void send(const host::RunId& run, std::uint64_t first, std::uint64_t events, const Bytes& blocks,
            const std::string& id) {
    log.push_back(host::MessageWriter().write(makeBatch(run, id, first, events, blocks)));
  }

  std::optional<std::string> find(const std::string& id, std::chrono::milliseconds) override {
    const auto found = texts.find(id);
    return found != texts.end() ? std::optional(found->second) : std::nullopt;
  }

  std::vector<host::OutgoingMessage> log;  // by offset
  std::map<std::string, std::string> texts;
  std::int64_t committed = 0;
  std::uint64_t clock_usec = 0;
};

// A worker's place in it. It owns partition 0 from join() to leave().
class FakeSubscription : public host::Subscription {
 public:
  explicit FakeSubscription(FakeBus& bus) : bus_(bus) {}

  void join(host::PartitionOwner& owner) {
    position = owner.assigned(0).value_or(bus_.committed);
    owner_ = &owner;
  }
  void leave() { std::exchange(owner_, nullptr)->revoked(0); }

  void poll(host::PartitionOwner& owner, std::size_t most, std::chrono::milliseconds) override {
    for (; most > 0 && position < static_cast<std::int64_t>(bus_.log.size()); --most) {
      const host::OutgoingMessage& sent = bus_.log[static_cast<std::size_t>(position)];
      host::PartitionMessage message{0, position, {sent.key, {}, sent.value, bus_.clock_usec}};
      for (const auto& [name, value] : sent.headers)
        message.message.headers.emplace_back(name, value);
      owner.take(message);
      ++position;
    }
  }

  bool commit(std::int32_t, std::int64_t next, std::string& problem) override {
    if (is_refused) problem = "not the owner";
    if (!is_refused) bus_.committed = next;
    return !is_refused;
  }

  std::vector<host::PartitionLag> lags() override { return {}; }
  void close() override {}

  std::int64_t position = 0;
  bool is_refused = false;  // each commit

 private:
  FakeBus& bus_;
  host::PartitionOwner* owner_ = nullptr;
};

}  // namespace tev::test
