#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tev::host {

// When the recorded bytes are forced to the disk. A power cut loses what came later.
enum class CaptureSync : std::uint8_t {
  none,    // the system decides
  file,    // when a file is complete
  update,  // after each update
};

struct CaptureOptions {
  std::string path;
  // A new file is begun when the current one has reached one of these. Each file then has the time
  // and its number in its name.
  std::optional<std::uint64_t> rotate_bytes;
  std::optional<std::chrono::seconds> rotate_time;
  std::optional<std::uint64_t> keep;  // files; older ones are removed
  CaptureSync sync = CaptureSync::file;

  bool rotates() const { return rotate_bytes || rotate_time; }
};

}  // namespace tev::host
