// The host's end of the logger that it shares with the plug-in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tev::host {

// Takes the lines of all threads of the process. There is one.
//
// While the plug-in is being set up it listens to every level and remembers the last lines, so that
// a refusal can be explained; afterwards only to the level that is to be shown.
class HostLog {
 public:
  static HostLog& instance();

  HostLog(const HostLog&) = delete;
  HostLog& operator=(const HostLog&) = delete;

  // Begins to listen. Lines up to `level` are shown, at once or, with `later`, by endSetUp().
  void beginSetUp(std::uint32_t level, bool later);

  // The set-up went well: of what is still to be shown, all is shown that is `news`.
  void endSetUp(const std::function<bool(const std::string&)>& news);

  // The lines that explain a refusal: all errors and warnings, and the last lines of any level.
  // Those that were shown already are left out of `unshown`.
  struct Explanation {
    std::string reason;                // on one line, without tags; empty when nothing was said
    std::vector<std::string> unshown;  // lines, with their level
  };
  Explanation explainRefusal() const;

  // The errors and warnings that `action` logs on this thread, without their tags, in place of
  // showing them.
  std::vector<std::string> linesOf(const std::function<void()>& action);

  // Between these, lines are kept instead of shown, because the terminal is being drawn upon.
  void holdBack();
  void release();

  // The last `count` lines that are being kept.
  std::vector<std::string> lastHeldBack(std::size_t count) const;

  // A line of the host's own, shown as it is.
  void say(const std::string& line);

  void write(std::uint32_t level, std::string text);

 private:
  struct Line {
    std::uint32_t level;
    std::string text;
    std::string time;
    bool shown;
  };

  HostLog() = default;
  std::string reason() const;
  static std::string stamped(const Line& line);
  void show(std::string line);

  mutable std::mutex mutex_;  // guards everything below
  std::uint32_t level_ = 0;
  bool setting_up_ = false;
  bool later_ = false;
  bool holding_back_ = false;
  std::vector<std::string>* collected_ = nullptr;  // of the action under way
  std::thread::id acting_;                         // its thread
  std::deque<Line> set_up_;                        // its last lines
  std::deque<std::string> held_back_;
  std::size_t dropped_ = 0;  // of these, for want of room
};

}  // namespace tev::host
