// Calls the plug-in's function `progress`, and owns the serializer that it fills.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "host/plugin/plugin_thread.h"
#include "host/plugin/provider.h"
#include "src/support/malloc_ptr.h"

namespace tev::host {

class Fetcher {
 public:
  // The calls are made on `thread`, and the blocks are taken on the calling thread. Throws
  // UsageError when the buffer is too small for an event of some type, RunError when there is no
  // memory for the buffer.
  Fetcher(Provider& provider, tev_type_system_t* types, std::uint64_t buffer_bytes,
          PluginThread& thread);

  // Fetches the available events: calls progress again immediately while the serializer was full
  // and the run is not `interrupted`. The next round repeats a call that failed. Throws RunError
  // after several failures in a row, and when the plug-in reports an empty serializer as full.
  // False when it was interrupted during a call, which continues: the next round or drain() takes
  // its blocks.
  bool round(const BlockConsumer& take, const std::function<bool()>& interrupted);

  // After stop: fetches until the plug-in does not deliver more events. False when it continues to
  // deliver, or when the run is `interrupted`.
  bool drain(const BlockConsumer& take, const std::function<bool()>& interrupted);

 private:
  // One call of progress: its result and whether it wrote anything. Empty when it was interrupted.
  struct Outcome {
    int result;
    bool wrote;
  };
  std::optional<Outcome> progress(const BlockConsumer& take,
                                  const std::function<bool()>& interrupted);

  Provider& provider_;
  std::uint64_t needed_bytes_;
  support::MallocPtr<std::uint8_t> buffer_;
  tev_data_serializer_t serializer_;
  PluginThread& thread_;
  bool is_called_ = false;  // progress, and its result was not taken yet
  int result_ = 0;          // of this call
  int failures_ = 0;        // in a row
};

}  // namespace tev::host
