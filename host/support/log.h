// The log of this process, which the plug-in shares.
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

// Receives the log lines of all threads of the process. There is one instance.
//
// During the set-up of the plug-in it receives lines of every level and keeps the last ones, which
// explain a refusal. Afterwards it receives only lines of the levels that are shown.
class Log {
 public:
  static Log& instance();

  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  // Begins to receive lines. Lines up to `level` are shown at once or, with `later`, by endSetUp().
  void beginSetUp(std::uint32_t level, bool later);

  // The set-up succeeded. Shows the lines that beginSetUp() kept for later, or drops them.
  void endSetUp(bool show_kept);

  // The lines that explain a refusal: all errors and warnings, and the last lines of any level.
  // Lines that were already shown are not in `unshown`.
  struct Explanation {
    std::string reason;                // on one line, without tags; empty without log lines
    std::vector<std::string> unshown;  // lines, with their level
  };
  Explanation explainRefusal() const;

  // Returns the errors and warnings that `action` logs on this thread, without their tags. They are
  // not shown.
  std::vector<std::string> linesOf(const std::function<void()>& action);

  // Between these two calls, lines are kept and not shown, because an output draws on the terminal.
  void holdBack();
  void release();

  // The last `count` lines that are being held back.
  std::vector<std::string> lastHeldBack(std::size_t count) const;

  // Shows a line of the host itself, without a time stamp or level.
  void say(const std::string& line);

  void write(std::uint32_t level, std::string text);

 private:
  struct Line {
    std::uint32_t level;
    std::string text;
    std::string time;
    bool shown;
  };

  Log() = default;
  std::string reason() const;
  static std::string stamped(const Line& line);
  void show(std::string line);

  mutable std::mutex mutex_;  // guards everything below
  std::uint32_t level_ = 0;
  bool setting_up_ = false;
  bool later_ = false;
  bool holding_back_ = false;
  std::vector<std::string>* collected_ = nullptr;  // lines of the action that linesOf() runs
  std::thread::id acting_;                         // its thread
  std::deque<Line> set_up_;                        // the last lines of the set-up
  std::deque<std::string> held_back_;
  std::size_t dropped_ = 0;  // from held_back_, which has a limit
};

}  // namespace tev::host
