#include "host/host_log.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <string_view>

#include "host/text.h"
#include "src/support/clock.h"
#include "tev/logger.h"

namespace tev::host {
namespace {

constexpr std::size_t kRemembered = 200;
constexpr std::size_t kHeldBack = 1000;
constexpr std::size_t kLastLines = 8;

// What the plug-in, and this process's own copy of the library, call from any thread.
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
    HostLog::instance().write(level, asPrintable(text));
  } catch (const std::exception&) {  // no memory for a line: the line is lost, the caller is not
  }
  va_end(again);
  va_end(arguments);
}

// As in the library's own lines.
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

// Without the tags ("[component] ") that it begins with, and without white space at its ends.
std::string_view untagged(std::string_view text) {
  while (text.starts_with('[')) {
    const std::size_t end = text.find("] ");
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 2);
  }
  return text;
}

}  // namespace

HostLog& HostLog::instance() {
  static HostLog log;
  return log;
}

void HostLog::beginSetUp(std::uint32_t level, bool later) {
  {
    const std::scoped_lock lock(mutex_);
    level_ = level;
    later_ = later;
    setting_up_ = true;
    serious_.clear();
    others_.clear();
  }
  tev_set_log_func(takeLine, std::max<std::uint32_t>(level, TEV_LEVEL_DEBUG));
}

void HostLog::summarizeSetUp() {
  const std::scoped_lock lock(mutex_);
  const auto unshown = std::count_if(serious_.begin(), serious_.end(), [this](const Line& line) {
    return !line.shown && line.level <= level_;
  });
  serious_.clear();
  if (unshown > 0)
    show(fmt::format("tev-host: {} warnings during set-up (--log-level warning shows them)",
                     unshown));
}

void HostLog::endSetUp() {
  const std::scoped_lock lock(mutex_);
  tev_set_log_level(level_);
  setting_up_ = false;
  std::deque<Line> to_show = std::move(serious_);
  others_.clear();
  serious_.clear();
  for (Line& line : to_show)
    if (!line.shown && line.level <= level_)
      show(line.time + tev_priority_level_string_logger(line.level) + line.text);
}

HostLog::Explanation HostLog::explainRefusal() const {
  const std::scoped_lock lock(mutex_);
  const std::deque<Line>& telling = serious_.empty() ? others_ : serious_;
  Explanation explanation;
  if (telling.empty()) return explanation;

  // The last line of the most serious level: what comes last is the conclusion.
  const auto most_serious = std::ranges::min_element(telling.rbegin(), telling.rend(),
                                                     std::ranges::less_equal{}, &Line::level);
  const auto last = std::find_if(telling.rbegin(), telling.rend(), [&](const Line& line) {
    return line.level == most_serious->level;
  });
  explanation.reason = untagged(last->text);
  const std::size_t first =
      serious_.empty() && others_.size() > kLastLines ? others_.size() - kLastLines : 0;
  for (std::size_t i = first; i < telling.size(); ++i)
    if (!telling[i].shown)
      explanation.unshown.push_back(tev_priority_level_string_logger(telling[i].level) +
                                    telling[i].text);
  return explanation;
}

std::vector<std::string> HostLog::linesOf(const std::function<void()>& action) {
  std::vector<std::string> lines;
  const auto collect = [this](std::vector<std::string>* into) {
    const std::scoped_lock lock(mutex_);
    collected_ = into;
    acting_ = std::this_thread::get_id();
  };
  const std::uint32_t level = tev_set_log_level(TEV_LEVEL_WARNING);
  collect(&lines);
  action();
  collect(nullptr);
  tev_set_log_level(level);
  return lines;
}

void HostLog::holdBack() {
  const std::scoped_lock lock(mutex_);
  holding_back_ = true;
}

void HostLog::release() {
  const std::scoped_lock lock(mutex_);
  holding_back_ = false;
  if (dropped_ > 0) show(fmt::format("tev-host: {} earlier log lines are left out", dropped_));
  for (const std::string& line : held_back_) show(line);
  held_back_.clear();
  dropped_ = 0;
}

std::vector<std::string> HostLog::lastHeldBack(std::size_t count) const {
  const std::scoped_lock lock(mutex_);
  const std::size_t first = held_back_.size() > count ? held_back_.size() - count : 0;
  return {held_back_.begin() + static_cast<std::ptrdiff_t>(first), held_back_.end()};
}

void HostLog::say(const std::string& line) {
  const std::scoped_lock lock(mutex_);
  show(line);
}

void HostLog::write(std::uint32_t level, std::string text) {
  const std::scoped_lock lock(mutex_);
  if (collected_ && acting_ == std::this_thread::get_id()) {
    collected_->emplace_back(untagged(text));
    return;
  }
  Line line{level, std::move(text), timeStamp(), false};
  if (level <= level_ && !(setting_up_ && later_)) {
    show(line.time + tev_priority_level_string_logger(level) + line.text);
    line.shown = true;
  }
  if (setting_up_)
    keepLast(level <= TEV_LEVEL_WARNING ? serious_ : others_, std::move(line), kRemembered);
}

void HostLog::show(std::string line) {
  if (holding_back_) {
    dropped_ += held_back_.size() == kHeldBack;
    keepLast(held_back_, std::move(line), kHeldBack);
    return;
  }
  line += '\n';
  std::fputs(line.c_str(), stderr);
}

}  // namespace tev::host
