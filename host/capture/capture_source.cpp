#include "host/capture/capture_source.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "host/events/decoder.h"
#include "host/support/errors.h"
#include "host/support/text.h"
#include "host/support/time_text.h"

namespace tev::host {
namespace {

std::string_view textOf(const Chunk& chunk) {
  return {reinterpret_cast<const char*>(chunk.body.data()), chunk.body.size()};
}

// Errors of a file name it, and the byte.
template <class Call>
auto inFile(const ChunkReader& reader, Call call) {
  const std::uint64_t at = reader.lastChunk();
  try {
    return call();
  } catch (const RunError& error) {
    throw RunError(fmt::format("{}: byte {}: {}", asPrintable(reader.path()), at, error.what()));
  }
}

// What keeps two files from being read as one; null: nothing.
const char* differenceOf(const CaptureHead& one, const CaptureHead& other) {
  if (one.schemas != other.schemas) return "schemas";
  if (one.source != other.source || one.host != other.host) return "sources or hosts";
  if (one.interval_usec != other.interval_usec) return "intervals";
  if (one.clear_on_read != other.clear_on_read) return "settings for clearing counters";
  return nullptr;
}

// All files are opened at once, to find out which begins first.
void allowManyFiles() {
  struct rlimit limit {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

bool isKnown(ChunkKind kind) {
  using enum ChunkKind;
  return kind == head || kind == events || kind == ledger || kind == clocks || kind == numbers ||
         kind == index;
}

}  // namespace

CaptureSource::CaptureSource(const std::vector<std::string>& paths, const TimeSpan& span)
    : span_(span) {
  allowManyFiles();
  std::vector<CaptureHead> heads;
  for (const std::string& path : paths) {
    try {
      auto reader = std::make_unique<ChunkReader>(path);
      CaptureHead head = reader->readHead();
      for (const auto& [other, part] : inputs_)
        if (other->fileId() == reader->fileId())
          throw RunError(fmt::format("{} and {} are the same recording, which is read once",
                                     asPrintable(other->path()), asPrintable(path)));
      inputs_.push_back({std::move(reader), head.part});
      heads.push_back(std::move(head));
    } catch (const RunError& error) {  // the others may be sound
      problems_.emplace_back(error.what());
      continue;
    }
    if (const char* const different = differenceOf(heads.back(), heads.front()))
      throw RunError(fmt::format("{} and {} have different {}: they must be read one by one",
                                 asPrintable(inputs_.front().reader->path()), asPrintable(path),
                                 different));
  }
  if (inputs_.empty()) throw RunError(problems_.front());
  head_ =
      *std::ranges::min_element(heads, {}, [](const CaptureHead& head) { return head.start.real; });
  schema_ = inFile(*inputs_.front().reader, [&] { return SchemaView::fromJson(head_.schemas); });
  begin_usec_ = now_usec_ = std::max(head_.start.real / 1000, span_.from_usec);
  noteMissingParts(std::move(heads));
}

// Of a recording in several files, the first ones may have been removed on purpose.
void CaptureSource::noteMissingParts(std::vector<CaptureHead> heads) {
  std::ranges::sort(heads, {},
                    [](const CaptureHead& head) { return std::pair(head.start.real, head.part); });
  for (std::size_t i = 1; i < heads.size(); ++i) {
    const std::uint64_t before = heads[i - 1].part;
    if (heads[i].part <= before + 1) continue;
    problems_.push_back(
        fmt::format("the files with the parts {} to {} of the recording are missing", before + 1,
                    heads[i].part - 1));
  }
}

// The input whose next chunk begins first; null at the end of all files.
CaptureSource::Input* CaptureSource::earliest() {
  Input* best = nullptr;
  std::uint64_t best_usec = 0;
  for (Input& input : inputs_) {
    const auto header = input.reader->peek();
    if (!header) input.reader->release();  // many files may be read one after the other
    if (!header || (best && header->first_usec >= best_usec)) continue;
    best = &input;
    best_usec = header->first_usec;
  }
  return best;
}

bool CaptureSource::fetch(const BlockConsumer& take, const std::function<bool()>& interrupted) {
  while (!interrupted()) {
    Input* const input = earliest();
    if (!input) return false;
    const ChunkHeader next = *input->reader->peek();
    if (!isKnown(next.kind) || isOutside(next)) {
      input->reader->skip();
      continue;
    }
    const auto chunk = input->reader->take();
    if (!chunk) continue;
    now_usec_ = std::min(std::max(now_usec_, chunk->header.last_usec), span_.to_usec);
    if (takeChunk(*input, *chunk, take)) return true;
  }
  return true;
}

// True at the end of an update. Wrong contents are passed over.
bool CaptureSource::takeChunk(const Input& input, const Chunk& chunk, const BlockConsumer& take) {
  const ChunkReader& reader = *input.reader;
  const ChunkHeader& header = chunk.header;
  std::size_t sound = 0;  // bytes of whole blocks
  try {
    if (header.kind == ChunkKind::events)
      inFile(reader, [&] {
        forEachBlock(*schema_, chunk.body,
                     [&](const Block& block) { sound += block.bytes.size(); });
      });
    else if (header.kind == ChunkKind::ledger)
      inFile(reader, [&] {
        counts_.take(reader.fileId(), input.part, header.last_usec < span_.from_usec,
                     countsFromJson(textOf(chunk)));
      });
    else if (header.kind == ChunkKind::clocks)
      inFile(reader, [&] { takeClocks(reader, chunk); });
  } catch (const RunError& error) {
    problems_.emplace_back(error.what());
  }
  if (sound > 0) passEvents(chunk.body.first(sound), header, take);
  const bool is_end_of_update = header.kind == ChunkKind::clocks;
  if (is_end_of_update) is_past_span_ |= header.last_usec >= span_.to_usec;
  return is_end_of_update && header.last_usec >= span_.from_usec;
}

void CaptureSource::takeClocks(const ChunkReader& reader, const Chunk& chunk) {
  // Both clocks are read one after the other, and the real-time clock may be adjusted slowly.
  constexpr std::int64_t kLeastStep = 50'000;  // microseconds
  ClockPair now;
  if (chunk.body.size() != sizeof now)
    throw RunError(fmt::format("a pair of clocks has {} bytes", chunk.body.size()));
  std::memcpy(&now, chunk.body.data(), sizeof now);
  if (clocks_ && clocks_of_ == &reader) {
    const auto advance = [](std::uint64_t from, std::uint64_t to) {
      return static_cast<std::int64_t>(to - from) / 1000;
    };
    const std::int64_t step =
        advance(clocks_->real, now.real) - advance(clocks_->monotonic, now.monotonic);
    if (step >= kLeastStep || step <= -kLeastStep) clock_steps_.push_back({now.real / 1000, step});
  }
  clocks_ = now;
  clocks_of_ = &reader;
}

// Whether the chunk need not be read. Others are read even if they are not used, to find damage.
bool CaptureSource::isOutside(const ChunkHeader& header) const {
  if (is_past_span_ && header.first_usec >= span_.to_usec) return true;
  return header.kind == ChunkKind::events &&
         (header.last_usec < span_.from_usec || header.first_usec >= span_.to_usec);
}

// Passes the blocks whose time is in the span.
void CaptureSource::passEvents(Blocks blocks, const ChunkHeader& header,
                               const BlockConsumer& take) const {
  if (header.first_usec >= span_.from_usec && header.last_usec < span_.to_usec) {
    take(blocks);
    return;
  }
  forEachBlock(*schema_, blocks, [&](const Block& block) {
    if (block.timestamp_usec >= span_.from_usec && block.timestamp_usec < span_.to_usec)
      take(block.bytes);
  });
}

std::optional<std::uint64_t> CaptureSource::nextUsec() {
  while (Input* const input = earliest()) {
    const ChunkHeader header = *input->reader->peek();
    const bool has_time = header.kind == ChunkKind::events || header.kind == ChunkKind::ledger ||
                          header.kind == ChunkKind::clocks;
    if (has_time && !isOutside(header)) return header.first_usec;
    input->reader->skip();
  }
  return std::nullopt;
}

std::uint64_t CaptureSource::readBytes() const {
  std::uint64_t sum = 0;
  for (const Input& input : inputs_) sum += input.reader->position();
  return sum;
}

std::uint64_t CaptureSource::size() const {
  std::uint64_t sum = 0;
  for (const Input& input : inputs_) sum += input.reader->size();
  return sum;
}

std::vector<CaptureFileState> CaptureSource::files() const {
  std::vector<CaptureFileState> files;
  for (const auto& [reader, part] : inputs_)
    files.push_back({reader->path(), reader->size(), reader->position(), reader->lastUsec(),
                     reader->isFinished(), reader->damages()});
  return files;
}

std::string damageText(const CaptureSource& source) {
  std::string text;
  for (const std::string& problem : source.problems()) text += "tev-host: " + problem + "\n";
  for (const CaptureFileState& file : source.files())
    for (const Damage& damage : file.damages) text += "tev-host: " + describe(file, damage) + "\n";
  return text;
}

std::string unfinishedText(const CaptureSource& source) {
  std::string text;
  for (const CaptureFileState& file : source.files())
    if (!file.is_finished && file.read == file.size)
      text += fmt::format("tev-host: {}: byte {}: the recording was not closed; it ends at {}\n",
                          asPrintable(file.path), file.size, timeText(file.last_usec));
  return text;
}

std::string describe(const CaptureFileState& file, const Damage& damage) {
  const std::string place = fmt::format("{}: byte {}: ", asPrintable(file.path), damage.offset);
  const std::string chunks =
      fmt::format("{} chunk{}", damage.chunks, damage.chunks == 1 ? "" : "s");
  if (damage.is_cut_off)
    return place +
           fmt::format("the file ends in a chunk; its last {} bytes are not used", damage.bytes);
  if (damage.bytes == 0)
    return place + chunks + (damage.chunks == 1 ? " is missing" : " are missing");
  return place + fmt::format("{} bytes are damaged and were passed over", damage.bytes) +
         (damage.chunks == 0 ? "" : ", " + chunks);
}

}  // namespace tev::host
