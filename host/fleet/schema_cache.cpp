#include "host/fleet/schema_cache.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <utility>

#include "host/events/declared_schema.h"
#include "host/fleet/fleet_counts.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::size_t kMostNoted = 4096;  // ids that are broken or missing

std::size_t sizeOf(const FleetSchema& schema) {
  std::size_t bytes = sizeof schema;
  for (const SchemaView::Schema& one : schema.view.schemas()) bytes += one.text.size();
  for (const TypeView& type : schema.view.types()) {
    bytes += sizeof type + type.name.size();
    // Each column is in the type, possibly in its key, and in the layout, which has a text.
    for (const Column& column : type.columns)
      bytes += 3 * (sizeof column + column.name.size() + column.description.size());
  }
  return bytes;
}

// A schema without types has no text.
bool isEmpty(const std::string& id) {
  return std::ranges::all_of(id, [](char digit) { return digit == '0'; });
}

// Throws RunError.
void expectId(const std::string& text, const std::string& id) {
  if (text.size() > SchemaCache::kLargest) throw RunError("its text is too long");
  if (asUtf8(text) != text) throw RunError("its text is not UTF-8");
  if (declaredSchema(text).id != id) throw RunError("its text has another id");
}

}  // namespace

bool hasSchemaId(const std::string& text, const std::string& id) {
  try {
    expectId(text, id);
    return true;
  } catch (const RunError&) {
    return false;
  }
}

std::shared_ptr<const FleetSchema> SchemaCache::of(const std::vector<std::string>& ids) {
  std::string key;
  for (const std::string& id : ids) key += id;
  const auto known = by_key_.find(key);
  if (known != by_key_.end()) {
    entries_.splice(entries_.begin(), entries_, known->second);
    return known->second->schema;
  }
  auto schema = make(ids);
  bytes_ += schema->bytes;
  entries_.push_front({key, schema});
  by_key_.emplace(std::move(key), entries_.begin());
  dropOld();
  return schema;
}

void SchemaCache::dropOld() {
  while (bytes_ > kMostBytes && entries_.size() > 1) {
    bytes_ -= entries_.back().schema->bytes;
    by_key_.erase(entries_.back().key);
    entries_.pop_back();
  }
}

std::shared_ptr<const FleetSchema> SchemaCache::make(const std::vector<std::string>& ids) {
  std::vector<std::string> texts;
  for (const std::string& id : ids) texts.push_back(isEmpty(id) ? "" : textOf(id));
  try {
    FleetSchema schema{SchemaView::fromJson(texts), {}, 0};
    schema.bytes = sizeOf(schema);
    if (schema.bytes > kLargest) throw RunError("it is too large");
    for (const TypeView& type : schema.view.types()) schema.layouts.push_back(layouts_.of(type));
    return std::make_shared<const FleetSchema>(std::move(schema));
  } catch (const RunError& error) {
    throw Rejected(Cause::broken_schema, fmt::format("schema {}: {}", ids.front(), error.what()));
  }
}

// The text of the schema, which has this id.
std::string SchemaCache::textOf(const std::string& id) {
  std::string text = find(id);
  const std::size_t hash = std::hash<std::string>()(text);
  if (const auto known = broken_.find(id); known != broken_.end() && known->second.hash == hash)
    throw Rejected(Cause::broken_schema, known->second.reason);
  try {
    expectId(text, id);
  } catch (const RunError& error) {
    if (broken_.size() >= kMostNoted) broken_.clear();
    const std::string reason = fmt::format("schema {}: {}", id, error.what());
    broken_[id] = {hash, reason};
    throw Rejected(Cause::broken_schema, reason);
  }
  return text;
}

// Ids that nobody publishes do not hold up the other messages again and again: at most a tenth of
// the time is spent on them.
std::string SchemaCache::find(const std::string& id) {
  using Clock = std::chrono::steady_clock;
  using std::chrono::milliseconds;
  const auto begin = Clock::now();
  const auto since = std::chrono::duration_cast<milliseconds>(begin - last_wait_);
  left_ = std::min(patience_, left_ + since / 10);
  last_wait_ = begin;
  const milliseconds patience = missing_.contains(id) ? milliseconds(0) : left_;
  std::optional<std::string> text = shelf_.find(id, patience);
  if (text) {
    missing_.erase(id);
    return *std::move(text);
  }
  last_wait_ = Clock::now();
  const auto waited = std::chrono::duration_cast<milliseconds>(last_wait_ - begin);
  left_ = std::max(left_ - waited, milliseconds(0));
  if (missing_.size() >= kMostNoted) missing_.clear();
  missing_.insert(id);
  throw Rejected(Cause::unknown_schema, fmt::format("nobody has published schema {}", id));
}

}  // namespace tev::host
