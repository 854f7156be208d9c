#include "host/support/log.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <iterator>
#include <string_view>
#include <utility>

#include "host/support/stderr_text.h"
#include "host/support/text.h"
#include "src/support/clock.h"
#include "tev/logger.h"

namespace tev::host {
namespace {

constexpr std::size_t kRemembered = 1000;
constexpr std::size_t kHeldBack = 1000;
constexpr std::size_t kLastLines = 6;
constexpr std::ptrdiff_t kReasonLines = 3;

// The log function of the plug-in and of this process's own copy of the library. They call it from
// any thread.
void takeLine(std::uint32_t level, const char* format, ...) TEV_PRINTF_FORMAT(2, 3);
void takeLine(std::uint32_t level, const char* format, ...) {
  va_list arguments;
  va_list again;
  va_start(arguments, format);
  va_copy(again, arguments);
  try {
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    std::ranges::replace(text, '\t', ' ');
    Log::instance().write(level, asPrintable(text));
  } catch (const std::exception&) {  // without memory, the line is lost
  }
  va_end(again);
  va_end(arguments);
}

// In the form of the library's own lines.
std::string timeStamp() {
  const std::uint64_t usec = support::realtimeUsec();
  const auto seconds = static_cast<time_t>(usec / 1'000'000);
  tm local{};
  localtime_r(&seconds, &local);
  char text[32] = "";
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return fmt::format("[{}.{:03}] ", text, usec / 1000 % 1000);
}

template <class T>
void keepLast(std::deque<T>& lines, T line, std::size_t most) {
  lines.push_back(std::move(line));
  if (lines.size() > most) lines.pop_front();
}

// The text without the tags ("[component] ") at its beginning and without white space at both ends.
std::string_view untagged(std::string_view text) {
  while (text.starts_with('[')) {
    const std::size_t end = text.find("] ");
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 2);
  }
  return text;
}

}  // namespace

Log& Log::instance() {
  static Log log;
  return log;
}

void Log::beginSetUp(std::uint32_t level, bool later) {
  {
    const std::scoped_lock lock(mutex_);
    level_ = level;
    later_ = later;
    setting_up_ = true;
    set_up_.clear();
  }
  tev_set_log_func(takeLine, std::max<std::uint32_t>(level, TEV_LEVEL_DEBUG));
}

void Log::endSetUp(bool show_kept) {
  const std::scoped_lock lock(mutex_);
  tev_set_log_level(level_);
  setting_up_ = false;
  for (const Line& line : std::exchange(set_up_, {}))
    if (show_kept && !line.shown && line.level <= level_) show(stamped(line));
}

// At most the last kReasonLines of these lines, in their order:
// - the errors that follow each other directly, if the last line that is an error or a warning is
// an
//   error. Lines of other levels behind them report the clean-up;
// - otherwise the lines after the last warning. The set-up went on after the errors before it, and
//   a plug-in logs its conclusion last;
// - if the last line is a warning, the last error or, without an error, that warning.
std::string Log::reason() const {
  const auto is_error = [](const Line& line) { return line.level <= TEV_LEVEL_ERROR; };
  const auto is_serious = [](const Line& line) { return line.level <= TEV_LEVEL_WARNING; };
  const auto serious = std::find_if(set_up_.rbegin(), set_up_.rend(), is_serious);
  auto newest = set_up_.rbegin();
  auto oldest = serious;
  if (serious != set_up_.rend() && (is_error(*serious) || serious == newest)) {
    const auto error = std::find_if(serious, set_up_.rend(), is_error);
    newest = error == set_up_.rend() ? serious : error;
    oldest = std::find_if_not(std::next(newest), set_up_.rend(), is_error);
  }
  std::string reason;
  const auto lines = std::min<std::ptrdiff_t>(oldest - newest, kReasonLines);
  for (auto line = newest + lines; line-- != newest;)
    reason += (reason.empty() ? "" : "; ") + std::string(untagged(line->text));
  return reason;
}

Log::Explanation Log::explainRefusal() const {
  const std::scoped_lock lock(mutex_);
  Explanation explanation{reason(), {}};
  for (std::size_t i = 0; i < set_up_.size(); ++i) {
    const Line& line = set_up_[i];
    if (!line.shown && (line.level <= TEV_LEVEL_WARNING || i + kLastLines >= set_up_.size()))
      explanation.unshown.push_back(tev_priority_level_string_logger(line.level) + line.text);
  }
  return explanation;
}

std::vector<std::string> Log::linesOf(const std::function<void()>& action) {
  std::vector<std::string> lines;
  const auto collect = [this](std::vector<std::string>* into) {
    const std::scoped_lock lock(mutex_);
    collected_ = into;
    acting_ = std::this_thread::get_id();
  };
  const std::uint32_t level = tev_set_log_level(TEV_LEVEL_WARNING);
  collect(&lines);
  const auto restore = [&] {
    collect(nullptr);
    tev_set_log_level(level);
  };
  try {
    action();
  } catch (...) {
    restore();
    throw;
  }
  restore();
  return lines;
}

void Log::holdBack() {
  const std::scoped_lock lock(mutex_);
  holding_back_ = true;
}

void Log::release() {
  const std::scoped_lock lock(mutex_);
  holding_back_ = false;
  if (dropped_ > 0) show(fmt::format("tev-host: {} earlier log lines are left out", dropped_));
  for (const std::string& line : held_back_) show(line);
  held_back_.clear();
  dropped_ = 0;
}

std::vector<std::string> Log::lastHeldBack(std::size_t count) const {
  const std::scoped_lock lock(mutex_);
  const std::size_t first = held_back_.size() > count ? held_back_.size() - count : 0;
  return {held_back_.begin() + static_cast<std::ptrdiff_t>(first), held_back_.end()};
}

void Log::say(const std::string& line) {
  const std::scoped_lock lock(mutex_);
  show(line);
}

void Log::write(std::uint32_t level, std::string text) {
  const std::scoped_lock lock(mutex_);
  if (collected_ && acting_ == std::this_thread::get_id()) {
    collected_->emplace_back(untagged(text));
    return;
  }
  Line line{level, std::move(text), timeStamp(), false};
  if (level <= level_ && !(setting_up_ && later_)) {
    show(stamped(line));
    line.shown = true;
  }
  if (setting_up_) keepLast(set_up_, std::move(line), kRemembered);
}

std::string Log::stamped(const Line& line) {
  return line.time + tev_priority_level_string_logger(line.level) + line.text;
}

void Log::show(std::string line) {
  if (holding_back_) {
    dropped_ += held_back_.size() == kHeldBack;
    keepLast(held_back_, std::move(line), kHeldBack);
    return;
  }
  showOnStderr(line + '\n');
}

}  // namespace tev::host
