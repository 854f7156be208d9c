// Collects what the library logs, instead of writing it.
#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tev/logger.h"

namespace tev::test {

struct LogLine {
  std::uint32_t level = 0;
  std::string text;

  bool operator==(const LogLine&) const = default;
};

inline void PrintTo(const LogLine& line, std::ostream* out) {
  *out << "(" << line.level << ") \"" << line.text << '"';
}

using LogLines = std::vector<LogLine>;
using Texts = std::vector<std::string>;

inline LogLines linesAt(std::uint32_t level, const Texts& texts) {
  LogLines lines;
  for (const std::string& text : texts) lines.push_back({level, text});
  return lines;
}

// While it exists, it collects every message up to `level` from all threads. Afterwards the logger
// has its previous state. Objects may be nested: the innermost one collects.
class CapturedLog {
 public:
  explicit CapturedLog(std::uint32_t level = TEV_LEVEL_DEBUG)
      : before_(tev_get_logger_ctx()),
        func_before_(tev_get_log_func()),
        registered_before_(is_registered) {
    tev_set_log_func(collect, level);
    const std::scoped_lock lock(mutex());
    outer_ = std::exchange(current(), this);
  }

  ~CapturedLog() {
    tev_set_log_func(func_before_, before_->level);
    if (tev_logger_ctx_t* now = tev_get_logger_ctx()) {
      before_->mutex = now->mutex;  // one that came meanwhile stays
      tev_destroy_logger_ctx(now);
    }
    _tev_register_logger(before_);
    is_registered = registered_before_;
    tev_destroy_logger_ctx(before_);
    const std::scoped_lock lock(mutex());
    current() = outer_;
  }

  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  // A copy of everything so far, in order.
  LogLines lines() const {
    const std::scoped_lock lock(mutex());
    return lines_;
  }

  // The texts of one level.
  Texts texts(std::uint32_t level) const {
    Texts found;
    for (const LogLine& line : lines())
      if (line.level == level) found.push_back(line.text);
    return found;
  }

  // How often exactly this line is there.
  std::size_t count(std::uint32_t level, const std::string& text) const {
    const LogLines all = lines();
    return static_cast<std::size_t>(std::ranges::count(all, LogLine{level, text}));
  }

  bool contains(std::uint32_t level, const std::string& text) const {
    return count(level, text) != 0;
  }

  void clear() {
    const std::scoped_lock lock(mutex());
    lines_.clear();
  }

 private:
  static std::mutex& mutex() {
    static std::mutex instance;
    return instance;
  }
  static CapturedLog*& current() {
    static CapturedLog* instance = nullptr;
    return instance;
  }

  static void collect(std::uint32_t level, const char* format, ...) TEV_PRINTF_FORMAT(2, 3) {
    va_list arguments;
    va_list again;
    va_start(arguments, format);
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(arguments);

    const std::scoped_lock lock(mutex());
    if (current()) current()->lines_.push_back({level, std::move(text)});
  }

  tev_logger_ctx_t* before_;
  tev_log_func_t func_before_;
  std::uint8_t registered_before_;
  CapturedLog* outer_ = nullptr;
  LogLines lines_;
};

}  // namespace tev::test
