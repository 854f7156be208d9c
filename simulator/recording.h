// The devices of a capture file and their samples, update by update.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/capture/chunk_reader.h"
#include "host/capture/head.h"
#include "host/events/decoder.h"
#include "host/events/schema_view.h"

namespace simulator {

// The fields of a type of events that describes adapters, apart from the key.
struct RecordedType {
  struct Counter {
    std::string name;
    std::string description;
    std::uint64_t offset;  // in the event
  };
  bool is_plane = false;
  std::uint64_t plane_offset = 0;  // of the plane's number
  std::vector<Counter> counters;
};

// Reads of a device that failed. Times are microseconds since the first sample of the recording.
struct RecordedFailures {
  std::int64_t from_usec;
  std::int64_t to_usec;
  std::string reason;
};

struct RecordedDevice {
  std::string name;
  const RecordedType* device_type = nullptr;  // null: no sample was recorded
  const RecordedType* plane_type = nullptr;   // null: no event of a plane was recorded
  std::size_t planes = 0;
  std::vector<RecordedFailures> failures{};  // in their order

  // Per sample: those of the device, and then those of each plane.
  std::size_t numCounters() const {
    return (device_type ? device_type->counters.size() : 0) +
           (plane_type ? planes * plane_type->counters.size() : 0);
  }
};

// The samples of one device in a part of the recording.
struct RecordedSamples {
  std::vector<std::int64_t> usec;     // as in RecordedFailures; does not decrease
  std::vector<std::uint32_t> values;  // numCounters() of each sample
};

// By the position of the device.
using RecordedPart = std::vector<RecordedSamples>;

// Any thread may call, apart from the constructor.
class Recording {
 public:
  // Reads the whole file once. Throws tev::host::RunError when the file cannot be played. Damaged
  // places are passed over.
  explicit Recording(const std::string& path);

  const tev::host::CaptureHead& head() const { return head_; }
  std::int64_t intervalUsec() const;                  // between two samples; 0: not known
  std::int64_t endUsec() const { return end_usec_; }  // of the last sample

  const std::vector<RecordedDevice>& devices() const { return devices_; }

  // What was passed over: one sentence each.
  const std::vector<std::string>& problems() const { return problems_; }

  // A part is an update of the recording.
  std::size_t numParts() const { return parts_.size(); }

  // Reads the part, unless this has been done, and begins to read the next one on another thread.
  std::shared_ptr<const RecordedPart> part(std::size_t number);

  // Begins to read the part.
  void prepare(std::size_t number);

 private:
  // A part in the file. The real-time clock may be stepped within it: `real_before` and
  // `real_after` are this clock minus the monotonic clock.
  struct Part {
    std::uint64_t begin = 0;  // bytes from the start of the file
    std::uint64_t end = 0;
    std::int64_t real_before = 0;  // microseconds, as all times here
    std::int64_t real_after = 0;
    std::int64_t monotonic_before = 0;
    std::int64_t monotonic_after = INT64_MAX;
  };
  struct Counts {
    std::size_t samples = 0;
    std::size_t plane_events = 0;
  };
  class Assembly;
  using Future = std::shared_future<std::shared_ptr<const RecordedPart>>;

  void readTypes();
  void scan();
  void scanEvents(const tev::host::Chunk& chunk);
  void scanEvent(const tev::host::Event& event);
  void scanLedger(const tev::host::Chunk& chunk);
  void scanClocks(const tev::host::Chunk& chunk);
  void closePart(std::uint64_t end);
  void noteFailures(std::int64_t until_usec);
  void typeDevicesWithoutSamples();

  bool isWhole() const;
  std::size_t deviceNamed(std::string_view name);
  const RecordedType* typeOf(const tev::host::Event& event) const;
  std::string_view nameIn(const tev::host::Event& event) const;
  template <class Read>
  void passingOver(Read read);

  static std::int64_t timeOf(const Part& part, std::uint64_t real_usec);
  Future request(std::size_t number);
  std::shared_ptr<const RecordedPart> load(std::size_t number);

  std::mutex reading_;  // guards reader_ after construction
  tev::host::ChunkReader reader_;
  tev::host::CaptureHead head_;
  std::optional<tev::host::SchemaView> schema_;
  std::deque<std::optional<RecordedType>> types_;  // by the type's number; empty: not of adapters
  std::vector<RecordedDevice> devices_;
  std::map<std::string, std::size_t, std::less<>> device_of_;  // by name
  std::vector<Part> parts_;
  std::vector<std::string> problems_;
  std::int64_t origin_usec_ = 0;  // of the first sample, on the monotonic clock
  std::int64_t end_usec_ = 0;

  // While the file is scanned.
  Part open_;
  bool is_extended_ = false;      // the open part has the events of two updates
  bool has_events_ = false;       // the open part
  std::uint64_t open_bytes_ = 0;  // of its events
  std::uint64_t first_usec_ = 0;  // time stamps in it
  std::uint64_t last_usec_ = 0;
  std::vector<Counts> open_counts_;                             // by device
  std::optional<std::map<std::string, std::uint64_t>> failed_;  // as last counted, by device
  std::map<std::string, std::string> failing_;  // since the last clocks: the reason, by device

  std::mutex caching_;  // guards parts_read_
  std::map<std::size_t, Future> parts_read_;
};

}  // namespace simulator
