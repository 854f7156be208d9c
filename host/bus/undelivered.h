// Counts the samples that did not reach the bus, or whose windows did not.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "host/bus/message.h"
#include "host/events/decoder.h"
#include "host/events/event_source.h"
#include "host/events/schema_view.h"
#include "host/events/series.h"

namespace tev::host {

// May be used by several threads.
class Undelivered {
 public:
  // Of a batch that is given up.
  void add(const Batch& batch);

  // Adds the samples to the counts of their devices.
  void addTo(std::vector<DeviceCounts>& counts) const;

  std::uint64_t events() const;

 private:
  // The samples of a device are those of one of its series.
  struct Schema {
    explicit Schema(SchemaView schema);

    SchemaView view;
    std::vector<const Column*> samples;  // by the type's number; null: an event is one sample
    bool has_devices = false;            // types whose only key is the device
    SeriesTable series;
    std::map<std::string, const Series*> counted;  // by device
  };

  void count(Schema& schema, const Event& event);

  mutable std::mutex mutex_;
  std::map<std::vector<std::string>, Schema> schemas_;  // by their ids
  std::map<std::string, std::uint64_t> samples_;        // by device
  std::uint64_t events_ = 0;
};

}  // namespace tev::host
