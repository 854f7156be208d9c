#include "simulator/recording.h"

#include <fmt/format.h>
#include <pthread.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "host/events/declared_schema.h"
#include "host/events/values.h"
#include "host/support/errors.h"
#include "host/support/text.h"

namespace simulator {

using tev::host::Chunk;
using tev::host::ChunkKind;
using tev::host::ClockPair;
using tev::host::Event;
using tev::host::RunError;

namespace {

// An update with more bytes of events is read in several parts. A sample with events in two parts
// is not played.
constexpr std::uint64_t kMaxPart = std::uint64_t{256} << 20;

// The events of an update may be older than the end of the previous one.
constexpr std::int64_t kSlackUsec = 1'000'000;

constexpr std::size_t kMaxProblems = 20;
constexpr std::size_t kMaxRecordedDevices = 1024;

// Modulo 2^64, for times that are wrong.
std::int64_t difference(std::uint64_t a, std::uint64_t b) {
  return static_cast<std::int64_t>(a - b);
}
std::int64_t difference(std::int64_t a, std::int64_t b) {
  return difference(static_cast<std::uint64_t>(a), static_cast<std::uint64_t>(b));
}

std::string_view textOf(const Chunk& chunk) {
  return {reinterpret_cast<const char*>(chunk.body.data()), chunk.body.size()};
}

// Nothing when events of this type do not describe adapters.
std::optional<RecordedType> recordedType(const tev::host::DeclaredType& declared,
                                         const nlohmann::json& fields) {
  RecordedType type;
  for (std::size_t i = 0; i < declared.fields.size(); ++i) {
    const tev::host::DeclaredField& field = declared.fields[i];
    const bool is_name = i == 0 && field.key == 1 && field.builtin_id == TEV_TYPE_CHAR;
    const bool is_plane = i == 1 && field.key == 2 && field.builtin_id == TEV_TYPE_UINT8;
    if (is_name) continue;
    if (i == 0 || field.count != 1) return std::nullopt;
    if (is_plane) {
      type.is_plane = true;
      type.plane_offset = field.offset;
    } else if (field.key != 0 || field.builtin_id != TEV_TYPE_UINT32) {
      return std::nullopt;
    } else {
      // The declared description is changed to be printable.
      type.counters.push_back({field.name, fields[i].value("description", ""), field.offset});
    }
  }
  if (declared.fields.empty()) return std::nullopt;
  return type;
}

}  // namespace

// The events of a part, from which its samples are made.
class Recording::Assembly {
 public:
  Assembly(const Recording& recording, const Part& part) : recording_(recording), part_(part) {
    for (const RecordedDevice& device : recording.devices()) rows_.emplace_back(1 + device.planes);
  }

  void add(const Event& event) {
    const RecordedType* const type = recording_.typeOf(event);
    if (!type) return;
    const auto number = recording_.device_of_.find(recording_.nameIn(event));
    if (number == recording_.device_of_.end()) return;
    const RecordedDevice& device = recording_.devices_[number->second];
    if (type != (type->is_plane ? device.plane_type : device.device_type)) return;
    const std::size_t row = type->is_plane ? 1 + std::size_t{event.data[type->plane_offset]} : 0;
    std::vector<RecordedSamples>& rows = rows_[number->second];
    if (row >= rows.size()) return;
    const std::int64_t usec = timeOf(part_, event.timestamp_usec);
    rows[row].usec.push_back(difference(usec, recording_.origin_usec_));
    for (const RecordedType::Counter& counter : type->counters) {
      std::uint32_t value = 0;
      std::memcpy(&value, event.data + counter.offset, sizeof value);
      rows[row].values.push_back(value);
    }
  }

  RecordedPart samples() const {
    RecordedPart part;
    for (std::size_t i = 0; i < rows_.size(); ++i)
      part.push_back(joined(rows_[i], recording_.devices_[i]));
    return part;
  }

 private:
  // The samples of which all events are there: an event of the device and one of each plane.
  static RecordedSamples joined(const std::vector<RecordedSamples>& rows,
                                const RecordedDevice& device) {
    RecordedSamples samples;
    samples.usec.reserve(rows[0].usec.size());
    samples.values.reserve(rows[0].usec.size() * device.numCounters());
    std::vector<std::size_t> at(rows.size());
    std::int64_t last = INT64_MIN;
    for (const std::int64_t usec : rows[0].usec) {
      const bool is_whole = seek(rows, at, usec);
      if (is_whole) {
        samples.usec.push_back(last = std::max(last, usec));
        for (std::size_t row = 0; row < rows.size(); ++row) append(samples, rows[row], at[row]++);
      } else {
        ++at[0];
      }
    }
    return samples;
  }

