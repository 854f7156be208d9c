// What commands that read a recording to its end have in common.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "host/capture/capture_source.h"
#include "host/outputs/output.h"

namespace tev::host {

constexpr std::chrono::milliseconds kUsualUpdate{1000};  // of the run that was recorded

// A line on the terminal that is written again and again.
class ReadingProgress {
 public:
  explicit ReadingProgress(bool is_shown) : is_shown_(is_shown) {}
  ~ReadingProgress();
  ReadingProgress(const ReadingProgress&) = delete;
  ReadingProgress& operator=(const ReadingProgress&) = delete;

  void show(const CaptureSource& source);

 private:
  static void write(const std::string& text);

  bool is_shown_;
  bool is_drawn_ = false;
  std::chrono::steady_clock::time_point drawn_;
};

RunStatus statusOf(const CaptureSource& source);

// The output must not be one of the files that are read. Throws UsageError.
void expectOtherFile(int output, const std::vector<std::string>& inputs);
void expectOtherFile(const std::string& output, const std::vector<std::string>& inputs);

}  // namespace tev::host
