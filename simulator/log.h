// The simulator's diagnostics, written to the streams of its users' log backends.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <vector>

#include "sdk/vuna_abi.h"

// The user owns the stream. It must outlive the library.
struct vuna_log_backend {
  std::FILE* stream;
  std::uint32_t level;
};

namespace simulator {

enum LogLevel : std::uint32_t {
  kLogDisable = 10,
  kLogCritical = 20,
  kLogError = 30,
  kLogWarning = 40,
  kLogInfo = 50,
  kLogDebug = 60,
  kLogTrace = 70
};

class Log {
 public:
  vuna_status create(std::FILE* stream, vuna_log_backend** backend);
  vuna_status setLevel(vuna_log_backend* backend, std::uint32_t level);

  bool enabled(LogLevel level) const { return level <= most_.load(std::memory_order_relaxed); }

  // Writes one line, "[vuna-sim] [LEVEL] TEXT", to each backend for which the level is enabled.
  __attribute__((format(printf, 3, 4))) void line(LogLevel level, const char* format, ...) noexcept;

 private:
  std::mutex mutex_;
  std::vector<std::unique_ptr<vuna_log_backend>> backends_;
  std::atomic<std::uint32_t> most_{kLogDisable};  // the highest of the backends' levels
};

}  // namespace simulator