  // Moves each row to its event with this time. Times of a row increase, unless the clock was
  // stepped; then the events of all rows are usually at the same place.
  static bool seek(const std::vector<RecordedSamples>& rows, std::vector<std::size_t>& at,
                   std::int64_t usec) {
    for (std::size_t row = 1; row < rows.size(); ++row) {
      const std::vector<std::int64_t>& times = rows[row].usec;
      while (at[row] < times.size() && times[at[row]] < usec) ++at[row];
      if (at[row] == times.size() || times[at[row]] != usec) return false;
    }
    return true;
  }

  static void append(RecordedSamples& samples, const RecordedSamples& row, std::size_t at) {
    const std::size_t width = row.values.size() / row.usec.size();
    const auto first = row.values.begin() + static_cast<std::ptrdiff_t>(at * width);
    samples.values.insert(samples.values.end(), first, first + static_cast<std::ptrdiff_t>(width));
  }

  const Recording& recording_;
  const Part& part_;
  std::vector<std::vector<RecordedSamples>> rows_;  // by device: its own events, and each plane's
};

Recording::Recording(const std::string& path) : reader_(path) {
  const auto refuse = [&](const char* reason) {
    throw RunError(fmt::format("{}: {}", tev::host::asPrintable(path), reason));
  };
  head_ = reader_.readHead();
  try {
    schema_ = tev::host::SchemaView::fromJson(head_.schemas);
    readTypes();
  } catch (const RunError& error) {
    refuse(error.what());
  }
  scan();
  typeDevicesWithoutSamples();
  if (parts_.empty()) refuse("it has no samples of adapters");
}

std::int64_t Recording::intervalUsec() const {
  constexpr std::uint64_t kDay = 86'400'000'000;
  return static_cast<std::int64_t>(std::min(head_.interval_usec, kDay));
}

void Recording::readTypes() {
  for (const std::string& text : head_.schemas) {
    if (text.empty()) continue;
    const tev::host::DeclaredSchema schema = tev::host::declaredSchema(text);
    const nlohmann::json document = nlohmann::json::parse(schema.text);
    for (std::size_t i = 0; i < schema.types.size(); ++i)
      types_.push_back(recordedType(schema.types[i], document["types"][i]["fields"]));
  }
}

const RecordedType* Recording::typeOf(const Event& event) const {
  const auto& type = types_[event.type->number];
  return type ? &*type : nullptr;
}

std::string_view Recording::nameIn(const Event& event) const {
  return tev::host::textOf(event.type->keys.front(), event.data);
}

// A chunk with wrong contents is passed over.
template <class Read>
void Recording::passingOver(Read read) {
  try {
    read();
  } catch (const RunError& error) {
    if (problems_.size() < kMaxProblems)
      problems_.push_back(fmt::format("{}: byte {}: {}", tev::host::asPrintable(reader_.path()),
                                      reader_.lastChunk(), error.what()));
  }
}

void Recording::scan() {
  open_.real_before = open_.real_after = difference(head_.start.real, head_.start.monotonic) / 1000;
  open_.monotonic_before = static_cast<std::int64_t>(head_.start.monotonic / 1000);
  open_.begin = reader_.position();
  // A later file of a recording begins with the counts before it.
  if (head_.part == 0) failed_.emplace();
  while (const auto header = reader_.peek()) {
    const std::uint64_t begin = reader_.position();
    switch (header->kind) {
      case ChunkKind::events:
        if (open_bytes_ + header->unpacked > kMaxPart) closePart(begin);
        if (const auto chunk = reader_.take()) scanEvents(*chunk);
        break;
      case ChunkKind::ledger:
        if (const auto chunk = reader_.take()) scanLedger(*chunk);
        break;
      case ChunkKind::clocks:
        if (const auto chunk = reader_.take()) scanClocks(*chunk);
        break;
      default:
        reader_.skip();
    }
  }
  open_.monotonic_after = INT64_MAX;
  open_.real_after = open_.real_before;
  closePart(reader_.size());
  for (const tev::host::Damage& damage : reader_.damages()) {
    if (problems_.size() == kMaxProblems) break;
    const std::string missing =
        damage.chunks > 0 ? fmt::format("{} chunks are missing; ", damage.chunks) : "";
    problems_.push_back(fmt::format(
        "{}: byte {}: {}{} bytes are {}", tev::host::asPrintable(reader_.path()), damage.offset,
        missing, damage.bytes,
        damage.is_cut_off ? "the beginning of a chunk that is cut off" : "damaged and not played"));
  }
}

void Recording::scanEvents(const Chunk& chunk) {
  passingOver([&] {
    tev::host::forEachBlock(*schema_, chunk.body, [](const tev::host::Block&) {});
    tev::host::decodeBlocks(*schema_, chunk.body, [this](const Event& event) { scanEvent(event); });
    open_bytes_ += chunk.body.size();
  });
}

void Recording::scanEvent(const Event& event) {
  const RecordedType* const type = typeOf(event);
  if (!type) return;
  const std::size_t number = deviceNamed(nameIn(event));
  if (number == devices_.size()) return;
  RecordedDevice& device = devices_[number];
  const RecordedType*& known = type->is_plane ? device.plane_type : device.device_type;
  if (!known) known = type;
  if (known != type) return;
  const bool is_first = !std::exchange(has_events_, true);
  first_usec_ = is_first ? event.timestamp_usec : std::min(first_usec_, event.timestamp_usec);
  last_usec_ = is_first ? event.timestamp_usec : std::max(last_usec_, event.timestamp_usec);
  if (type->is_plane) {
    device.planes = std::max(device.planes, std::size_t{event.data[type->plane_offset]} + 1);
    ++open_counts_[number].plane_events;
  } else {
    ++open_counts_[number].samples;
  }
}

// The number of devices when there are too many.
std::size_t Recording::deviceNamed(std::string_view name) {
  const auto known = device_of_.find(name);
  if (known != device_of_.end()) return known->second;
  // The counts have printable names, and a device may fail before its first sample.
  const std::string printable = tev::host::asPrintable(name);
  const auto counted = device_of_.find(printable);
  if (counted != device_of_.end() && !devices_[counted->second].device_type) {
    devices_[counted->second].name = name;
    return device_of_.emplace(name, counted->second).first->second;
  }
  if (devices_.size() == kMaxRecordedDevices) return devices_.size();
  device_of_.emplace(printable, devices_.size());
  device_of_.emplace(name, devices_.size());
  devices_.push_back({.name = std::string(name)});
  open_counts_.emplace_back();
  return devices_.size() - 1;
}

void Recording::scanLedger(const Chunk& chunk) {
  passingOver([&] {
    std::map<std::string, std::uint64_t> failed;
    for (const tev::host::DeviceCounts& one : tev::host::countsFromJson(textOf(chunk))) {
      const std::uint64_t reads =
          std::max(one.failed, one.refused + one.nothing_filled + one.failed_otherwise);
      deviceNamed(one.device);
      if (failed_ && reads > (*failed_)[one.device]) failing_[one.device] = one.last_failure;
      failed[one.device] = reads;
    }
    failed_ = std::move(failed);
  });
}

void Recording::scanClocks(const Chunk& chunk) {
  if (chunk.body.size() != sizeof(ClockPair)) return;
  ClockPair clocks{};
  std::memcpy(&clocks, chunk.body.data(), sizeof clocks);
  open_.monotonic_after = static_cast<std::int64_t>(clocks.monotonic / 1000);
  open_.real_after = difference(clocks.real, clocks.monotonic) / 1000;
  noteFailures(open_.monotonic_after);
  // The rest of the samples may follow: an interrupted update ends between two events.
  if (!isWhole() && !std::exchange(is_extended_, true)) return;
  closePart(reader_.lastChunk());
}

void Recording::noteFailures(std::int64_t until_usec) {
  for (const auto& [name, reason] : failing_) {
    const std::size_t number = deviceNamed(name);
    if (number == devices_.size()) continue;
    std::vector<RecordedFailures>& failures = devices_[number].failures;
    const std::int64_t from = open_.monotonic_before;
    if (!failures.empty() && failures.back().to_usec == from && failures.back().reason == reason)
      failures.back().to_usec = until_usec;
    else
      failures.push_back({from, until_usec, reason});
  }
  failing_.clear();
}

bool Recording::isWhole() const {
  for (std::size_t i = 0; i < devices_.size(); ++i)
    if (open_counts_[i].plane_events != open_counts_[i].samples * devices_[i].planes) return false;
  return true;
}

void Recording::closePart(std::uint64_t end) {
  open_.end = end;
  if (std::ranges::any_of(open_counts_, [](const Counts& one) { return one.samples > 0; })) {
    const std::int64_t first = timeOf(open_, first_usec_);
    if (parts_.empty()) origin_usec_ = first;
    end_usec_ = std::max({end_usec_, difference(first, origin_usec_),
                          difference(timeOf(open_, last_usec_), origin_usec_)});
    parts_.push_back(open_);
  }
  open_.begin = end;
  open_.real_before = open_.real_after;
  if (open_.monotonic_after != INT64_MAX) open_.monotonic_before = open_.monotonic_after;
  open_.monotonic_after = INT64_MAX;
  open_bytes_ = 0;
  is_extended_ = false;
  has_events_ = false;
  std::ranges::fill(open_counts_, Counts());
}

// On the monotonic clock.
std::int64_t Recording::timeOf(const Part& part, std::uint64_t real_usec) {
  const auto real = static_cast<std::int64_t>(real_usec);
  const std::int64_t before = difference(real, part.real_before);
  const bool fits =
      difference(before, part.monotonic_before) >= -kSlackUsec && before <= part.monotonic_after;
  return fits ? before : difference(real, part.real_after);
}

// A device that never delivered has the types that no other device has, so that the replay
// registers all types of the recording.
void Recording::typeDevicesWithoutSamples() {
  for (RecordedDevice& device : devices_) {
    for (RecordedFailures& failures : device.failures) {
      failures.from_usec = difference(failures.from_usec, origin_usec_);
      failures.to_usec = difference(failures.to_usec, origin_usec_);
    }
    if (device.device_type) continue;
    device.plane_type = nullptr;
    for (const auto& type : types_) {
      if (!type) continue;
      const RecordedType*& own = type->is_plane ? device.plane_type : device.device_type;
      const bool is_used = std::ranges::any_of(devices_, [&](const RecordedDevice& other) {
        return &other != &device && (other.device_type == &*type || other.plane_type == &*type);
      });
      if (!own || !is_used) own = &*type;
    }
    device.planes = device.plane_type && !device.plane_type->counters.empty() ? 1 : 0;
  }
}

std::shared_ptr<const RecordedPart> Recording::load(std::size_t number) {
  const Part& part = parts_[number];
  const std::scoped_lock lock(reading_);
  Assembly assembly(*this, part);
  reader_.seek(part.begin);
  while (const auto header = reader_.peek()) {
    if (reader_.position() >= part.end) break;
    if (header->kind != ChunkKind::events) {
      reader_.skip();
      continue;
    }
    const auto chunk = reader_.take();
    if (!chunk) continue;
    try {
      tev::host::forEachBlock(*schema_, chunk->body, [](const tev::host::Block&) {});
    } catch (const RunError&) {  // among the problems already
      continue;
    }
    tev::host::decodeBlocks(*schema_, chunk->body,
                            [&](const Event& event) { assembly.add(event); });
  }
  return std::make_shared<const RecordedPart>(assembly.samples());
}

// With `caching_` held. The thread does not take the host's signals.
Recording::Future Recording::request(std::size_t number) {
  const auto known = parts_read_.find(number);
  if (known != parts_read_.end()) return known->second;
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  Future future;
  try {
    future = std::async(std::launch::async, [this, number] { return load(number); }).share();
  } catch (const std::system_error&) {  // no thread
    future = std::async(std::launch::deferred, [this, number] { return load(number); }).share();
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return parts_read_.emplace(number, std::move(future)).first->second;
}

std::shared_ptr<const RecordedPart> Recording::part(std::size_t number) {
  Future future;
  {
    const std::scoped_lock lock(caching_);
    future = request(number);
    if (number + 1 < parts_.size()) request(number + 1);
    std::erase_if(parts_read_, [number](const auto& entry) {
      return entry.first + 2 < number || entry.first > number + 2;
    });
  }
  return future.get();
}

void Recording::prepare(std::size_t number) {
  const std::scoped_lock lock(caching_);
  if (number < parts_.size()) request(number);
}

}  // namespace simulator
