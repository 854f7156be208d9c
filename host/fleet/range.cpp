#include "host/fleet/range.h"

#include <algorithm>

#include "host/support/text.h"

namespace tev::host {

Range::Fit Range::fitOf(const Contents& contents) const {
  Fit fit{tables_.size(), false};
  std::map<TableKey, const EventLayout*> added;
  for (const Section& section : contents.sections) {
    const EventLayout* const layout = contents.schema->layouts[section.type->number].get();
    const TableKey key = keyOf(section.hour, *layout);
    const auto known = tables_.find(key);
    const EventLayout* const found = known != tables_.end()
                                         ? known->second.layout.get()
                                         : added.emplace(key, layout).first->second;
    fit.is_ambiguous |= found != layout;
  }
  fit.tables += added.size();
  return fit;
}

bool Range::isFull(const RangeLimits& limits, const MessageHead& head,
                   const Contents& contents) const {
  if (isEmpty()) return false;
  if (isFull(limits) || counts_.bytes + head.size > limits.bytes) return true;
  const auto begun = first_usec_.find(head.run.source);
  if (begun != first_usec_.end() && contents.first_usec > begun->second &&
      contents.first_usec - begun->second >= limits.seconds * 1'000'000)
    return true;
  if (!schemas_.contains(contents.schema.get()) &&
      schema_bytes_ + contents.schema->bytes > kMostSchemaBytes)
    return true;
  const Fit fit = fitOf(contents);
  return fit.tables > kMostTables || fit.is_ambiguous;
}

void Range::noteLoss(const MessageHead& head, const Arrival& arrival) {
  if (arrival.lost == 0) return;
  if (losses_.size() < kMostLosses)
    losses_.push_back({head.run, head.first - arrival.lost, arrival.lost, arrival.is_first});
  (arrival.is_first ? counts_.unseen : counts_.lost) += arrival.lost;
  if (!arrival.is_first) ++counts_.gaps;
}

void Range::add(const IncomingMessage& message, const MessageHead& head, const Arrival& arrival,
                const Contents& contents) {
  if (const Fit fit = fitOf(contents); fit.tables > kMostTables || fit.is_ambiguous)
    throw Rejected(Cause::spread, "its events do not fit into the files of a range");
  noteLoss(head, arrival);
  counts_.events += head.events - arrival.taken;
  counts_.repeated += arrival.taken;
  counts_.bytes += head.size;
  first_usec_.emplace(head.run.source, contents.first_usec);
  if (schemas_.insert(contents.schema.get()).second) schema_bytes_ += contents.schema->bytes;
  const std::size_t source = asPrintable(head.run.source).size();
  for (const Section& section : contents.sections) {
    const auto& layout = contents.schema->layouts[section.type->number];
    RangeTable& table = tables_[keyOf(section.hour, *layout)];
    table.hour = section.hour;
    table.layout = layout;
    table.rows += section.events;
    table.longest_source = std::max(table.longest_source, source);
    table.longest_type = std::max(table.longest_type, asPrintable(section.type->name).size());
  }
  messages_.push_back({head.run,
                       head.first,
                       arrival.taken,
                       contents.schema,
                       head.codec,
                       head.size,
                       {message.value.begin(), message.value.end()}});
  memory_ += sizeof(KeptMessage) + message.value.size();
}

std::vector<RangeTable> Range::tables() const {
  std::vector<RangeTable> tables;
  for (const auto& entry : tables_) tables.push_back(entry.second);
  return tables;
}

}  // namespace tev::host
