#include "simulator/recorded_scenario.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>

#include "host/capture/format.h"
#include "host/support/errors.h"
#include "host/support/text.h"
#include "simulator/common_library.h"
#include "simulator/recording.h"

namespace simulator {
namespace {

constexpr std::size_t kMaxNamedStatuses = 256;
constexpr std::size_t kMaxNameBytes = 200;
constexpr std::size_t kMaxReasonBytes = 400;

// Statuses with the recorded texts of failures follow these two.
constexpr vuna_status kRecordingEnded = 1100;
constexpr vuna_status kNotRecorded = 1101;

// A reason why reads of a device failed, as a status.
struct Failures {
  std::int64_t from_usec;
  std::int64_t to_usec;
  vuna_status status;
};

// What is played of one device.
struct Play {
  std::shared_ptr<Recording> recording;
  std::size_t device;
  std::vector<Failures> failures;  // in their order
  ClockKind clock;
};

// The samples of one device, one after the other.
class Cursor {
 public:
  explicit Cursor(const Play& play) : play_(play) { play_.recording->prepare(0); }

  // Whether there is a next sample. Its part is then in memory.
  bool hasNext() {
    while (true) {
      if (samples_ && row_ < samples_->usec.size()) return true;
      if (part_ == play_.recording->numParts()) return false;
      held_ = play_.recording->part(part_++);
      samples_ = &held_->at(play_.device);
      row_ = 0;
    }
  }

  std::int64_t nextUsec() const { return samples_->usec[row_]; }

  // numCounters() values; valid until hasNext() is called.
  const std::uint32_t* take() {
    const std::size_t width = samples_->values.size() / samples_->usec.size();
    return samples_->values.data() + row_++ * width;
  }

 private:
  const Play& play_;
  std::size_t part_ = 0;  // the next one
  std::size_t row_ = 0;
  std::shared_ptr<const RecordedPart> held_;
  const RecordedSamples* samples_ = nullptr;  // in held_
};

// The recorded time begins with the first read. A read gets the last sample that is not newer than
// half an interval, so that small differences of the times of reads do not matter.
class RecordedSource final : public CounterSource {
 public:
  explicit RecordedSource(Play play)
      : play_(std::move(play)),
        cursor_(play_),
        interval_(play_.recording->intervalUsec()),
        values_(play_.recording->devices()[play_.device].numCounters()) {}

  vuna_status read(const Moment& moment, std::uint32_t* values) override {
    const vuna_status status = play_.clock == ClockKind::samples
                                   ? moveToSample(moment.sample)
                                   : moveTo(recordedTime(moment.elapsed_usec));
    if (status == kVunaSuccess) std::ranges::copy(values_, values);
    return status;
  }

 private:
  vuna_status moveToSample(std::uint64_t number) {
    while (taken_ <= number && cursor_.hasNext()) take();
    return taken_ > number ? kVunaSuccess : kRecordingEnded;
  }

  // A device is not always the first one of a pass, and it may have failed at first.
  std::int64_t recordedTime(std::uint64_t elapsed_usec) {
    if (!std::exchange(has_begun_, true)) {
      zero_usec_ = elapsed_usec;
      if (cursor_.hasNext() && cursor_.nextUsec() > 0 && cursor_.nextUsec() <= interval_ / 2)
        lead_ = cursor_.nextUsec();
    }
    return static_cast<std::int64_t>(elapsed_usec - zero_usec_) + lead_;
  }

  vuna_status moveTo(std::int64_t now) {
    const std::int64_t half = interval_ / 2;
    while (cursor_.hasNext() && cursor_.nextUsec() <= now + half) take();
    if (now - half > play_.recording->endUsec()) return kRecordingEnded;
    if (taken_ > 0 && (interval_ == 0 || now <= last_usec_ + half)) return kVunaSuccess;
    const bool has_next = cursor_.hasNext();
    // The next sample is late, but none is missing.
    if (taken_ > 0 && has_next && cursor_.nextUsec() <= last_usec_ + interval_ + 3 * half / 2)
      return kVunaSuccess;
    return failureBetween(taken_ > 0 ? last_usec_ : INT64_MIN,
                          has_next ? cursor_.nextUsec() : INT64_MAX);
  }

  vuna_status failureBetween(std::int64_t from, std::int64_t to) const {
    for (const Failures& one : play_.failures)
      if (one.to_usec >= from && one.from_usec <= to) return one.status;
    return kNotRecorded;
  }

