#include "host/fleet/range_folder.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <system_error>
#include <utility>

#include "host/fleet/table_writer.h"
#include "host/support/errors.h"
#include "host/support/number_text.h"
#include "host/support/random.h"
#include "host/support/text.h"
#include "host/support/whole_file.h"

namespace tev::host {
namespace {

namespace fs = std::filesystem;

constexpr char kRanges[] = "_ranges";
constexpr std::string_view kDone = ".done";
constexpr std::size_t kOffsetDigits = 20;
constexpr std::size_t kLongestTopic = 150;  // characters: it is in the names of the files

[[noreturn]] void fail(const char* what, const std::string& path, int error) {
  throw RunError(fmt::format("cannot {} {}: {}", what, asPrintable(path),
                             std::generic_category().message(error)));
}

// Throws RunError when this cannot be found out.
bool exists(const std::string& path) {
  std::error_code error;
  const bool is_there = fs::exists(path, error);
  if (error) fail("read", path, error.value());
  return is_there;
}

std::string hourText(std::uint64_t hour) {
  return fmt::format("{:%Y-%m-%dT%H}", fmt::gmtime(static_cast<std::time_t>(hour * 3600)));
}

// Nothing when it cannot be read.
std::optional<std::string> contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::string text{std::istreambuf_iterator<char>(file), {}};
  if (file.bad()) return std::nullopt;
  return text;
}

// The offsets [start, end) of a range, as the name of its `done` file has them.
struct Span {
  std::int64_t start = 0;
  std::int64_t end = 0;
  auto operator<=>(const Span&) const = default;
};

// Nothing when it is not the name of a `done` file that begins with `before`.
std::optional<Span> spanOf(std::string_view name, std::string_view before) {
  if (!name.starts_with(before) || !name.ends_with(kDone)) return std::nullopt;
  name.remove_prefix(before.size());
  name.remove_suffix(kDone.size());
  if (name.size() != 2 * kOffsetDigits + 1 || name[kOffsetDigits] != '+') return std::nullopt;
  const auto start = parseNumber<std::int64_t>(name.substr(0, kOffsetDigits));
  const auto last = parseNumber<std::int64_t>(name.substr(kOffsetDigits + 1));
  if (!start || !last || *start < 0 || *last == INT64_MAX) return std::nullopt;
  return Span{*start, *last + 1};
}

std::vector<std::string> holesOf(const std::set<Span>& spans, std::int32_t partition) {
  std::vector<std::string> notes;
  for (auto one = spans.begin(); one != spans.end() && std::next(one) != spans.end(); ++one) {
    const Span& next = *std::next(one);
    if (next.start > one->end)
      notes.push_back(fmt::format("partition {}: offsets {} to {} are missing in the folder",
                                  partition, one->end, next.start - 1));
    else if (next.start < one->end)
      notes.push_back(fmt::format("partition {}: offsets {} to {} are in two ranges of the folder",
                                  partition, next.start, std::min(one->end, next.end) - 1));
  }
  return notes;
}

std::string limitsText(const RangeLimits& limits) {
  return fmt::format("tev-limits 1\nbytes {}\nmessages {}\nseconds {}\n", limits.bytes,
                     limits.messages, limits.seconds);
}

// Nothing when the text is damaged.
std::optional<RangeLimits> limitsOf(const std::string& text) {
  RangeLimits limits;
  unsigned long long bytes = 0;
  unsigned long long messages = 0;
  unsigned long long seconds = 0;
  if (std::sscanf(text.c_str(), "tev-limits 1\nbytes %llu\nmessages %llu\nseconds %llu\n", &bytes,
                  &messages, &seconds) != 3)
    return std::nullopt;
  limits = {bytes, messages, seconds};
  if (limitsText(limits) != text) return std::nullopt;
  return limits;
}

void removeParts(const std::string& folder, const std::string& before) {
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (name.starts_with(before) && name.find(".part", before.size()) != std::string::npos)
      unlink(entry->path().c_str());
  }
}

// Files that are removed unless they get their names.
class Parts {
 public:
  Parts() = default;
  ~Parts() {
    for (const std::string& path : paths) unlink(path.c_str());
  }
  Parts(const Parts&) = delete;
  Parts& operator=(const Parts&) = delete;

  std::vector<std::string> paths;
};

}  // namespace

RangeFolder::RangeFolder(std::string path, std::string topic, bool is_forced_out)
    : path_(std::move(path)),
      topic_(std::move(topic)),
      is_forced_out_(is_forced_out),
      token_(runText(randomNumber())) {
  if (topic_.size() > kLongestTopic)
    throw RunError(fmt::format(
        "the name of the topic has {} characters, and with Parquet files {} are possible",
        topic_.size(), kLongestTopic));
  makeFolder(kRanges);
}

std::string RangeFolder::folderOf(std::int32_t partition) const {
  return fmt::format("{}/{}+{}", kRanges, topic_, partition);
}

