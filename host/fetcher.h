// The fetching side of the plug-in's interface: progress, and the serializer that it fills.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "host/plugin.h"
#include "src/support/malloc_ptr.h"

namespace tev::host {

class Fetcher {
 public:
  // Takes the blocks of one call of progress; they are gone after it.
  using Consumer = std::function<void(std::span<const std::uint8_t>)>;

  // Throws UsageError when an event of some type does not fit into so many bytes, RunError when
  // there is not so much memory.
  Fetcher(Provider& provider, tev_type_system_t* types, std::uint64_t buffer_bytes,
          Consumer consumer);

  // Fetches what is there: calls progress again at once as long as the serializer was full, and
  // until `interrupted`. A failed call is tried again by the next round; several of them in a row,
  // and a buffer that stays empty although it is "full", are a RunError.
  void round(const std::function<bool()>& interrupted);

  // After stop: goes on until nothing more comes. False when the plug-in goes on delivering batch
  // after batch, or when `interrupted`.
  bool drain(const std::function<bool()>& interrupted);

 private:
  // One call of progress; returns its result and whether it wrote anything.
  struct Outcome {
    int result;
    bool wrote;
  };
  Outcome progress();

  Provider& provider_;
  std::uint64_t needed_bytes_;
  support::MallocPtr<std::uint8_t> buffer_;
  tev_data_serializer_t serializer_;
  Consumer consumer_;
  int failures_ = 0;  // in a row
};

}  // namespace tev::host