  // When counters were cleared at each read, the values are their increases.
  void take() {
    last_usec_ = cursor_.nextUsec();
    const std::uint32_t* const sample = cursor_.take();
    const bool adds = play_.recording->head().clear_on_read;
    for (std::size_t i = 0; i < values_.size(); ++i)
      values_[i] = sample[i] + (adds ? values_[i] : 0);
    ++taken_;
  }

  const Play play_;
  Cursor cursor_;
  std::int64_t interval_;
  std::vector<std::uint32_t> values_;  // of the last sample; increases are summed up
  std::uint64_t taken_ = 0;            // samples
  std::int64_t last_usec_ = 0;         // of the last sample
  bool has_begun_ = false;
  std::uint64_t zero_usec_ = 0;  // elapsed time at the first read
  std::int64_t lead_ = 0;        // recorded time at the first read
};

// The statuses whose names are the recorded texts.
class Statuses {
 public:
  explicit Statuses(std::map<vuna_status, std::string>& names) : names_(names) {
    names_[kRecordingEnded] = "RECORDING_ENDED";
    names_[kNotRecorded] = "NOT_RECORDED";
    for (vuna_status status = 1; status < kScenarioRefused; ++status)
      if (const char* const name = vuna_common_status_name(status)) known_.emplace(name, status);
  }

  vuna_status named(const std::string& text) {
    std::string name = text.substr(0, std::min(text.find('\0'), kMaxNameBytes));
    if (name.empty()) return kNotRecorded;
    const auto known = known_.find(name);
    if (known != known_.end()) return known->second;
    if (names_.size() == kMaxNamedStatuses) return kNotRecorded;
    const auto status = static_cast<vuna_status>(kRecordingEnded + names_.size());
    known_.emplace(name, status);
    names_.emplace(status, std::move(name));
    return status;
  }

 private:
  std::map<vuna_status, std::string>& names_;
  std::map<std::string, vuna_status> known_;
};

// The description line from which the plug-in makes this name and this description.
std::string lineOf(const RecordedType::Counter& counter) {
  // A line without a comma is both.
  return counter.name == counter.description ? counter.name
                                             : counter.name + ", " + counter.description;
}

Slot slotOf(const RecordedDevice& recorded) {
  Slot slot;
  slot.info = "recorded";
  if (recorded.device_type)
    for (const RecordedType::Counter& counter : recorded.device_type->counters)
      slot.counters.push_back({lineOf(counter), true});
  for (std::size_t plane = 0; recorded.plane_type && plane < recorded.planes; ++plane)
    for (const RecordedType::Counter& counter : recorded.plane_type->counters)
      slot.counters.push_back(
          {fmt::format("{}, {}, plane {}", counter.name, counter.description, plane), true});
  deriveNumbers(slot);
  return slot;
}

}  // namespace

bool isCapture(const std::string& path) {
  if (path.ends_with(".tevcap")) return true;
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return false;
  char first[sizeof tev::host::kCaptureMagic];
  const ssize_t length = read(file, first, sizeof first);
  close(file);
  return length == sizeof first && std::memcmp(first, tev::host::kCaptureMagic, sizeof first) == 0;
}

Scenario recordedScenario(const std::string& path, ClockKind clock) {
  Scenario scenario;
  scenario.clock = clock;
  try {
    const auto recording = std::make_shared<Recording>(path);
    scenario.notes = recording->problems();
    Statuses statuses(scenario.status_names);
    for (std::size_t i = 0; i < recording->devices().size(); ++i) {
      const RecordedDevice& recorded = recording->devices()[i];
      const std::size_t counters = recorded.numCounters();
      if (counters == 0 || counters > kMaxCounters) {
        scenario.notes.push_back(
            fmt::format("{}: {} is left out: it has {} counters, from 1 to {} are possible",
                        tev::host::asPrintable(path), tev::host::asPrintable(recorded.name),
                        counters, kMaxCounters));
        continue;
      }
      Play play{recording, i, {}, clock};
      for (const RecordedFailures& one : recorded.failures)
        play.failures.push_back({one.from_usec, one.to_usec, statuses.named(one.reason)});
      Device& device = scenario.devices.emplace_back();
      device.ibdev_name = recorded.name;
      device.slots.push_back(slotOf(recorded));
      device.slots.front().make_source = [play = std::move(play)] {
        return std::make_unique<RecordedSource>(play);
      };
      deriveMaxima(device);
    }
  } catch (const std::exception& error) {
    // A broken head can be quoted in the reason.
    throw ScenarioError(
        tev::host::asPrintable("scenario " + std::string(error.what()).substr(0, kMaxReasonBytes)));
  }
  return scenario;
}

}  // namespace simulator
