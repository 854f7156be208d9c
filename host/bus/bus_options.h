#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace tev::host {

struct SpoolOptions {
  std::string folder;
  std::uint64_t most_bytes = std::uint64_t{1} << 30;  // of all files
};

struct BusOptions {
  std::string source;                               // key of the messages
  std::size_t queue_bytes = std::size_t{16} << 20;  // of event blocks that wait in memory
  std::optional<SpoolOptions> spool;  // they wait in files, as long as the disk takes them
};

}  // namespace tev::host
