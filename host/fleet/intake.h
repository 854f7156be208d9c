// Reads messages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "host/bus/message.h"
#include "host/events/event_source.h"
#include "host/fleet/fleet_counts.h"
#include "host/fleet/schema_cache.h"

namespace tev::host {

constexpr std::uint64_t kHourUsec = 3'600'000'000;

// Events of one type in one hour.
struct Section {
  const TypeView* type = nullptr;
  std::uint64_t hour = 0;  // since the Unix epoch
  std::uint64_t events = 0;
};

constexpr std::size_t kMostSections = 256;  // of a message

// What a message has.
struct Contents {
  std::shared_ptr<const FleetSchema> schema;
  Blocks blocks;
  std::uint64_t first_usec = 0;       // of its first event
  std::span<const Section> sections;  // of the events that are taken
};

class Intake {
 public:
  explicit Intake(SchemaCache& schemas) : schemas_(schemas) {}

  // The message's contents apart from the first `skipped` events. Valid until the next call. Throws
  // Rejected.
  Contents read(const IncomingMessage& message, const MessageHead& head, std::uint64_t skipped);

 private:
  void survey(const FleetSchema& schema, const MessageHead& head, std::uint64_t skipped,
              std::uint64_t last_usec);
  void count(const Section& section);

  SchemaCache& schemas_;
  BlockReader reader_;
  std::vector<std::uint8_t> blocks_;
  std::vector<Section> sections_;
  std::uint64_t first_usec_ = 0;
  std::size_t last_ = 0;  // section that was counted
};

// Throws Rejected.
MessageHead headOf(const IncomingMessage& message);

}  // namespace tev::host
