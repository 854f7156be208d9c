#include "host/bus/spool_reader.h"

#include <fmt/format.h>

#include <cstring>
#include <utility>

#include "host/support/errors.h"
#include "host/support/log.h"
#include "host/support/text.h"

namespace tev::host {

SpoolReader::SpoolReader(const std::string& path, BatchStore::Dropped lost)
    : chunks_(path), lost_(std::move(lost)) {
  const CaptureHead head = chunks_.readHead();
  if (head.bus_source.empty() || head.schema_ids.size() != head.schemas.size())
    throw RunError(asPrintable(path) + ": it is not the file of a spool");
  run_ = {head.bus_source, runFromText(head.bus_run)};
  schemas_ = std::make_shared<RunSchemas>(RunSchemas{head.schema_ids, head.schemas});
}

void SpoolReader::follow(const RunPlace& damaged) {
  if (damaged.run == run_) follows_ = damaged.next;
}

std::optional<RunPlace> SpoolReader::damagedEnd() const {
  const bool is_damaged = !chunks_.damages().empty() && chunks_.damages().back().offset > last_;
  return is_damaged && follows_ ? std::optional(RunPlace{run_, *follows_}) : std::nullopt;
}

std::optional<Batch> SpoolReader::next() {
  chunks_.refresh();
  while (chunks_.peek()) {
    const auto chunk = chunks_.take();
    if (!chunk) {
      numbers_.reset();
    } else if (chunk->header.kind == ChunkKind::numbers &&
               chunk->body.size() == sizeof(EventNumbers)) {
      std::memcpy(&numbers_.emplace(), chunk->body.data(), sizeof(EventNumbers));
    } else if (chunk->header.kind == ChunkKind::events && numbers_) {
      const EventNumbers numbers = *std::exchange(numbers_, std::nullopt);
      countDamage(numbers);
      last_ = chunks_.lastChunk();
      return Batch{.run = run_,
                   .schemas = schemas_,
                   .first = numbers.first,
                   .events = numbers.events,
                   .first_usec = chunk->header.first_usec,
                   .last_usec = chunk->header.last_usec,
                   .blocks = {chunk->body.begin(), chunk->body.end()}};
    }
  }
  sayDamages();
  return std::nullopt;
}

// The batches of a file follow each other.
void SpoolReader::countDamage(const EventNumbers& numbers) {
  if (follows_ && numbers.first > *follows_)
    lost_({.run = run_,
           .schemas = schemas_,
           .first = *follows_,
           .events = numbers.first - *follows_,
           .first_usec = 0,
           .last_usec = 0,
           .blocks = {}});
  follows_ = numbers.first + numbers.events;
}

void SpoolReader::sayDamages() {
  if (std::exchange(has_said_, true)) return;
  for (const Damage& damage : chunks_.damages())
    Log::instance().say(fmt::format(
        "tev-host: {} is {} at byte {}: {} bytes are not sent", asPrintable(chunks_.path()),
        damage.is_cut_off ? "cut off" : "damaged", damage.offset, damage.bytes));
}

}  // namespace tev::host