std::string RangeFolder::nameOf(std::int32_t partition, const Range& range) const {
  return fmt::format("{}+{}+{:020}+{:020}", topic_, partition, range.start(), range.end() - 1);
}

void RangeFolder::sync(const std::string& path) const {
  if (!is_forced_out_) return;
  const int descriptor = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) fail("open", path, errno);
  const int error = fsync(descriptor) == 0 ? 0 : errno;
  close(descriptor);
  if (error != 0 && error != EINVAL) fail("sync", path, error);  // EINVAL: the system cannot
}

// A folder within this folder, and what is missing above it.
void RangeFolder::makeFolder(const std::string& relative) const {
  const fs::path whole = fs::path(path_) / relative;
  std::error_code error;
  fs::create_directories(whole, error);
  if (std::error_code ignored; error || !fs::is_directory(whole, ignored))
    fail("make a folder", whole.string(), error ? error.value() : ENOTDIR);
}

void RangeFolder::rename(const std::string& from, const std::string& to) const {
  if (std::rename(from.c_str(), to.c_str()) != 0) fail("write", to, errno);
}

void RangeFolder::write(const std::string& path, const std::string& text) const {
  WholeFile file(path);
  file.write(text);
  file.finish(is_forced_out_);
}

RangeLimits RangeFolder::settle(const RangeLimits& wanted) {
  const std::string path = fmt::format("{}/{}/{}.limits", path_, kRanges, topic_);
  if (!exists(path)) {
    // Of several workers that begin at once, one decides.
    try {
      Parts part;
      write(part.paths.emplace_back(path + "." + token_ + ".part"), limitsText(wanted));
      if (link(part.paths.front().c_str(), path.c_str()) != 0) fail("write", path, errno);
    } catch (const RunError&) {
      if (!exists(path)) throw;
    }
    sync(path_ + "/" + kRanges);
  }
  removeParts(path_ + "/" + kRanges, topic_ + ".limits.");
  const auto text = contentsOf(path);
  const auto limits = limitsOf(text.value_or(""));
  if (!limits)
    throw RunError(fmt::format("{} is damaged or of a newer version", asPrintable(path)));
  return *limits;
}

PartitionState RangeFolder::recover(std::int32_t partition) const {
  makeFolder(folderOf(partition));
  sync(path_ + "/" + kRanges);
  const std::string folder = path_ + "/" + folderOf(partition);
  const std::string before = fmt::format("{}+{}+", topic_, partition);
  removeParts(folder, before);
  std::set<Span> spans;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (const auto span = spanOf(name, before)) spans.insert(*span);
  }
  if (error) fail("read", folder, error.value());
  PartitionState state;
  state.notes = holesOf(spans, partition);
  if (spans.empty()) return state;
  const Span& last = *std::ranges::max_element(spans, {}, &Span::end);
  const std::string path =
      fmt::format("{}/{}{:020}+{:020}{}", folder, before, last.start, last.end - 1, kDone);
  const auto text = contentsOf(path);
  if (!text) fail("read", path, errno);
  try {
    const RangeRecord record = recordOf(*text, state.sequences);
    if (record.topic != topic_ || record.partition != partition || record.start != last.start ||
        record.end != last.end)
      throw RunError("it is that of another range");
  } catch (const RunError& problem) {
    throw RunError(
        fmt::format("{} cannot be used: {}; without this file, its range is written "
                    "again",
                    asPrintable(path), problem.what()));
  }
  state.next = last.end;
  return state;
}

void RangeFolder::publish(std::int32_t partition, const Range& range,
                          const Sequences& sequences) const {
  const std::string name = nameOf(partition, range);
  const std::string folder = path_ + "/" + folderOf(partition);
  const std::string done = fmt::format("{}/{}{}", folder, name, kDone);
  if (exists(done)) return;
  makeFolder(folderOf(partition));

  const std::vector<RangeTable> tables = range.tables();
  RangeRecord record{topic_,         partition, range.start(), range.end(), range.counts(),
                     range.losses(), {}};
  Parts parts;
  for (std::size_t i = 0; i <= tables.size(); ++i)  // the last one becomes the `done` file
    parts.paths.push_back(fmt::format("{}/{}.{}.{}.part", folder, name, i, token_));
  writeTables(range, tables, parts.paths, is_forced_out_);

  std::set<std::string> folders;
  for (std::size_t i = 0; i < tables.size(); ++i) {
    const std::string place =
        fmt::format("hour={}/type={}", hourText(tables[i].hour), tables[i].layout->kind);
    makeFolder(place);
    folders.insert({path_, path_ + "/" + place.substr(0, place.find('/')), path_ + "/" + place});
    const std::string file = fmt::format("{}/{}+{}.parquet", place, name, tables[i].layout->digest);
    rename(parts.paths[i], path_ + "/" + file);
    record.files.push_back({file, tables[i].rows});
  }
  for (const std::string& one : folders) sync(one);
  write(parts.paths.back(), textOf(record, sequences));
  rename(parts.paths.back(), done);
  sync(folder);
}

}  // namespace tev::host
