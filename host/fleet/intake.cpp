#include "host/fleet/intake.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/events/decoder.h"
#include "host/support/text.h"
#include "host/support/time_text.h"

namespace tev::host {
namespace {

constexpr std::uint64_t kLastUsec = 253'402'300'799'999'999;  // of the year 9999
constexpr std::uint64_t kMostAheadUsec = kHourUsec;  // of a node's clock before that of the bus

// The latest event that a message may have. The worker's own clock has no say: a message is judged
// in the same way when it is read again.
std::uint64_t lastUsecOf(const IncomingMessage& message) {
  if (message.stored_usec == 0 || message.stored_usec > kLastUsec - kMostAheadUsec)
    return kLastUsec;
  return message.stored_usec + kMostAheadUsec;
}

}  // namespace

MessageHead headOf(const IncomingMessage& message) {
  try {
    return readHead(message);
  } catch (const RunError& error) {
    throw Rejected(Cause::format, error.what());
  }
}

Contents Intake::read(const IncomingMessage& message, const MessageHead& head,
                      std::uint64_t skipped) {
  Contents contents;
  contents.schema = schemas_.of(head.schema_ids);
  try {
    reader_.read(message.value, head.codec, head.size, blocks_);
    survey(*contents.schema, head, skipped, lastUsecOf(message));
  } catch (const Rejected&) {
    throw;
  } catch (const RunError& error) {
    throw Rejected(Cause::events, error.what());
  }
  contents.blocks = blocks_;
  contents.first_usec = first_usec_;
  contents.sections = sections_;
  return contents;
}

void Intake::survey(const FleetSchema& schema, const MessageHead& head, std::uint64_t skipped,
                    std::uint64_t last_usec) {
  sections_.clear();
  std::uint64_t events = 0;
  forEachBlock(schema.view, blocks_, [&](const Block& block) {
    if (block.timestamp_usec > last_usec)
      throw Rejected(Cause::clock,
                     fmt::format("the clock of {} is ahead: it has an event of {}",
                                 asPrintable(head.run.source), timeText(block.timestamp_usec)));
    if (!schema.layouts[block.type->number])
      throw Rejected(Cause::broken_schema, "its schema has a type with too many columns");
    if (events == 0) first_usec_ = block.timestamp_usec;
    const std::uint64_t begin = std::max(events, skipped);
    events += block.events;
    if (events > begin) count({block.type, block.timestamp_usec / kHourUsec, events - begin});
  });
  if (events != head.events)
    throw Rejected(Cause::events,
                   fmt::format("it has {} events, and its header claims {}", events, head.events));
}

void Intake::count(const Section& section) {
  const auto isSame = [&](const Section& one) {
    return one.type == section.type && one.hour == section.hour;
  };
  if (last_ >= sections_.size() || !isSame(sections_[last_])) {
    last_ = static_cast<std::size_t>(std::ranges::find_if(sections_, isSame) - sections_.begin());
    if (last_ == sections_.size()) sections_.push_back({section.type, section.hour, 0});
    if (sections_.size() > kMostSections)
      throw Rejected(Cause::spread,
                     fmt::format("its events have more than {} types and hours", kMostSections));
  }
  sections_[last_].events += section.events;
}

}  // namespace tev::host
