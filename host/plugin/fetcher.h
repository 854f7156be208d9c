// Calls the plug-in's function `progress`, and owns the serializer that it fills.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "host/plugin/provider.h"
#include "src/support/malloc_ptr.h"

namespace tev::host {

class Fetcher {
 public:
  // Throws UsageError when the buffer is too small for an event of some type, RunError when there
  // is no memory for the buffer.
  Fetcher(Provider& provider, tev_type_system_t* types, std::uint64_t buffer_bytes);

  // Fetches the available events: calls progress again immediately while the serializer was full
  // and the run is not `interrupted`. The next round repeats a call that failed. Throws RunError
  // after several failures in a row, and when the plug-in reports an empty serializer as full.
  void round(const BlockConsumer& take, const std::function<bool()>& interrupted);

  // After stop: fetches until the plug-in does not deliver more events. False when it continues to
  // deliver, or when the run is `interrupted`.
  bool drain(const BlockConsumer& take, const std::function<bool()>& interrupted);

 private:
  // One call of progress; returns its result and whether it wrote anything.
  struct Outcome {
    int result;
    bool wrote;
  };
  Outcome progress(const BlockConsumer& take);

  Provider& provider_;
  std::uint64_t needed_bytes_;
  support::MallocPtr<std::uint8_t> buffer_;
  tev_data_serializer_t serializer_;
  int failures_ = 0;  // in a row
};

}  // namespace tev::host
